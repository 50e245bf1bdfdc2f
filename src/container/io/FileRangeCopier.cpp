#include "container/io/FileRangeCopier.h"

#include "container/mp4/MP4File.h"
#include "platform/Error.h"
#include "platform/L10n.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace folivox {

namespace {
constexpr std::uint64_t kPage = 4096;
// How far the disk may fall behind the copy before the copy waits for it:
// four pieces. Waiting for the piece just written stalls the copy on every
// piece; letting it run free fills memory with dirty pages and leaves the
// closing sync with all of them.
constexpr std::uint64_t kWriteBehindLag = 4 * FileRangeCopier::pieceSize;

[[noreturn]] void writeFailed(const MP4File& out, int err)
{
    throw MP4FileError(MP4FileError::Kind::writeFailed, out.path(), err);
}
} // namespace

FileRangeCopier::FileRangeCopier(const MP4File& source, MP4File& out, std::uint64_t outputPosition)
    : source_(source)
    , out_(out)
    , outPos_(outputPosition)
    , started_(outputPosition)
    , waited_(outputPosition)
{
}

void FileRangeCopier::copyFile(const QString& source, const QString& target, unsigned mode,
                               const std::function<void(std::uint64_t, std::uint64_t)>& onPiece)
{
    const MP4File in(source, MP4File::Access::read);
    const std::uint64_t total = in.size();
    MP4File out = MP4File::createNew(target, mode);
    try {
        FileRangeCopier copier(in, out);
        if (onPiece)
            copier.onPiece = [&](std::uint64_t done) { onPiece(done, total); };
        if (copier.copy(0, total) != total || in.size() != total)
            throw GenericError(L10n::format(
                L10n::text("container.copy.sizeChanged", "Cannot copy “%@”: the file changed size while it was copied"),
                {QFileInfo(source).fileName()}));
        out.close();
    } catch (...) {
        out.close();
        QFile::remove(target);
        throw;
    }
}

void FileRangeCopier::write(const QByteArray& bytes)
{
    out_.writeAt(outPos_, bytes);
    outPos_ += std::uint64_t(bytes.size());
    writeBehind();
}

std::uint64_t FileRangeCopier::copy(std::uint64_t from, std::uint64_t count)
{
    std::uint64_t done = 0;
    while (done < count) {
        const std::uint64_t got = piece(from + done, std::min(count - done, pieceSize));
        if (got == 0)
            break;
        done += got;
        outPos_ += got;
        writeBehind();
        if (onPiece)
            onPiece(outPos_);
    }
    return done;
}

// Advisory only: a failure here shows up in the closing sync.
void FileRangeCopier::writeBehind()
{
    if (outPos_ > started_)
        ::sync_file_range(out_.fd(), off64_t(started_), off64_t(outPos_ - started_), SYNC_FILE_RANGE_WRITE);
    started_ = outPos_;
    if (started_ > waited_ + kWriteBehindLag) {
        const std::uint64_t upTo = started_ - kWriteBehindLag;
        ::sync_file_range(out_.fd(), off64_t(waited_), off64_t(upTo - waited_), SYNC_FILE_RANGE_WAIT_BEFORE);
        waited_ = upTo;
    }
}

std::uint64_t FileRangeCopier::piece(std::uint64_t from, std::uint64_t want)
{
    // The kernel copies fast only when source and destination sit at the
    // same place within a page.
    if (kernelCopy_ && (from % kPage) == (outPos_ % kPage)) {
        const std::uint64_t got = kernelPiece(from, want);
        if (kernelCopy_)
            return got;
    }
    if (mapCopy_) {
        const std::uint64_t got = mappedPiece(from, want);
        if (mapCopy_)
            return got;
    }
    if (buffer_.empty())
        buffer_.resize(size_t(pieceSize));
    const std::uint64_t got = source_.readAt(from, buffer_.data(), want);
    if (got > 0)
        out_.writeAt(outPos_, buffer_.data(), got);
    return got;
}

std::uint64_t FileRangeCopier::kernelPiece(std::uint64_t from, std::uint64_t want)
{
    loff_t in = loff_t(from);
    loff_t outOff = loff_t(outPos_);
    for (;;) {
        const ssize_t n = ::copy_file_range(source_.fd(), &in, out_.fd(), &outOff, size_t(want), 0);
        if (n >= 0)
            return std::uint64_t(n);
        if (errno == EINTR)
            continue;
        if (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP || errno == EBADF
            || errno == EPERM) {
            kernelCopy_ = false;
            return 0;
        }
        writeFailed(out_, errno);
    }
}

// A range shifted within the page (behind a moved moov): written straight
// from a read-only mapping of the source, one copy instead of two. The
// mapping is only ever read by the kernel inside pwrite, so a source cut
// short meanwhile gives EFAULT there (a short piece here), never a signal.
std::uint64_t FileRangeCopier::mappedPiece(std::uint64_t from, std::uint64_t want)
{
    // Never map past the end: the tail of the last page would read as zeros.
    const std::uint64_t size = source_.size();
    if (from >= size)
        return 0;
    want = std::min(want, size - from);
    const std::uint64_t base = from - from % kPage;
    const std::uint64_t lead = from - base;
    void* map = ::mmap(nullptr, size_t(lead + want), PROT_READ, MAP_SHARED | MAP_POPULATE, source_.fd(), off_t(base));
    if (map == MAP_FAILED) {
        mapCopy_ = false;
        return 0;
    }
    const char* data = static_cast<const char*>(map) + lead;
    std::uint64_t done = 0;
    int err = 0;
    while (done < want) {
        const ssize_t n = ::pwrite(out_.fd(), data + done, size_t(want - done), off_t(outPos_ + done));
        if (n > 0) {
            done += std::uint64_t(n);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        err = n < 0 ? errno : 0;
        break;
    }
    ::munmap(map, size_t(lead + want));
    if (err != 0 && err != EFAULT)
        writeFailed(out_, err);
    return done;
}

} // namespace folivox
