#include "inplace/InPlaceBackupStore.h"

#include "container/io/FaultInjection.h"
#include "container/io/FileRangeCopier.h"
#include "container/mp4/MP4File.h"
#include "inplace/InPlaceUpdateError.h"
#include "platform/AppPaths.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>
#if __has_include(<linux/fs.h>)
#include <linux/fs.h>
#endif

namespace folivox {

namespace {
void log(const QString& message)
{
    Log::write(QStringLiteral("[InPlaceUpdate] ") + message);
}

const QString kManifest = QStringLiteral("manifest.json");

void syncPath(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// A reflink clone of from at to (a new file); false when the file system
// can't clone (nothing is left at to then).
bool tryClone(const QString& from, const QString& to, unsigned mode)
{
#ifdef FICLONE
    const int in = ::open(QFile::encodeName(from).constData(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return false;
    const int out = ::open(QFile::encodeName(to).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (out < 0) {
        ::close(in);
        return false;
    }
    const bool ok = ::ioctl(out, FICLONE, in) == 0 && ::fsync(out) == 0;
    ::close(out);
    ::close(in);
    if (!ok)
        QFile::remove(to);
    return ok;
#else
    Q_UNUSED(from);
    Q_UNUSED(to);
    Q_UNUSED(mode);
    return false;
#endif
}

QJsonArray readManifest(const QString& session)
{
    QFile f(QDir(session).filePath(kManifest));
    if (!f.exists())
        return {};
    if (!f.open(QIODevice::ReadOnly))
        throw GenericError(QStringLiteral("cannot read %1: %2").arg(f.fileName(), f.errorString()));
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(f.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        throw GenericError(QStringLiteral("the backup list %1 is damaged").arg(f.fileName()));
    return doc.array();
}

QString absolute(const QString& path)
{
    return QFileInfo(path).absoluteFilePath();
}
} // namespace

QString InPlaceBackupStore::root()
{
    const QString dir = QDir(AppPaths::appSupportDir()).filePath(QStringLiteral("InPlaceBackups"));
    QDir().mkpath(dir);
    return dir;
}

QString InPlaceBackupStore::createSession()
{
    const QString name = QStringLiteral("session-") + QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss")) + u'-'
        + QUuid::createUuid().toString(QUuid::Id128).left(8);
    const QString path = QDir(root()).filePath(name);
    if (!QDir().mkpath(path))
        throw InPlaceUpdateError::backupFailed(QStringLiteral("cannot create the backup folder %1").arg(path));
    return path;
}

QStringList InPlaceBackupStore::sessions()
{
    QStringList out;
    const QDir dir(root());
    for (const QString& name : dir.entryList({QStringLiteral("session-*")}, QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
        out << dir.filePath(name);
    return out;
}

bool InPlaceBackupStore::cloneOrCopy(const QString& from, const QString& to, unsigned mode)
{
    if (tryClone(from, to, mode))
        return true;
    FileRangeCopier::copyFile(from, to, mode, [](std::uint64_t, std::uint64_t) { FaultInjection::reach("inplace.copy.piece"); });
    syncPath(to);
    return false;
}

QString InPlaceBackupStore::backup(const QString& session, const QString& target)
{
    const QFileInfo info(target);
    try {
        QJsonArray manifest = readManifest(session);
        const QString name = QStringLiteral("%1-%2.bak").arg(manifest.size() + 1).arg(info.fileName());
        const QString path = QDir(session).filePath(name);
        const QString part = path + QStringLiteral(".part");
        QFile::remove(part);
        try {
            cloneOrCopy(target, part);
            const auto size = QFileInfo(part).size();
            if (size != info.size())
                throw GenericError(QStringLiteral("the copy has %1 of %2 bytes").arg(size).arg(info.size()));
            FaultInjection::reach("inplace.backup.copied");
            if (!QFile::rename(part, path))
                throw GenericError(QStringLiteral("cannot name the copy %1").arg(path));
        } catch (...) {
            QFile::remove(part);
            throw;
        }
        syncPath(session);
        manifest.append(QJsonObject{{QStringLiteral("target"), absolute(target)}, {QStringLiteral("backup"), name}});
        QSaveFile save(QDir(session).filePath(kManifest));
        if (!save.open(QIODevice::WriteOnly) || save.write(QJsonDocument(manifest).toJson()) < 0 || !save.commit()) {
            QFile::remove(path);
            throw GenericError(QStringLiteral("cannot record the backup: %1").arg(save.errorString()));
        }
        log(QStringLiteral("backup of '%1' at %2").arg(info.fileName(), path));
        return path;
    } catch (const InPlaceUpdateError&) {
        throw;
    } catch (const MP4FileError& e) {
        throw InPlaceUpdateError::backupFailed(QStringLiteral("\"%1\": %2").arg(info.fileName(), e.systemMessage()));
    } catch (const Error& e) {
        throw InPlaceUpdateError::backupFailed(QStringLiteral("\"%1\": %2").arg(info.fileName(), e.description()));
    }
}

QList<InPlaceBackupStore::Entry> InPlaceBackupStore::list(const QString& session)
{
    if (!QFileInfo(session).isDir())
        throw GenericError(QStringLiteral("the backup folder %1 does not exist").arg(session));
    QList<Entry> out;
    for (const QJsonValue& v : readManifest(session)) {
        const QJsonObject o = v.toObject();
        out << Entry{o.value(QStringLiteral("target")).toString(), QDir(session).filePath(o.value(QStringLiteral("backup")).toString())};
    }
    return out;
}

std::optional<QString> InPlaceBackupStore::backupFor(const QString& session, const QString& target)
{
    const QString wanted = absolute(target);
    for (const Entry& e : list(session))
        if (e.target == wanted && QFileInfo(e.backup).isFile())
            return e.backup;
    return std::nullopt;
}

int InPlaceBackupStore::purge(int maxAgeDays, const QDateTime& now)
{
    int removed = 0;
    for (const QString& session : sessions()) {
        const QFileInfo info(session);
        if (info.lastModified().toUTC().daysTo(now) <= maxAgeDays)
            continue;
        log(QStringLiteral("purging backup older than %1 days: '%2'").arg(maxAgeDays).arg(info.fileName()));
        if (QDir(session).removeRecursively())
            ++removed;
    }
    return removed;
}

InPlaceBackupStore::RestoreOutcome InPlaceBackupStore::restore(const QString& session, const InPlaceUpdateMode& mode)
{
    RestoreOutcome outcome;
    QList<Entry> entries;
    try {
        entries = list(session);
    } catch (const Error& e) {
        log(QStringLiteral("CRITICAL: rollback cannot list the session backups: ") + e.description());
        return outcome;
    }
    bool all = true;
    for (const QString& target : mode.paths()) {
        const QString name = QFileInfo(target).fileName();
        std::optional<QString> backup;
        for (const Entry& e : entries)
            if (e.target == absolute(target) && QFileInfo(e.backup).isFile())
                backup = e.backup;
        if (!backup) {
            log(QStringLiteral("rollback: no backup found for '%1' — file left as updated").arg(name));
            all = false;
            continue;
        }
        WorkDirectory work;
        const QString copy = work.filePath(QStringLiteral("restore.") + QFileInfo(target).suffix());
        try {
            cloneOrCopy(*backup, copy);
            SafeFileReplace::replace(copy, target);
            log(QStringLiteral("rollback: '%1' restored from backup").arg(name));
        } catch (const SafeFileReplace::WriteInterruptedError& e) {
            // The complete copy is all the user has now: keep it.
            work.release();
            log(QStringLiteral("CRITICAL: putting '%1' back was itself interrupted; a complete copy is preserved at %2")
                    .arg(name, e.preservedCopyPath()));
            all = false;
            if (!outcome.firstInterrupted)
                outcome.firstInterrupted = e;
        } catch (const MP4FileError& e) {
            log(QStringLiteral("CRITICAL: could not put '%1' back (%2); its backup in Application Support is the remaining recovery path")
                    .arg(name, e.systemMessage()));
            all = false;
        } catch (const Error& e) {
            log(QStringLiteral("CRITICAL: could not put '%1' back (%2); its backup in Application Support is the remaining recovery path")
                    .arg(name, e.description()));
            all = false;
        }
    }
    outcome.allRestored = all;
    return outcome;
}

} // namespace folivox
