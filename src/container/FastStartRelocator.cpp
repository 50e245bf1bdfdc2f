#include "container/FastStartRelocator.h"

#include "container/FaultInjection.h"
#include "container/MP4BoxHeader.h"
#include "container/MP4Bytes.h"
#include "container/MP4ChunkOffsets.h"
#include "container/MP4File.h"
#include "container/SafeFileReplace.h"
#include "platform/AppPaths.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace folivox {

namespace {
constexpr std::uint32_t kMoov = MP4Bytes::fourCC("moov");
constexpr std::uint32_t kMdat = MP4Bytes::fourCC("mdat");
constexpr std::uint64_t kPage = 4096;

// Copies [from, from + count) of source to out at the current output position
// in pieces of at most 4 MiB: in the kernel when both sides are page-aligned
// alike, from a 4 MiB read-only mapping when they are not, and through one
// 4 MiB buffer where neither is available.
class Streamer {
public:
    Streamer(const MP4File& source, MP4File& out) : source_(source), out_(out) {}

    std::uint64_t position() const { return outPos_; }

    // Called with the output position after each piece; may throw.
    std::function<void(std::uint64_t)> onPiece;

    void write(const QByteArray& bytes)
    {
        out_.writeAt(outPos_, bytes);
        outPos_ += std::uint64_t(bytes.size());
    }

    void copy(std::uint64_t from, std::uint64_t count)
    {
        std::uint64_t done = 0;
        while (done < count) {
            const std::uint64_t want = std::min(count - done, FastStartRelocator::pieceSize);
            const std::uint64_t got = piece(from + done, want);
            if (got == 0)
                throw FastStartRelocator::StreamError(count, done);
            done += got;
            outPos_ += got;
            FaultInjection::reach("relocate.piece");
            if (onPiece)
                onPiece(outPos_);
        }
    }

private:
    std::uint64_t piece(std::uint64_t from, std::uint64_t want)
    {
        // The kernel copies fast only when source and destination sit at the
        // same place within a page.
        if (kernelCopy_ && (from % kPage) == (outPos_ % kPage)) {
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
                    break;
                }
                throw MP4FileError(MP4FileError::Kind::writeFailed, out_.path(),
                                   QString::fromLocal8Bit(std::strerror(errno)));
            }
        }
        // A range shifted within the page (behind a moved moov): write
        // straight from a read-only mapping of the source, one copy instead
        // of two. The mapping is only ever read by the kernel inside pwrite,
        // so a source cut short meanwhile gives EFAULT there (a short read
        // here), never a signal.
        if (mapCopy_) {
            // Never map past the end: the tail of the last page would read as zeros.
            const std::uint64_t size = source_.size();
            if (from >= size)
                return 0;
            want = std::min(want, size - from);
            const std::uint64_t base = from - from % kPage;
            const std::uint64_t lead = from - base;
            void* map = ::mmap(nullptr, size_t(lead + want), PROT_READ, MAP_SHARED | MAP_POPULATE, source_.fd(), off_t(base));
            if (map != MAP_FAILED) {
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
                    throw MP4FileError(MP4FileError::Kind::writeFailed, out_.path(), QString::fromLocal8Bit(std::strerror(err)));
                return done;
            }
            mapCopy_ = false;
        }
        if (buffer_.empty())
            buffer_.resize(size_t(FastStartRelocator::pieceSize));
        const std::uint64_t got = source_.readAt(from, buffer_.data(), want);
        if (got > 0)
            out_.writeAt(outPos_, buffer_.data(), got);
        return got;
    }

    const MP4File& source_;
    MP4File& out_;
    std::uint64_t outPos_ = 0;
    bool kernelCopy_ = true;
    bool mapCopy_ = true;
    std::vector<char> buffer_;
};

void logRefusal(FastStartRelocator::Refusal refusal, const QString& name, std::uint64_t moovSize = 0)
{
    QString reason = FastStartRelocator::refusalName(refusal);
    if (refusal == FastStartRelocator::Refusal::moovTooLarge)
        reason += QStringLiteral(" size=%1 limit=%2").arg(moovSize).arg(FastStartRelocator::maxMoovSize);
    Log::write(QStringLiteral("[FastStart] refused reason=%1 file='%2' — left in original order").arg(reason, name));
}

