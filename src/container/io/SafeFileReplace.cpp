#include "container/io/SafeFileReplace.h"

#include "container/io/FaultInjection.h"
#include "container/io/FileRangeCopier.h"
#include "container/mp4/MP4File.h"
#include "container/io/ReplacedFileRelease.h"
#include "platform/AppPaths.h"
#include "platform/FailureCause.h"
#include "platform/L10n.h"
#include "platform/Log.h"

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
QString sysText(int err)
{
    return QString::fromLocal8Bit(std::strerror(err));
}

void syncFolder(const QString& path)
{
    const QByteArray dir = QFile::encodeName(QFileInfo(path).absolutePath());
    const int fd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd); // Best effort: some file systems refuse to sync a folder.
        ::close(fd);
    }
}

// Copies all of source into out from offset 0, then sets its length and
// syncs. Throws MP4FileError.
void copyInto(const MP4File& source, MP4File& out, const char* faultPoint)
{
    const std::uint64_t size = source.size();
    FileRangeCopier copier(source, out);
    copier.onPiece = [faultPoint](std::uint64_t) { FaultInjection::reach(faultPoint); };
    if (copier.copy(0, size) != size)
        throw MP4FileError(MP4FileError::Kind::readFailed, source.path(), QStringLiteral("unexpected end of file"));
    out.truncate(size);
    out.sync();
}
} // namespace

SafeFileReplace::Error::Error(Kind kind, QString path, int err)
    : Error(kind, std::move(path), sysText(err), FailureCause::fromErrno(err))
{
}

QString SafeFileReplace::Error::description() const
{
    const QString name = QFileInfo(path_).fileName();
    switch (kind_) {
    case Kind::sourceUnreadable:
        return L10n::format(L10n::text("container.replace.sourceUnreadable", "The finished file \"%@\" can't be read: %@"),
                            {name, systemMessage_});
    case Kind::targetNotAFile:
        return L10n::format(L10n::text("container.replace.targetNotAFile", "\"%@\" is not a file and can't be replaced"), {name});
    case Kind::replaceFailed:
        return L10n::format(L10n::text("container.replace.failed", "Could not replace \"%@\": %@ (the file is unchanged)"),
                            {name, systemMessage_});
    }
    return {};
}

QString SafeFileReplace::WriteInterruptedError::description() const
{
    return L10n::format(L10n::text("container.replace.interrupted",
                                   "Writing \"%@\" was interrupted (%@); a complete copy is preserved at %@"),
                        {QFileInfo(targetPath_).fileName(), reason_, preservedCopyPath_});
}

