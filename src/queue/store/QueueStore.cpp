#include "queue/store/QueueStore.h"

#include "core/json/DecodingError.h"
#include "library/files/SchemaEnvelope.h"
#include "platform/AppPaths.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "core/json/JsonReader.h"
#include "queue/records/QueueError.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <pwd.h>
#include <unistd.h>

namespace folivox {

namespace {

QString folderName(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

} // namespace

QueueStore::QueueStore(QString baseURL)
    : baseURL_(QDir::cleanPath(std::move(baseURL)))
    , queueFileURL_(QDir(baseURL_).filePath(QString::fromLatin1(kFileName)))
    , writer_(QDir(baseURL_).filePath(QStringLiteral(".staging")))
{
    QDir().mkpath(baseURL_);
}

QString QueueStore::defaultBaseURL()
{
    return QDir(AppPaths::appSupportDir()).filePath(QString::fromLatin1(kFolderName));
}

QString QueueStore::runLockURL() const
{
    return QDir(baseURL_).filePath(QStringLiteral("run.lock"));
}

QString QueueStore::editLockURL() const
{
    return QDir(baseURL_).filePath(QStringLiteral("edit.lock"));
}

QString QueueStore::setAside(const QString& why)
{
    const QString stamp = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString target = queueFileURL_ + QStringLiteral(".unreadable-") + stamp;
    for (int n = 2; QFileInfo::exists(target); ++n)
        target = queueFileURL_ + QStringLiteral(".unreadable-") + stamp + u'-' + QString::number(n);
    // A rename never replaces: the name was checked to be free, and a file
    // kept aside earlier keeps its own name.
    if (!QFile::rename(queueFileURL_, target)) {
        Log::write(QStringLiteral("[Queue] could not keep the unreadable queue file aside: ") + why);
        return {};
    }
    Log::write(QStringLiteral("[Queue] unreadable queue file kept as %1: %2").arg(target, why));
    return target;
}

QueueStore::Loaded QueueStore::load()
{
    std::lock_guard lock(mutex_);
    Loaded loaded;
    QFile file(queueFileURL_);
    if (!file.exists())
        return loaded;
    QString problem;
    QueueFile decoded;
    if (!file.open(QIODevice::ReadOnly)) {
        problem = file.errorString();
    } else {
        const QByteArray bytes = file.readAll();
        file.close();
        try {
            const QJsonObject root = JsonReader::parseObject(bytes);
            const SchemaEnvelope envelope = SchemaEnvelope::decode(root);
            const int version = envelope.schemaVersion.value_or(0);
            if (version > QueueFile::kSchemaVersion) {
                newerVersion_ = version;
                Log::write(QStringLiteral("[Queue] queue file %1 has schemaVersion %2 — left untouched").arg(queueFileURL_).arg(version));
                throw QueueError::newerQueueFile(version, queueFileURL_);
            }
            if (version < 1)
                throw DecodingError::dataCorrupted(QStringLiteral("schemaVersion"), QStringLiteral("no schema version this program wrote"));
            decoded = QueueFile::fromJson(root);
        } catch (const DecodingError& e) {
            problem = e.description();
        }
    }
    if (!problem.isEmpty()) {
        const QString keptAs = setAside(problem);
        loaded.warning = L10n::format(L10n::text("queue.file.unreadable",
                                                 "the queue file could not be read (%@); it was kept as %@ and the queue "
                                                 "starts empty"),
                                      {problem, keptAs.isEmpty() ? queueFileURL_ : keptAs});
        return loaded;
    }
    for (QueueJob& job : decoded.jobs) {
        if (job.status == QueueJobStatus::running) {
            job.status = QueueJobStatus::interrupted;
            Log::write(QStringLiteral("[Queue] job %1 was running when Folivox stopped — now interrupted")
                           .arg(job.id.toString(QUuid::WithoutBraces)));
        }
        job.progress = 0;
        job.progressPhase.reset();
    }
    loaded.jobs = std::move(decoded.jobs);
    return loaded;
}

QByteArray QueueStore::jobText(const QueueJob& job)
{
    // QJsonObject keeps its keys sorted; Indented is the pretty form. Each
    // line moves in by two levels, where the job stands in the file.
    QByteArray text = QJsonDocument(job.toJson()).toJson(QJsonDocument::Indented);
    text.chop(1); // the final newline
    return QByteArray(8, ' ') + text.replace("\n", "\n        ");
}

QByteArray QueueStore::compose(const std::vector<QueueJob>& jobs, const QSet<QUuid>* changed)
{
    QHash<QUuid, QByteArray> texts;
    texts.reserve(static_cast<qsizetype>(jobs.size()));
    QByteArray out("{\n    \"jobs\": [");
    bool first = true;
    for (const QueueJob& job : jobs) {
        QByteArray text;
        const auto cached = jobTexts_.constFind(job.id);
        if (changed && !changed->contains(job.id) && cached != jobTexts_.constEnd())
            text = *cached;
        else
            text = jobText(job);
        out += first ? "\n" : ",\n";
        out += text;
        first = false;
        texts.insert(job.id, text);
    }
    out += "\n    ],\n";
    out += "    \"schemaVersion\": " + QByteArray::number(QueueFile::kSchemaVersion) + "\n}\n";
    jobTexts_ = std::move(texts);
    return out;
}

QByteArray QueueStore::encode(const std::vector<QueueJob>& jobs)
{
    QByteArray out("{\n    \"jobs\": [");
    bool first = true;
    for (const QueueJob& job : jobs) {
        out += first ? "\n" : ",\n";
        out += jobText(job);
        first = false;
    }
    out += "\n    ],\n    \"schemaVersion\": " + QByteArray::number(QueueFile::kSchemaVersion) + "\n}\n";
    return out;
}

void QueueStore::write(const QByteArray& bytes)
{
    if (newerVersion_)
        throw QueueError::newerQueueFile(*newerVersion_, queueFileURL_);
    try {
        QDir().mkpath(writer_.stagingFolder());
        writer_.write(queueFileURL_, bytes, "queue.save");
    } catch (const Error& e) {
        jobTexts_.clear(); // the file is not what the cache says
        throw QueueError::saveFailed(queueFileURL_, e.description());
    }
}

void QueueStore::save(const std::vector<QueueJob>& jobs)
{
    std::lock_guard lock(mutex_);
    write(compose(jobs, nullptr));
}

void QueueStore::save(const std::vector<QueueJob>& jobs, const QSet<QUuid>& changed)
{
    std::lock_guard lock(mutex_);
    write(compose(jobs, &changed));
}

QString QueueStore::jobFolder(const QUuid& id) const
{
    return QDir(baseURL_).filePath(QStringLiteral("jobs/") + folderName(id));
}

QString QueueStore::logURL(const QUuid& id)
{
    const QString folder = jobFolder(id);
    QDir().mkpath(folder); // a failure shows when the log is written
    return QDir(folder).filePath(QStringLiteral("log.txt"));
}

std::optional<QString> QueueStore::writeLog(const QUuid& id, const QString& text)
{
    const QString path = logURL(id);
    std::lock_guard lock(mutex_);
    try {
        QDir().mkpath(writer_.stagingFolder());
        writer_.writeUnflushed(path, redactHome(text).toUtf8());
    } catch (const Error& e) {
        Log::write(QStringLiteral("[Queue] could not write the log of job %1: %2").arg(folderName(id), e.description()));
        return std::nullopt;
    }
    return path;
}

void QueueStore::writeNewJobFiles(const QUuid& id, const QList<QPair<QString, QByteArray>>& files)
{
    const QString folder = jobFolder(id);
    QDir().mkpath(folder);
    std::lock_guard lock(mutex_);
    QString path = folder;
    try {
        QDir().mkpath(writer_.stagingFolder());
        StagedFileWriter::Batch batch(writer_);
        for (const auto& [name, bytes] : files) {
            path = QDir(folder).filePath(name);
            batch.add(path, bytes);
        }
        path = folder;
        batch.commit("queue.jobFiles");
    } catch (const Error& e) {
        throw QueueError::saveFailed(path, e.description());
    }
}

QString QueueStore::writeJobFile(const QUuid& id, const QString& name, const QByteArray& bytes)
{
    const QString folder = jobFolder(id);
    QDir().mkpath(folder);
    const QString path = QDir(folder).filePath(name);
    std::lock_guard lock(mutex_);
    try {
        QDir().mkpath(writer_.stagingFolder());
        writer_.write(path, bytes, "queue.jobFile");
    } catch (const Error& e) {
        throw QueueError::saveFailed(path, e.description());
    }
    return path;
}

void QueueStore::removeJobFolder(const QUuid& id)
{
    QDir folder(jobFolder(id));
    if (folder.exists())
        folder.removeRecursively();
}

std::optional<QueueHalt> QueueStore::loadHalt()
{
    std::lock_guard lock(mutex_);
    QFile file(QDir(baseURL_).filePath(QStringLiteral("halt.json")));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    try {
        return QueueHalt::fromJson(JsonReader::parseObject(file.readAll()));
    } catch (const DecodingError& e) {
        // An unreadable halt still halts: the reason is unknown, the stop is not.
        Log::write(QStringLiteral("[Queue] halt.json could not be read: ") + e.description());
        return QueueHalt::make(QueueHalt::Reason::destination, QStringLiteral("?"));
    }
}

void QueueStore::saveHalt(const std::optional<QueueHalt>& halt)
{
    const QString path = QDir(baseURL_).filePath(QStringLiteral("halt.json"));
    std::lock_guard lock(mutex_);
    if (!halt) {
        QFile::remove(path);
        return;
    }
    try {
        QDir().mkpath(writer_.stagingFolder());
        writer_.write(path, QJsonDocument(halt->toJson()).toJson(QJsonDocument::Indented), "queue.halt");
    } catch (const Error& e) {
        throw QueueError::saveFailed(path, e.description());
    }
}

void QueueStore::clearStaging()
{
    std::lock_guard lock(mutex_);
    writer_.clearStaging();
}

QString QueueStore::redactHome(const QString& text, const QString& userName, const QString& homePath)
{
    QString out = text;
    if (!userName.isEmpty()) {
        out.replace(QStringLiteral("/Users/") + userName + u'/', QStringLiteral("/Users/~user/"));
        out.replace(QStringLiteral("/home/") + userName + u'/', QStringLiteral("/home/~user/"));
    }
    const QString home = QDir::cleanPath(homePath);
    const bool coveredAbove = home == QStringLiteral("/Users/") + userName || home == QStringLiteral("/home/") + userName;
    if (!coveredAbove && home.size() > 1)
        out.replace(home + u'/', QStringLiteral("~/"));
    return out;
}

QString QueueStore::redactHome(const QString& text)
{
    QString name;
    QString home = QDir::homePath();
    if (const passwd* pw = ::getpwuid(::getuid())) {
        name = QString::fromLocal8Bit(pw->pw_name);
        if (pw->pw_dir && home.isEmpty())
            home = QString::fromLocal8Bit(pw->pw_dir);
    }
    if (name.isEmpty())
        name = qEnvironmentVariable("USER");
    return redactHome(text, name, home);
}

} // namespace folivox