FastStartRelocator::Outcome refused(FastStartRelocator::Refusal refusal, std::uint64_t moovSize = 0)
{
    FastStartRelocator::Outcome o;
    o.kind = FastStartRelocator::Outcome::Kind::refused;
    o.refusal = refusal;
    o.moovSize = moovSize;
    return o;
}

// Removes the temporary file unless released.
struct TempGuard {
    QString path;
    ~TempGuard()
    {
        if (!path.isEmpty())
            QFile::remove(path);
    }
};
} // namespace

QString FastStartRelocator::refusalName(Refusal refusal)
{
    switch (refusal) {
    case Refusal::moovTooLarge:
        return QStringLiteral("moovTooLarge");
    case Refusal::notAnMP4:
        return QStringLiteral("notAnMP4");
    case Refusal::moovReadShort:
        return QStringLiteral("moovReadShort");
    case Refusal::stcoOverflow:
        return QStringLiteral("stcoOverflow");
    case Refusal::co64Overflow:
        return QStringLiteral("co64Overflow");
    case Refusal::noTempLocation:
        return QStringLiteral("noTempLocation");
    case Refusal::sizeMismatch:
        return QStringLiteral("sizeMismatch");
    }
    return {};
}

QString FastStartRelocator::StreamError::description() const
{
    return L10n::format(L10n::text("container.faststart.shortRead", "short read while relocating moov: expected %@ bytes, got %@"),
                        {QString::number(expected_), QString::number(got_)});
}

namespace {
// Where moov and mdat are and the moov to write ahead, its chunk offsets
// shifted by its own size plus padding.
struct MoveLayout {
    MP4BoxHeader moov;
    MP4BoxHeader mdat;
    QByteArray moovBytes;
};

// Plans the move of moov ahead of mdat, or says why nothing is to be
// written (an outcome of alreadyAhead or refused, logged).
std::optional<FastStartRelocator::Outcome> planMove(const MP4File& source, std::uint64_t fileSize, const QString& name,
                                                    std::uint64_t padding, MoveLayout& layout)
{
    using Refusal = FastStartRelocator::Refusal;
    if (fileSize <= 16)
        return refused(Refusal::notAnMP4);
    const QList<MP4BoxHeader> boxes = MP4BoxHeader::listTopLevel(source, fileSize);
    std::optional<MP4BoxHeader> moov;
    std::optional<MP4BoxHeader> mdat;
    for (const MP4BoxHeader& b : boxes) {
        if (!moov && b.is(kMoov))
            moov = b;
        if (!mdat && b.is(kMdat))
            mdat = b;
    }
    if (!moov || !mdat)
        return refused(Refusal::notAnMP4);
    if (moov->offset < mdat->offset) {
        FastStartRelocator::Outcome o;
        o.kind = FastStartRelocator::Outcome::Kind::alreadyAhead;
        return o;
    }
    if (moov->size > FastStartRelocator::maxMoovSize) {
        logRefusal(Refusal::moovTooLarge, name, moov->size);
        return refused(Refusal::moovTooLarge, moov->size);
    }

    QByteArray moovBytes = source.readAt(moov->offset, moov->size);
    if (std::uint64_t(moovBytes.size()) != moov->size) {
        logRefusal(Refusal::moovReadShort, name);
        return refused(Refusal::moovReadShort);
    }
    // A moov that ran to the end of the file must say its size once media
    // follows it.
    if (moov->extendsToEnd)
        MP4Bytes::put32(moovBytes.data(), std::uint32_t(moov->size));

    switch (MP4ChunkOffsets::shift(moovBytes, 0, moovBytes.size(), std::int64_t(moov->size + padding))) {
    case MP4ChunkOffsets::ShiftResult::shifted:
        break;
    case MP4ChunkOffsets::ShiftResult::stcoOverflow:
        logRefusal(Refusal::stcoOverflow, name);
        return refused(Refusal::stcoOverflow);
    case MP4ChunkOffsets::ShiftResult::co64Overflow:
        logRefusal(Refusal::co64Overflow, name);
        return refused(Refusal::co64Overflow);
    }
    layout.moov = *moov;
    layout.mdat = *mdat;
    layout.moovBytes = std::move(moovBytes);
    return std::nullopt;
}

// For a moov already ahead of mdat: the moov with every chunk offset moved by
// padding, for a copy that puts padding bytes of free space right behind it.
std::optional<FastStartRelocator::Outcome> planPaddedAhead(const MP4File& source, std::uint64_t fileSize,
                                                           const QString& name, std::uint64_t padding,
                                                           MoveLayout& layout)
{
    using Refusal = FastStartRelocator::Refusal;
    std::optional<MP4BoxHeader> moov;
    for (const MP4BoxHeader& b : MP4BoxHeader::listTopLevel(source, fileSize))
        if (!moov && b.is(kMoov))
            moov = b;
    if (!moov || moov->extendsToEnd)
        return refused(Refusal::notAnMP4);
    if (moov->size > FastStartRelocator::maxMoovSize) {
        logRefusal(Refusal::moovTooLarge, name, moov->size);
        return refused(Refusal::moovTooLarge, moov->size);
    }
    QByteArray moovBytes = source.readAt(moov->offset, moov->size);
    if (std::uint64_t(moovBytes.size()) != moov->size) {
        logRefusal(Refusal::moovReadShort, name);
        return refused(Refusal::moovReadShort);
    }
    switch (MP4ChunkOffsets::shift(moovBytes, 0, moovBytes.size(), std::int64_t(padding))) {
    case MP4ChunkOffsets::ShiftResult::shifted:
        break;
    case MP4ChunkOffsets::ShiftResult::stcoOverflow:
        logRefusal(Refusal::stcoOverflow, name);
        return refused(Refusal::stcoOverflow);
    case MP4ChunkOffsets::ShiftResult::co64Overflow:
        logRefusal(Refusal::co64Overflow, name);
        return refused(Refusal::co64Overflow);
    }
    layout.moov = *moov;
    layout.moovBytes = std::move(moovBytes);
    return std::nullopt;
}

// A `free` box of exactly size bytes (at least 8).
QByteArray freeBox(std::uint64_t size)
{
    QByteArray box(qsizetype(size), '\0');
    MP4Bytes::put32(box.data(), std::uint32_t(size));
    MP4Bytes::put32(box.data() + 4, MP4Bytes::fourCC("free"));
    return box;
}
} // namespace

