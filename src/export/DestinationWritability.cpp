#include "export/DestinationWritability.h"

#include "export/ExportError.h"
#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <fcntl.h>
#include <unistd.h>

namespace folivox {

namespace {

// Creates and removes a probe file; true when both worked.
bool folderAcceptsNewFiles(const QString& folder)
{
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        return false;
    const QString probe = QDir(folder).filePath(QString::fromLatin1(DestinationWritability::probePrefix)
                                                + QUuid::createUuid().toString(QUuid::WithoutBraces));
    const QByteArray native = QFile::encodeName(probe);
    const int fd = ::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    ::close(fd);
    return ::unlink(native.constData()) == 0;
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
    return result;
}

} // namespace folivox
