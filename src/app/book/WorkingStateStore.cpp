#include "app/book/WorkingStateStore.h"

#include "platform/AppPaths.h"
#include "app/book/WorkingStateError.h"
#include "platform/Error.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace folivox {

namespace {
void log(const QString& line)
{
    Log::write(QStringLiteral("[WorkingState] ") + line);
}
} // namespace

WorkingStateStore::WorkingStateStore()
    : path_(AppPaths::appSupportDir() + QStringLiteral("/LastSession.json"))
{
}

WorkingStateStore::WorkingStateStore(QString path)
    : path_(std::move(path))
{
}

void WorkingStateStore::save(const BookStateDTO& state) const
{
    QDir().mkpath(QFileInfo(path_).absolutePath());
    QSaveFile file(path_);
    if (!file.open(QIODevice::WriteOnly)) {
        throw WorkingStateError(L10n::format(L10n::text("app.workingState.cannotWrite", "Cannot save the open book to %@: %@"),
                                 {path_, file.errorString()}));
    }
    file.write(QJsonDocument(state.toJson()).toJson(QJsonDocument::Indented));
    if (!file.commit()) {
        throw WorkingStateError(L10n::format(L10n::text("app.workingState.cannotWrite", "Cannot save the open book to %@: %@"),
                                 {path_, file.errorString()}));
    }
    log(QStringLiteral("saved ") + path_);
}

void WorkingStateStore::clear() const
{
    if (QFile::exists(path_))
        QFile::remove(path_);
}

WorkingStateStore::Loaded WorkingStateStore::load() const
{
    Loaded loaded;
    QFile file(path_);
    if (!file.exists())
        return loaded;
    if (!file.open(QIODevice::ReadOnly)) {
        loaded.problem = file.errorString();
        log(QStringLiteral("cannot open ") + path_ + QStringLiteral(": ") + loaded.problem);
        return loaded;
    }
    const QByteArray bytes = file.readAll();
    file.close();
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &parseError);
    try {
        if (parseError.error != QJsonParseError::NoError || !doc.isObject())
            throw GenericError(parseError.error != QJsonParseError::NoError ? parseError.errorString()
                                                                      : QStringLiteral("not a JSON object"));
        loaded.state = BookStateDTO::fromJson(doc.object());
        log(QStringLiteral("restored ") + path_);
        return loaded;
    } catch (const Error& e) {
        loaded.problem = e.description();
    }
    loaded.setAsidePath =
        path_ + QStringLiteral(".damaged-") + QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    if (!QFile::rename(path_, loaded.setAsidePath))
        loaded.setAsidePath.clear();
    log(QStringLiteral("damaged working state set aside (") + loaded.problem + QStringLiteral("): ") + loaded.setAsidePath);
    return loaded;
}

} // namespace folivox