FastStartRelocator::Outcome FastStartRelocator::relocate(const QString& path)
{
    QElapsedTimer timer;
    timer.start();
    const QString name = QFileInfo(path).fileName();

    struct stat st{};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        throw MP4FileError(MP4FileError::Kind::statFailed, path, QString::fromLocal8Bit(std::strerror(errno)));
    const std::uint64_t fileSize = std::uint64_t(st.st_size);

    MP4File source(path, MP4File::Access::read);
    MoveLayout layout;
    if (const auto nothing = planMove(source, fileSize, name, 0, layout))
        return *nothing;
    const MP4BoxHeader* moov = &layout.moov;
    const MP4BoxHeader* mdat = &layout.mdat;
    const QByteArray& moovBytes = layout.moovBytes;

    // The temporary file: beside the book with its permissions, else in FolivoxWork.
    TempGuard guard;
    MP4File out;
    const QString beside = QFileInfo(path).absolutePath() + QStringLiteral("/.")
        + QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".faststart.tmp");
    const unsigned mode = unsigned(st.st_mode & 07777);
    try {
        out = MP4File::createNew(beside, mode);
        guard.path = beside;
    } catch (const MP4FileError&) {
        const QString fallback = AppPaths::workRoot() + QStringLiteral("/")
            + QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".tmp");
        try {
            out = MP4File::createNew(fallback, mode | 0600);
            guard.path = fallback;
        } catch (const MP4FileError&) {
            Log::write(QStringLiteral("[FastStart] SKIPPED for '%1' — could not create a temp beside the book nor in the "
                                      "app's temp dir; moov left at the end")
                           .arg(name));
            logRefusal(Refusal::noTempLocation, name);
            return refused(Refusal::noTempLocation);
        }
    }

    Streamer stream(source, out);
    stream.copy(0, mdat->offset);
    stream.write(moovBytes);
    FaultInjection::reach("relocate.moovWritten");
    stream.copy(mdat->offset, moov->offset - mdat->offset);
    stream.copy(moov->end(), fileSize - moov->end());

    if (stream.position() != source.size()) {
        out.close();
        logRefusal(Refusal::sizeMismatch, name);
        return refused(Refusal::sizeMismatch);
    }
    out.sync();
    out.close();
    source.close();
    FaultInjection::reach("relocate.synced");

    try {
        SafeFileReplace::replace(guard.path, path);
        guard.path.clear();
    } catch (const SafeFileReplace::WriteInterruptedError&) {
        guard.path.clear(); // the complete copy is the user's recovery path
        throw;
    }
    Log::write(QStringLiteral("[FastStart] moov moved ahead of mdat for '%1' (moov=%2 bytes, file=%3 bytes) in %4 ms")
                   .arg(name)
                   .arg(moov->size)
                   .arg(fileSize)
                   .arg(timer.elapsed()));
    Outcome o;
    o.kind = Outcome::Kind::relocated;
    return o;
}

