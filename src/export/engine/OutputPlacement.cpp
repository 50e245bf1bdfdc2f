#include "export/engine/OutputPlacement.h"

#include "container/io/FaultInjection.h"
#include "container/io/FileRangeCopier.h"
#include "container/mp4/MP4File.h"
#include "container/io/ReplacedFileRelease.h"
#include "process/CancellationToken.h"
#include "export/engine/DestinationWritability.h"
#include "export/engine/ExportError.h"
#include "platform/FileLock.h"
#include "platform/FailureCause.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace folivox {

namespace {

const QString kTag = QStringLiteral("[Export] ");

QString sysText(int err)
{
    return QString::fromLocal8Bit(std::strerror(err));
}

QString folderName(const QString& target)
{
    return QFileInfo(QFileInfo(target).absolutePath()).fileName();
}

void syncFile(const QByteArray& path)
{
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

void syncFolderOf(const QString& target)
{
    const QByteArray dir = QFile::encodeName(QFileInfo(target).absolutePath());
    const int fd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd); // best effort: some file systems refuse to sync a folder
        ::close(fd);
    }
}

[[noreturn]] void throwFolderRefuses(const QString& target, int err)
{
    Log::write(kTag + QStringLiteral("the folder of '%1' refused the finished book (%2) — the old file is untouched")
                          .arg(QFileInfo(target).fileName(), sysText(err)));
    ExportError refused = ExportError::validationFailed(L10n::format(
        L10n::text("export.error.destination.refusedAtPlacement",
                   "Folivox can't put the finished book into “%@”: the folder no longer accepts new files (%@). "
                   "Nothing there was changed. Make the folder writable, or choose another destination, then start "
                   "the build again."),
        {folderName(target), sysText(err)}));
    refused.setCause(FailureCause::fromErrno(err));
    throw refused;
}

[[noreturn]] void throwPermissionsFailed(int err)
{
    throw GenericError(QStringLiteral("Cannot set the permissions of the finished book: ") + sysText(err),
                       FailureCause::fromErrno(err));
}

[[noreturn]] void throwDestinationFull(const QString& target)
{
    // An out-of-space error by its kind, so that callers (the queue's halt)
    // recognise it without reading the text.
    throw ExportError::outOfSpaceAtDestination(QFileInfo(target).absolutePath());
}

// The permission bits the new file takes: those of the file it replaces
// (through a symlink, of the file the link names), else its own.
mode_t targetMode(const QByteArray& target, mode_t own)
{
    struct stat st{};
    if (::stat(target.constData(), &st) == 0 && S_ISREG(st.st_mode))
        return st.st_mode & 07777;
    return own & 07777;
}

} // namespace

