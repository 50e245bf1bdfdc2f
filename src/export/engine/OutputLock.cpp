#include "export/engine/OutputLock.h"

#include "export/engine/ExportError.h"
#include "platform/AppPaths.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace folivox {

namespace {

// The output's absolute path with its folder resolved (the output itself
// may not exist yet, and a link at the output is the output).
QString canonicalOutput(const QString& outputPath)
{
    const QFileInfo info(QDir::cleanPath(QFileInfo(outputPath).absoluteFilePath()));
    const QString folder = QFileInfo(info.absolutePath()).canonicalFilePath();
    return (folder.isEmpty() ? info.absolutePath() : folder) + u'/' + info.fileName();
}

std::optional<qint64> readHolder(const QString& lockFile)
{
    // The holder writes its id just after it took the lock: give it a moment.
    for (int attempt = 0; attempt < 25; ++attempt) {
        QFile f(lockFile);
        if (f.open(QIODevice::ReadOnly)) {
            bool ok = false;
            const qint64 pid = f.readLine().trimmed().toLongLong(&ok);
            if (ok && pid > 0)
                return pid;
        }
        QThread::msleep(20);
    }
    return std::nullopt;
}

} // namespace

OutputLock::~OutputLock()
{
    lock_.removeAndRelease();
}

QString OutputLock::lockFileFor(const QString& outputPath)
{
    const QByteArray hash = QCryptographicHash::hash(canonicalOutput(outputPath).toUtf8(), QCryptographicHash::Sha1);
    return AppPaths::lockDir() + QStringLiteral("/output-") + QString::fromLatin1(hash.toHex()) + QStringLiteral(".lock");
}

std::optional<qint64> OutputLock::holderOf(const QString& outputPath)
{
    const QString lockFile = lockFileFor(outputPath);
    if (!FileLock::isHeldElsewhere(lockFile))
        return std::nullopt;
    return readHolder(lockFile);
}

int OutputLock::sweepAbandoned()
{
    const QDir dir(AppPaths::lockDir());
    int removed = 0;
    for (const QString& name : dir.entryList({QStringLiteral("output-*.lock")}, QDir::Files)) {
        FileLock stale = FileLock::tryAcquire(dir.filePath(name), FileLock::Open::existing);
        if (!stale.isHeld())
            continue;
        stale.removeAndRelease();
        ++removed;
    }
    return removed;
}

OutputLock OutputLock::acquire(const QString& outputPath)
{
    const QString output = canonicalOutput(outputPath);
    const QString lockFile = lockFileFor(outputPath);
    OutputLock result;
    for (int attempt = 0; attempt < 5; ++attempt) {
        FileLock lock = FileLock::tryAcquire(lockFile, FileLock::Open::create);
        if (lock.isHeld()) {
            // A holder that was just finishing removes the file after unlocking
            // it; a lock on a file that has lost its name guards nothing.
            if (!lock.pathStillNamesLockedFile())
                continue;
            lock.writeContents(QByteArray::number(qint64(::getpid())) + '\n' + output.toUtf8() + '\n');
            Log::write(QStringLiteral("[Export] Output lock taken: ") + lockFile);
            result.lock_ = std::move(lock);
            return result;
        }
        if (lock.errorNumber() == EWOULDBLOCK) {
            const std::optional<qint64> pid = readHolder(lockFile);
            Log::write(QStringLiteral("[Export] Output is being built by PID %1 — refused: %2")
                           .arg(pid ? QString::number(*pid) : QStringLiteral("?"), output));
            const QString text = pid
                ? L10n::format(L10n::text("export.error.output.busy",
                                          "Another Folivox build (process %@) is already writing “%@”. Wait for it to "
                                          "finish, or choose another output."),
                               {QString::number(*pid), output})
                : L10n::format(L10n::text("export.error.output.busy.unknown",
                                          "Another Folivox build is already writing “%@”. Wait for it to finish, or "
                                          "choose another output."),
                               {output});
            throw ExportError::validationFailed(text);
        }
        Log::write(QStringLiteral("[Export] Output lock unavailable (%1): %2 — building without it")
                       .arg(QString::fromLocal8Bit(std::strerror(lock.errorNumber())), lockFile));
        return result;
    }
    Log::write(QStringLiteral("[Export] Output lock kept changing hands — building without it: ") + lockFile);
    return result;
}

} // namespace folivox
