#include "container/mp4/MP4MoovCopyRewriter.h"

#include "container/io/FaultInjection.h"
#include "container/io/FileRangeCopier.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4ChunkOffsets.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4FreeZone.h"
#include "container/mp4/MP4MoovRewriter.h"
#include "container/io/SafeFileReplace.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>
#include <optional>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace folivox {

namespace {
constexpr std::int64_t kPage = 4096;

// A file open for writing in folder: without a name where the file system
// can, else under a hidden name. name() is empty for the first kind until
// link() gives it one.
class NewFileBeside {
public:
    NewFileBeside(const QString& folder, unsigned mode) : folder_(folder)
    {
        const QByteArray dir = QFile::encodeName(folder);
        const int fd = ::open(dir.constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode_t(mode & 0777));
        if (fd >= 0) {
            file_ = MP4File::adopt(fd, folder);
            ::fchmod(fd, mode_t(mode & 07777));
            return;
        }
        name_ = hiddenName();
        file_ = MP4File::createNew(name_, mode);
    }
    ~NewFileBeside()
    {
        file_ = MP4File();
        if (!name_.isEmpty())
            QFile::remove(name_);
    }
    NewFileBeside(const NewFileBeside&) = delete;
    NewFileBeside& operator=(const NewFileBeside&) = delete;

    MP4File& file() { return file_; }

    // Gives the file a name (if it has none), closes it and hands the name
    // over: the caller now owns it.
    QString release()
    {
        if (name_.isEmpty()) {
            const QString name = hiddenName();
            const QByteArray proc = QByteArray("/proc/self/fd/") + QByteArray::number(file_.fd());
            if (::linkat(AT_FDCWD, proc.constData(), AT_FDCWD, QFile::encodeName(name).constData(), AT_SYMLINK_FOLLOW) != 0)
                throw MP4FileError(MP4FileError::Kind::createFailed, name, errno);
            name_ = name;
        }
        file_.close();
        QString out = name_;
        name_.clear();
        return out;
    }

private:
    QString hiddenName() const
    {
        return folder_ + QStringLiteral("/.") + QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".moov.tmp");
    }

    QString folder_;
    QString name_;
    MP4File file_;
};

QByteArray freeBox(std::uint64_t size)
{
    QByteArray box(qsizetype(size), '\0');
    const QByteArray header = MP4MoovRewriter::freeHeader(size);
    box.replace(0, header.size(), header);
    return box;
}
} // namespace

std::uint64_t MP4MoovCopyRewriter::roomFor(std::uint64_t moovSize)
{
    return moovSize + 8 + std::max<std::uint64_t>(65536, moovSize / 4);
}

MP4MoovCopyRewriter::Result MP4MoovCopyRewriter::rewrite(const MP4MoovReader::MoovBuffer& buffer, const QString& path,
                                                         const QByteArray& media, std::uint64_t mediaBase)
{
    QElapsedTimer timer;
    timer.start();
    const QString name = QFileInfo(path).fileName();
    struct stat st{};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        throw MP4FileError(MP4FileError::Kind::statFailed, path, errno);

    MP4File source(path, MP4File::Access::read);
    const std::uint64_t fileSize = source.size();
    const auto zone = MP4FreeZone::find(source, buffer.fileOffset, buffer.originalSize);
    if (!zone || (!media.isEmpty() && mediaBase != fileSize))
        throw MP4MoovRewriter::UnsupportedLayout(L10n::format(
            L10n::text("container.rewrite.moovMoved", "moov header at %@ no longer matches the loaded buffer"),
            {QString::number(buffer.fileOffset)}));
    // A last box that runs to the end of the file must stop there once media
    // is appended behind it.
    std::optional<MP4BoxHeader> openEnded;
    if (!media.isEmpty() && !zone->topLevel.isEmpty() && zone->topLevel.last().extendsToEnd
        && zone->topLevel.last().offset != buffer.fileOffset) {
        openEnded = zone->topLevel.last();
        if (openEnded->size > 0xFFFFFFFFu)
            throw MP4MoovRewriter::UnsupportedLayout(L10n::format(
                L10n::text("container.rewrite.openEnded", "last box '%@' is open-ended and larger than 4 GiB"), {openEnded->type}));
    }

    // Everything behind the old moov (new media included) moves by delta,
    // a whole number of pages so that the kernel can copy it.
    const std::uint64_t oldEnd = buffer.fileOffset + buffer.originalSize;
    const std::uint64_t newSize = std::uint64_t(buffer.data.size());
    std::uint64_t room = roomFor(newSize);
    std::int64_t delta = std::int64_t(newSize + room) - std::int64_t(buffer.originalSize);
    const std::int64_t misfit = ((delta % kPage) + kPage) % kPage;
    if (misfit != 0) {
        room += std::uint64_t(kPage - misfit);
        delta += kPage - misfit;
    }
    QByteArray moov = buffer.data;
    if (MP4ChunkOffsets::shift(moov, 0, moov.size(), delta, oldEnd) != MP4ChunkOffsets::ShiftResult::shifted)
        throw MP4MoovRewriter::UnsupportedLayout(
            L10n::text("container.rewrite.copyOverflow", "chunk offsets would overflow once the moov has room behind it"));

    NewFileBeside out(QFileInfo(path).absolutePath(), unsigned(st.st_mode & 07777));
    {
        FileRangeCopier copier(source, out.file());
        copier.onPiece = [](std::uint64_t) { FaultInjection::reach("copyRewrite.piece"); };
        const auto copy = [&](std::uint64_t from, std::uint64_t count) {
            if (copier.copy(from, count) != count)
                throw MP4FileError(MP4FileError::Kind::readFailed, path, QStringLiteral("the file ended early"));
        };
        copy(0, buffer.fileOffset);
        copier.write(moov);
        copier.write(freeBox(room));
        copy(oldEnd, fileSize - oldEnd);
        if (!media.isEmpty())
            copier.write(media);
    }
    if (openEnded) {
        const std::uint64_t at = openEnded->offset >= oldEnd ? std::uint64_t(std::int64_t(openEnded->offset) + delta)
                                                             : openEnded->offset;
        out.file().writeAt(at, MP4Bytes::be32Bytes(std::uint32_t(openEnded->size)));
    }
    out.file().sync();
    FaultInjection::reach("copyRewrite.written");
    const std::uint64_t total = std::uint64_t(std::int64_t(fileSize) + delta) + std::uint64_t(media.size());
    source.close();

    const QString finished = out.release();
    try {
        SafeFileReplace::replace(finished, path);
    } catch (const SafeFileReplace::WriteInterruptedError&) {
        throw; // the finished copy it names is the way back
    } catch (...) {
        QFile::remove(finished);
        throw;
    }
    Log::write(QStringLiteral("[AtomsPerf] rewrite mode=copy file='%1' moovOld=%2 moovNew=%3 room=%4 size=%5 ms=%6")
                   .arg(name)
                   .arg(buffer.originalSize)
                   .arg(newSize)
                   .arg(room)
                   .arg(total)
                   .arg(timer.elapsed()));
    return Result{room, total};
}

} // namespace folivox