FastStartRelocator::Outcome FastStartRelocator::copyFastStart(const QString& sourcePath, const QString& destination,
                                                              std::uint64_t paddingBytes,
                                                              const std::function<void(double)>& progress)
{
    QElapsedTimer timer;
    timer.start();
    const QString name = QFileInfo(sourcePath).fileName();
    struct stat st{};
    if (::stat(QFile::encodeName(sourcePath).constData(), &st) != 0)
        throw MP4FileError(MP4FileError::Kind::statFailed, sourcePath, QString::fromLocal8Bit(std::strerror(errno)));
    const std::uint64_t fileSize = std::uint64_t(st.st_size);

    MP4File source(sourcePath, MP4File::Access::read);
    std::uint64_t moovSize = 0;
    if (fileSize > 16) {
        // The moov's size is needed to round the padding before planning.
        for (const MP4BoxHeader& b : MP4BoxHeader::listTopLevel(source, fileSize))
            if (b.is(kMoov)) {
                moovSize = b.size;
                break;
            }
    }
    // Shift the media by a whole number of pages so that it keeps its
    // alignment and the kernel can copy it.
    std::uint64_t padding = std::max<std::uint64_t>(paddingBytes, 8);
    padding += (kPage - (moovSize + padding) % kPage) % kPage;

    MoveLayout layout;
    bool moovAhead = false;
    if (const auto nothing = planMove(source, fileSize, name, padding, layout)) {
        if (nothing->kind != Outcome::Kind::alreadyAhead)
            return *nothing;
        // moov already leads: copy it with the padding right behind it, so
        // later tag and chapter edits grow it in place instead of moving it
        // to the end (which would need another pass to bring it back).
        padding = std::max<std::uint64_t>(paddingBytes, 8);
        padding += (kPage - padding % kPage) % kPage;
        if (const auto refusal = planPaddedAhead(source, fileSize, name, padding, layout))
            return *refusal;
        moovAhead = true;
    }

    TempGuard guard;
    MP4File out = MP4File::createNew(destination, unsigned(st.st_mode & 0777) | 0600);
    guard.path = destination;

    const std::uint64_t total = fileSize + padding;
    Streamer stream(source, out);
    if (progress)
        stream.onPiece = [&](std::uint64_t written) { progress(double(written) / double(total)); };
    if (moovAhead) {
        stream.copy(0, layout.moov.offset);
        stream.write(layout.moovBytes);
        stream.write(freeBox(padding));
        stream.copy(layout.moov.end(), fileSize - layout.moov.end());
    } else {
        stream.copy(0, layout.mdat.offset);
        stream.write(layout.moovBytes);
        stream.write(freeBox(padding));
        stream.copy(layout.mdat.offset, layout.moov.offset - layout.mdat.offset);
        stream.copy(layout.moov.end(), fileSize - layout.moov.end());
    }
    if (stream.position() != total) {
        out.close();
        logRefusal(Refusal::sizeMismatch, name);
        return refused(Refusal::sizeMismatch);
    }
    out.close();
    guard.path.clear();
    if (progress)
        progress(1.0);
    Log::write(QStringLiteral("[FastStart] copied '%1' with moov ahead of mdat (moov=%2 bytes, padding=%3 bytes, file=%4 "
                              "bytes) in %5 ms")
                   .arg(name)
                   .arg(layout.moov.size)
                   .arg(padding)
                   .arg(fileSize)
                   .arg(timer.elapsed()));
    Outcome o;
    o.kind = Outcome::Kind::relocated;
    return o;
}

} // namespace folivox
