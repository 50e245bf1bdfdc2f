#include "container/mp4/FastStartRelocator.h"

#include "container/io/FaultInjection.h"
#include "container/io/FileRangeCopier.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4ChunkOffsets.h"
#include "container/mp4/MP4File.h"
#include "container/io/SafeFileReplace.h"
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
#include <sys/stat.h>

namespace folivox {

namespace {
constexpr std::uint32_t kMoov = MP4Bytes::fourCC("moov");
constexpr std::uint32_t kMdat = MP4Bytes::fourCC("mdat");
constexpr std::uint64_t kPage = 4096;

// The copier as relocation uses it: a source that ends early is an error,
// and every piece passes the relocation's fault-injection point.
class Streamer {
public:
    Streamer(const MP4File& source, MP4File& out) : copier_(source, out)
    {
        copier_.onPiece = [this](std::uint64_t written) {
            FaultInjection::reach("relocate.piece");
            if (onPiece)
                onPiece(written);
        };
    }

    std::function<void(std::uint64_t)> onPiece;

    std::uint64_t position() const { return copier_.position(); }
    void write(const QByteArray& bytes) { copier_.write(bytes); }
    void copy(std::uint64_t from, std::uint64_t count)
    {
        const std::uint64_t got = copier_.copy(from, count);
        if (got != count)
            throw FastStartRelocator::StreamError(count, got);
    }

private:
    FileRangeCopier copier_;
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

// One stretch of media that moves: chunk offsets in [from, to) move by delta.
struct MediaShift {
    std::uint64_t from = 0;
    std::uint64_t to = UINT64_MAX;
    std::int64_t delta = 0;
};

// Reads moov and moves its chunk offsets as the shifts say (applied in
// order; a later shift must not take in offsets an earlier one moved), or
// refuses (logged) when it is too large, can't be read whole, or an offset
// would overflow. Media that does not move keeps its offsets: a file may hold
// media ahead of the moov and behind it (a chapter track's samples next to
// the moov, the audio further on).
std::optional<FastStartRelocator::Outcome> readShiftedMoov(const MP4File& source, const MP4BoxHeader& moov,
                                                           const QString& name, std::initializer_list<MediaShift> shifts,
                                                           QByteArray& moovBytes)
{
    using Refusal = FastStartRelocator::Refusal;
    if (moov.size > FastStartRelocator::maxMoovSize) {
        logRefusal(Refusal::moovTooLarge, name, moov.size);
        return refused(Refusal::moovTooLarge, moov.size);
    }
    moovBytes = source.readAt(moov.offset, moov.size);
    if (std::uint64_t(moovBytes.size()) != moov.size) {
        logRefusal(Refusal::moovReadShort, name);
        return refused(Refusal::moovReadShort);
    }
    // A moov that ran to the end of the file must say its size once media
    // follows it.
    if (moov.extendsToEnd)
        MP4Bytes::put32(moovBytes.data(), std::uint32_t(moov.size));

    for (const MediaShift& s : shifts) {
        if (s.delta == 0)
            continue;
        switch (MP4ChunkOffsets::shift(moovBytes, 0, moovBytes.size(), s.delta, s.from, s.to)) {
        case MP4ChunkOffsets::ShiftResult::shifted:
            break;
        case MP4ChunkOffsets::ShiftResult::stcoOverflow:
            logRefusal(Refusal::stcoOverflow, name);
            return refused(Refusal::stcoOverflow);
        case MP4ChunkOffsets::ShiftResult::co64Overflow:
            logRefusal(Refusal::co64Overflow, name);
            return refused(Refusal::co64Overflow);
        }
    }
    return std::nullopt;
}

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
    std::optional<MP4BoxHeader> largestMdat;
    for (const MP4BoxHeader& b : boxes) {
        if (!moov && b.is(kMoov))
            moov = b;
        if (!mdat && b.is(kMdat))
            mdat = b;
        if (b.is(kMdat) && (!largestMdat || b.size > largestMdat->size))
            largestMdat = b;
    }
    if (!moov || !mdat)
        return refused(Refusal::notAnMP4);
    // Ahead of the audio (the largest mdat) is what streaming needs; a few
    // chapter-text samples written just ahead of the moov do not matter.
    if (moov->offset < mdat->offset || (padding == 0 && moov->offset < largestMdat->offset)) {
        FastStartRelocator::Outcome o;
        o.kind = FastStartRelocator::Outcome::Kind::alreadyAhead;
        return o;
    }
    // The copy puts moov (and padding) where the first mdat was: media from
    // there up to the old moov moves on by both; media behind the old moov
    // moves by the padding alone.
    if (auto refusal = readShiftedMoov(source, *moov, name,
                                       {MediaShift{moov->end(), UINT64_MAX, std::int64_t(padding)},
                                        MediaShift{mdat->offset, moov->offset, std::int64_t(moov->size + padding)}},
                                       layout.moovBytes))
        return refusal;
    layout.moov = *moov;
    layout.mdat = *mdat;
    return std::nullopt;
}

// For a moov already ahead of mdat: the moov with every chunk offset moved by
// padding, for a copy that puts padding bytes of free space right behind it.
std::optional<FastStartRelocator::Outcome> planPaddedAhead(const MP4File& source, std::uint64_t fileSize,
                                                           const QString& name, std::uint64_t padding,
                                                           MoveLayout& layout)
{
    std::optional<MP4BoxHeader> moov;
    for (const MP4BoxHeader& b : MP4BoxHeader::listTopLevel(source, fileSize))
        if (!moov && b.is(kMoov))
            moov = b;
    if (!moov || moov->extendsToEnd)
        return refused(FastStartRelocator::Refusal::notAnMP4);
    // Padding right behind the moov: only media behind it moves.
    if (auto refusal = readShiftedMoov(source, *moov, name, {MediaShift{moov->end(), UINT64_MAX, std::int64_t(padding)}},
                                       layout.moovBytes))
        return refusal;
    layout.moov = *moov;
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
        throw MP4FileError(MP4FileError::Kind::statFailed, path, errno);
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
        throw MP4FileError(MP4FileError::Kind::statFailed, sourcePath, errno);
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
