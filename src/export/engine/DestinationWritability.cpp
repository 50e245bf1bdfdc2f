#include "export/engine/DestinationWritability.h"

#include "export/engine/ExportError.h"
#include "platform/FileLock.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace folivox {

namespace {

// Creates and removes a probe file; true when both worked. The probe is
// locked while it exists, so one left by a process killed in between is
// known for debris (OutputPlacement::sweepAbandoned).
bool folderAcceptsNewFiles(const QString& folder)
{
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        return false;
    const QString probe = QDir(folder).filePath(QString::fromLatin1(DestinationWritability::probePrefix)
                                                + QUuid::createUuid().toString(QUuid::WithoutBraces));
    FileLock lock = FileLock::tryAcquire(probe, FileLock::Open::createNew);
    if (!lock.isHeld())
        return false;
    // ENOENT: a sweep took it in the instant before the lock; it was made all the same.
    const bool removed = ::unlink(QFile::encodeName(probe).constData()) == 0 || errno == ENOENT;
    lock.release();
    return removed;
}

// Opens an existing file for writing without changing it.
bool fileWritableInPlace(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists() || !info.isFile())
        return false;
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

QString probeFolder(const QString& outputPath, bool outputIsDirectory)
{
    const QFileInfo info(outputPath);
    if (outputIsDirectory && info.isDir())
        return info.absoluteFilePath();
    return info.absolutePath();
}

} // namespace

DestinationWritability::Result DestinationWritability::check(const QString& outputPath, bool outputIsDirectory)
{
    if (folderAcceptsNewFiles(probeFolder(outputPath, outputIsDirectory)))
        return Result::folder;
    if (!outputIsDirectory && fileWritableInPlace(outputPath))
        return Result::fileOnly;
    return Result::refused;
}

QString DestinationWritability::describe(Result result)
{
    switch (result) {
    case Result::folder: return QStringLiteral("folder (new files may be created next to the book)");
    case Result::fileOnly: return QStringLiteral("file only (grant covers the output path, NOT its folder)");
    case Result::refused: return QStringLiteral("REFUSED (neither the folder nor the output file can be written)");
    }
    return {};
}

QString DestinationWritability::refusedFolderName(const QString& outputPath, bool outputIsDirectory)
{
    const QFileInfo info(outputPath);
    if (outputIsDirectory || info.isDir())
        return info.fileName().isEmpty() ? QDir(outputPath).dirName() : info.fileName();
    return QFileInfo(info.absolutePath()).fileName();
}

DestinationWritability::Result DestinationWritability::require(const QString& outputPath, bool outputIsDirectory)
{
    const Result result = check(outputPath, outputIsDirectory);
    Log::write(QStringLiteral("[Export] Destination writability: ") + describe(result));
    if (result == Result::refused)
        throw ExportError::destinationNotWritable(refusedFolderName(outputPath, outputIsDirectory));
    if (result == Result::fileOnly) {
        // The only way left would be to write the new book over the old file
        // in place, and a crash or cancel midway would destroy both.
        Log::write(QStringLiteral("[Export] refusing to write over '%1' in place — its folder takes no new files")
                       .arg(QFileInfo(outputPath).fileName()));
        throw ExportError::validationFailed(L10n::format(
            L10n::text("export.error.destination.fileOnly",
                       "Folivox can't create new files in “%@”, so it can't replace “%@” safely: writing the new book "
                       "over the old file in place would destroy it if the build stopped midway. Make the folder "
                       "writable, or choose another destination, then start the build."),
            {refusedFolderName(outputPath, false), QFileInfo(outputPath).fileName()}));
    }
    return result;
}

} // namespace folivox