void SafeFileReplace::replace(const QString& finishedFile, const QString& target)
{
    const QByteArray src = QFile::encodeName(finishedFile);
    const QByteArray dst = QFile::encodeName(target);

    struct stat srcStat{};
    if (::lstat(src.constData(), &srcStat) != 0)
        throw Error(Error::Kind::sourceUnreadable, finishedFile, errno);
    if (!S_ISREG(srcStat.st_mode))
        throw Error(Error::Kind::sourceUnreadable, finishedFile, QStringLiteral("not a regular file"));

    // The target's permissions; a link's are those of the file it names,
    // which is only looked at, never written.
    struct stat dstStat{};
    bool targetExists = false;
    bool targetIsLink = false;
    mode_t mode = srcStat.st_mode & 07777;
    if (::lstat(dst.constData(), &dstStat) == 0) {
        targetExists = true;
        targetIsLink = S_ISLNK(dstStat.st_mode);
        if (S_ISDIR(dstStat.st_mode))
            throw Error(Error::Kind::targetNotAFile, target, QString());
        if (S_ISREG(dstStat.st_mode)) {
            mode = dstStat.st_mode & 07777;
        } else if (targetIsLink) {
            struct stat linked{};
            if (::stat(dst.constData(), &linked) == 0 && S_ISREG(linked.st_mode))
                mode = linked.st_mode & 07777;
        } else {
            throw Error(Error::Kind::targetNotAFile, target, QString());
        }
    } else if (errno != ENOENT) {
        throw Error(Error::Kind::replaceFailed, target, errno);
    }

    {
        MP4File source(finishedFile, MP4File::Access::read);
        source.sync();
    }
    if (::chmod(src.constData(), mode) != 0)
        throw Error(Error::Kind::replaceFailed, target, errno);

    // The replaced file is released after the rename, off this thread.
    ReplacedFileRelease previous(targetExists && !targetIsLink ? dst : QByteArray());

    // 1. Same volume: one atomic rename.
    if (::rename(src.constData(), dst.constData()) == 0) {
        previous.releaseInBackground();
        syncFolder(target);
        return;
    }
    const int renameErr = errno;

    // 2. Another volume: a durable copy beside the target, then a rename.
    if (renameErr == EXDEV) {
        const QString sibling = QFileInfo(target).absolutePath() + QStringLiteral("/.")
            + QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".replace.tmp");
        const QByteArray sib = QFile::encodeName(sibling);
        bool siblingRefused = false;
        try {
            const MP4File source(finishedFile, MP4File::Access::read);
            MP4File copy = MP4File::createNew(sibling, mode);
            try {
                copyInto(source, copy, "safeReplace.sibling.piece");
                copy.close();
            } catch (...) {
                ::unlink(sib.constData());
                throw;
            }
        } catch (const MP4FileError& e) {
            if (e.kind() != MP4FileError::Kind::createFailed || !targetExists || targetIsLink)
                throw Error(Error::Kind::replaceFailed, target, e.systemMessage(), e.cause());
            siblingRefused = true;
        }
        if (!siblingRefused) {
            if (::rename(sib.constData(), dst.constData()) != 0) {
                const int err = errno;
                ::unlink(sib.constData());
                throw Error(Error::Kind::replaceFailed, target, err);
            }
            previous.releaseInBackground();
            syncFolder(target);
            ::unlink(src.constData());
            return;
        }
    } else if (!targetExists || targetIsLink || (renameErr != EACCES && renameErr != EPERM && renameErr != EROFS)) {
        throw Error(Error::Kind::replaceFailed, target, renameErr);
    }

    // 3. The folder refuses new entries: overwrite the target itself. The
    //    finished file stays whole until the overwrite is complete.
    Log::write(QStringLiteral("[SafeFileReplace] folder of '%1' refuses new files — overwriting in place, keeping %2 until done")
                   .arg(QFileInfo(target).fileName(), finishedFile));
    const int fd = ::open(dst.constData(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        throw Error(Error::Kind::replaceFailed, target, errno);
    MP4File out = MP4File::adopt(fd, target);
    try {
        const MP4File source(finishedFile, MP4File::Access::read);
        copyInto(source, out, "safeReplace.inplace.piece");
        out.close();
    } catch (const folivox::Error& e) {
        throw WriteInterruptedError(target, finishedFile, e.description(), e.cause());
    } catch (const std::exception& e) {
        throw WriteInterruptedError(target, finishedFile, QString::fromLocal8Bit(e.what()));
    }
    ::unlink(src.constData());
}

void SafeFileReplace::writeWhole(const QString& target, const QByteArray& bytes)
{
    const QString suffix = QFileInfo(target).suffix();
    const QString temp = AppPaths::workRoot() + QStringLiteral("/") + QUuid::createUuid().toString(QUuid::WithoutBraces)
        + (suffix.isEmpty() ? QString() : QStringLiteral(".") + suffix);
    try {
        MP4File out = MP4File::createNew(temp, 0644);
        out.writeAt(0, bytes);
        out.sync();
        out.close();
        replace(temp, target);
    } catch (const WriteInterruptedError&) {
        throw; // the temporary file is the complete copy it names
    } catch (...) {
        QFile::remove(temp);
        throw;
    }
}

} // namespace folivox