void OutputPlacement::put(const QString& finished, const QString& target, const CancellationToken& token)
{
    const QByteArray src = QFile::encodeName(finished);
    const QByteArray dst = QFile::encodeName(target);
    struct stat srcStat{};
    if (::stat(src.constData(), &srcStat) != 0 || !S_ISREG(srcStat.st_mode))
        throw GenericError(QStringLiteral("The finished file %1 can't be read: %2")
                               .arg(QFileInfo(finished).fileName(), sysText(errno)));
    struct stat dstStat{};
    const bool targetExists = ::lstat(dst.constData(), &dstStat) == 0;
    if (targetExists && S_ISDIR(dstStat.st_mode))
        throw GenericError(QStringLiteral("“%1” is a folder and can't be replaced by the book").arg(target));
    const mode_t mode = targetMode(dst, srcStat.st_mode);

    // The old file is released after the rename, off this thread.
    ReplacedFileRelease previous(targetExists && S_ISREG(dstStat.st_mode) ? dst : QByteArray());

    // The same volume: the finished file is made durable, then renamed.
    syncFile(src);
    if (::chmod(src.constData(), mode) != 0)
        throwPermissionsFailed(errno);
    if (::rename(src.constData(), dst.constData()) == 0) {
        previous.releaseInBackground();
        syncFolderOf(target);
        return;
    }
    const int renameErr = errno;
    if (renameErr == EACCES || renameErr == EPERM || renameErr == EROFS)
        throwFolderRefuses(target, renameErr);
    if (renameErr != EXDEV)
        throw GenericError(QStringLiteral("Could not put the book in place as “%1”: %2 (nothing there was changed)")
                               .arg(target, sysText(renameErr)),
                           FailureCause::fromErrno(renameErr));

    // Another volume: a durable, locked copy beside the target, then a rename.
    const QString incoming = QFileInfo(target).absolutePath() + u'/' + QLatin1String(incomingPrefix)
        + QUuid::createUuid().toString(QUuid::WithoutBraces);
    const QByteArray inc = QFile::encodeName(incoming);
    FileLock owner = FileLock::tryAcquire(incoming, FileLock::Open::createNew);
    if (!owner.isHeld()) {
        const int err = owner.errorNumber();
        if (err == EACCES || err == EPERM || err == EROFS)
            throwFolderRefuses(target, err);
        if (err == ENOSPC || err == EDQUOT)
            throwDestinationFull(target);
        throw GenericError(QStringLiteral("Could not write beside “%1”: %2 (nothing there was changed)").arg(target, sysText(err)), FailureCause::fromErrno(err));
    }
    Log::write(kTag + QStringLiteral("copying the finished book to the destination's volume (") + incoming + u')');
    try {
        const MP4File source(finished, MP4File::Access::read);
        MP4File out = MP4File::adopt(::dup(owner.fd()), incoming);
        FileRangeCopier copier(source, out);
        copier.onPiece = [&token](std::uint64_t) {
            FaultInjection::reach("export.incoming.piece");
            if (token.isCancelled())
                throw ExportError::cancelled();
        };
        const std::uint64_t size = source.size();
        if (copier.copy(0, size) != size)
            throw GenericError(QStringLiteral("The finished book changed while it was copied"));
        out.truncate(size);
        out.sync();
        out.close();
        if (::fchmod(owner.fd(), mode) != 0)
            throwPermissionsFailed(errno);
        FaultInjection::reach("export.incoming.complete");
        if (::rename(inc.constData(), dst.constData()) != 0) {
            const int err = errno;
            if (err == EACCES || err == EPERM || err == EROFS)
                throwFolderRefuses(target, err);
            throw GenericError(QStringLiteral("Could not put the book in place as “%1”: %2 (nothing there was changed)")
                                   .arg(target, sysText(err)), FailureCause::fromErrno(err));
        }
    } catch (const MP4FileError& e) {
        ::unlink(inc.constData());
        if (e.cause() == Error::Cause::outOfSpace)
            throwDestinationFull(target);
        throw GenericError(QStringLiteral("Could not copy the book to “%1”: %2 (nothing there was changed)")
                               .arg(target, e.systemMessage()),
                           e.cause());
    } catch (...) {
        ::unlink(inc.constData());
        throw;
    }
    owner.release(); // its name is the target's now
    previous.releaseInBackground();
    syncFolderOf(target);
    ::unlink(src.constData());
}

int OutputPlacement::sweepAbandoned(const QString& folder)
{
    const QDir dir(folder);
    if (folder.isEmpty() || !dir.exists())
        return 0;
    int removed = 0;
    const QStringList patterns{QLatin1String(DestinationWritability::probePrefix) + u'*',
                               QLatin1String(incomingPrefix) + u'*'};
    for (const QString& name : dir.entryList(patterns, QDir::Files | QDir::Hidden | QDir::System)) {
        FileLock lock = FileLock::tryAcquire(dir.filePath(name), FileLock::Open::existing);
        if (!lock.isHeld())
            continue; // its writer is still at work (or it is not ours to open)
        lock.removeAndRelease();
        ++removed;
        Log::write(kTag + QStringLiteral("Removed a file a stopped build left beside the output: ") + name);
    }
    return removed;
}

} // namespace folivox
