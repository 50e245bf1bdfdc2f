#include "container/mp3/MP3FrameCopyWriter.h"

#include "container/mp3/MP3FrameSequence.h"
#include "container/mp3/MP3IntegrityError.h"

#include <QFileInfo>
#include <QSaveFile>

#include <array>
#include <cstring>
#include <stdexcept>

namespace folivox {

namespace {

void putBigEndian32(QByteArray& b, qsizetype at, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        b[at + i] = char((v >> (24 - 8 * i)) & 0xFF);
}

// A stretch of bytes of the copy's audio: part of a run of the source, or a
// replacement.
struct Piece {
    const std::uint8_t* data;
    std::size_t length;
};

// The copy's audio as pieces: the runs of the scan, cut around the frames
// that replacements stand in for.
std::vector<Piece> audioPieces(const std::uint8_t* source, const MP3FrameScanner::Result& scan,
                               const std::vector<MP3FrameCopyWriter::Replacement>& replacements)
{
    std::vector<Piece> pieces;
    std::size_t next = 0;      // the next replacement
    std::int64_t index = 0;    // of the frame at pos
    std::int64_t skipping = 0; // frames still to leave out
    for (const auto& run : scan.audioRuns) {
        std::size_t pieceStart = run.start;
        std::size_t pos = run.start;
        while (pos < run.end) {
            const auto h = MP3FrameHeader::decode(source + pos, run.end - pos);
            if (!h)
                break; // cannot happen for a run of the scan
            if (skipping == 0 && next < replacements.size() && replacements[next].firstFrame == index) {
                const auto& r = replacements[next++];
                if (r.frameCount <= 0 || (next < replacements.size() && replacements[next].firstFrame < index + r.frameCount))
                    throw std::invalid_argument("replacements overlap or are empty");
                if (pos > pieceStart)
                    pieces.push_back({source + pieceStart, pos - pieceStart});
                pieces.push_back({reinterpret_cast<const std::uint8_t*>(r.frames.constData()),
                                  std::size_t(r.frames.size())});
                skipping = r.frameCount;
            }
            pos += std::size_t(h->frameLength);
            ++index;
            if (skipping > 0) {
                --skipping;
                pieceStart = pos;
            }
        }
        if (pos > pieceStart)
            pieces.push_back({source + pieceStart, pos - pieceStart});
    }
    if (next != replacements.size() || skipping != 0)
        throw std::invalid_argument("a replacement lies outside the audio frames");
    return pieces;
}

QByteArray infoFrameFor(const std::uint8_t* source, const MP3FrameScanner::Result& scan,
                        const std::vector<Piece>& pieces);

// Every audio frame of the pieces, in order.
template<class F>
void forEachFrame(const std::vector<Piece>& pieces, F&& f)
{
    for (const Piece& piece : pieces) {
        std::size_t pos = 0;
        while (pos < piece.length) {
            const auto h = MP3FrameHeader::decode(piece.data + pos, piece.length - pos);
            if (!h || std::size_t(h->frameLength) > piece.length - pos)
                break;
            f(piece.data + pos, *h);
            pos += std::size_t(h->frameLength);
        }
    }
}

const std::array<std::uint16_t, 256>& crcTable()
{
    static const std::array<std::uint16_t, 256> table = [] {
        std::array<std::uint16_t, 256> t{};
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint16_t c = std::uint16_t(i);
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? std::uint16_t((c >> 1) ^ 0xA001) : std::uint16_t(c >> 1);
            t[i] = c;
        }
        return t;
    }();
    return table;
}

} // namespace

std::uint16_t MP3FrameCopyWriter::crc16(const std::uint8_t* data, std::size_t length, std::uint16_t crc)
{
    const auto& t = crcTable();
    for (std::size_t i = 0; i < length; ++i)
        crc = std::uint16_t((crc >> 8) ^ t[(crc ^ data[i]) & 0xFF]);
    return crc;
}

QByteArray MP3FrameCopyWriter::infoFrame(const std::uint8_t* source, const MP3FrameScanner::Result& scan,
                                         const std::vector<Replacement>& replacements)
{
    return infoFrameFor(source, scan, audioPieces(source, scan, replacements));
}

namespace {

QByteArray infoFrameFor(const std::uint8_t* source, const MP3FrameScanner::Result& scan,
                        const std::vector<Piece>& pieces)
{
    // The audio frames: their count, bytes, offsets for the seek table,
    // whether they share one bitrate, and the music CRC.
    std::int64_t frames = 0;
    std::int64_t audioBytes = 0;
    std::optional<MP3FrameHeader> first;
    bool oneBitrate = true;
    std::uint16_t musicCrc = 0;
    std::vector<std::int64_t> offsets;
    offsets.reserve(std::size_t(scan.validFrameCount));
    forEachFrame(pieces, [&](const std::uint8_t* frameData, const MP3FrameHeader& h) {
        if (!first)
            first = h;
        oneBitrate = oneBitrate && h.bitrateIndex == first->bitrateIndex;
        offsets.push_back(audioBytes);
        audioBytes += h.frameLength;
        musicCrc = MP3FrameCopyWriter::crc16(frameData, std::size_t(h.frameLength), musicCrc);
        ++frames;
    });
    if (!first)
        return {};

    QByteArray frame;
    int xing = 0;
    bool lame = false;
    const auto& src = scan.infoFrame;
    // The source's frame is kept only when all four fields fit in it.
    const bool keep = src && src->kind != MP3InfoFrame::Kind::vbri && (src->flags & 0xF) == 0xF && scan.infoFrameSpan
        && scan.infoFrameSpan->end - scan.infoFrameSpan->start >= std::size_t(src->tagOffset) + MP3InfoFrame::kLameOffset;
    if (keep) {
        frame = QByteArray(reinterpret_cast<const char*>(source + scan.infoFrameSpan->start),
                           qsizetype(scan.infoFrameSpan->end - scan.infoFrameSpan->start));
        xing = src->tagOffset;
        lame = src->lame;
        if (!oneBitrate && src->kind == MP3InfoFrame::Kind::info)
            std::memcpy(frame.data() + xing, "Xing", 4);
    } else {
        MP3FrameHeader h = *first;
        h.crcProtected = false;
        h.padding = false;
        const int needed = 4 + h.sideInfoLength() + 120;
        int index = h.bitrateIndex;
        while (MP3FrameHeader::frameLengthFor(h.version, MP3FrameHeader::bitrateFor(h.version, index), h.sampleRate,
                                              false)
                   < needed
               && index < 14)
            ++index;
        const int length =
            MP3FrameHeader::frameLengthFor(h.version, MP3FrameHeader::bitrateFor(h.version, index), h.sampleRate, false);
        if (length < needed)
            return {}; // no bitrate of this version and rate gives room for it
        frame = QByteArray(length, '\0');
        const int versionBits = h.version == MP3FrameHeader::Version::mpeg1 ? 3
            : h.version == MP3FrameHeader::Version::mpeg2                    ? 2
                                                                             : 0;
        frame[0] = char(0xFF);
        frame[1] = char(0xE0 | (versionBits << 3) | (1 << 1) | 1); // Layer III, no CRC
        frame[2] = char((index << 4) | (h.sampleRateIndex << 2));
        frame[3] = char(h.channelMode << 6);
        xing = 4 + h.sideInfoLength();
        std::memcpy(frame.data() + xing, oneBitrate ? "Info" : "Xing", 4);
        putBigEndian32(frame, xing + 4, 0xF);
        putBigEndian32(frame, xing + 8 + 4 + 4 + 100, 0xFFFFFFFFu); // quality: unknown
    }

    const std::int64_t total = frame.size() + audioBytes;
    putBigEndian32(frame, xing + 8, std::uint32_t(frames));
    putBigEndian32(frame, xing + 12, std::uint32_t(total));
    for (int i = 0; i < 100; ++i) {
        const auto at = std::size_t(std::int64_t(i) * frames / 100);
        const std::int64_t offset = frame.size() + (at < offsets.size() ? offsets[at] : audioBytes);
        frame[xing + 16 + i] = char(std::min<std::int64_t>(255, offset * 256 / total));
    }
    if (lame) {
        const int ext = xing + MP3InfoFrame::kLameOffset;
        putBigEndian32(frame, ext + 28, std::uint32_t(total));
        frame[ext + 32] = char(musicCrc >> 8);
        frame[ext + 33] = char(musicCrc & 0xFF);
        const std::uint16_t tagCrc = MP3FrameCopyWriter::crc16(reinterpret_cast<const std::uint8_t*>(frame.constData()), std::size_t(ext + 34));
        frame[ext + 34] = char(tagCrc >> 8);
        frame[ext + 35] = char(tagCrc & 0xFF);
    }
    return frame;
}

} // namespace

std::optional<MP3FrameCopyWriter::Outcome> MP3FrameCopyWriter::write(const std::uint8_t* source, std::size_t size,
                                                                     const MP3FrameScanner::Result& scan,
                                                                     const QString& output,
                                                                     const std::function<bool()>& cancelled,
                                                                     const std::vector<Replacement>& replacements)
{
    const std::vector<Piece> pieces = audioPieces(source, scan, replacements);
    const QString name = QFileInfo(output).fileName();
    QSaveFile file(output);
    if (!file.open(QIODevice::WriteOnly))
        throw MP3IntegrityError(MP3IntegrityError::Kind::cannotWrite, name, file.errorString());
    Outcome outcome;
    const auto put = [&](const char* data, std::int64_t length) {
        std::int64_t done = 0;
        while (done < length) {
            const qint64 n = file.write(data + done, length - done);
            if (n <= 0)
                throw MP3IntegrityError(MP3IntegrityError::Kind::cannotWrite, name, file.errorString());
            done += n;
        }
        outcome.bytes += length;
    };
    const auto putSpan = [&](const MP3TagLocator::Span& s) {
        if (s.end <= size && s.start < s.end)
            put(reinterpret_cast<const char*>(source + s.start), std::int64_t(s.end - s.start));
    };
    for (const auto& tag : scan.leadingTags)
        putSpan(tag);
    const QByteArray info = infoFrameFor(source, scan, pieces);
    put(info.constData(), info.size());
    for (const Piece& piece : pieces) {
        if (cancelled && cancelled()) {
            file.cancelWriting();
            return std::nullopt;
        }
        put(reinterpret_cast<const char*>(piece.data), std::int64_t(piece.length));
    }
    outcome.audioFrames = scan.validFrameCount;
    for (const Replacement& r : replacements)
        outcome.audioFrames += std::int64_t(MP3FrameSequence::ofBytes(reinterpret_cast<const std::uint8_t*>(
                                                                          r.frames.constData()),
                                                                      std::size_t(r.frames.size()))
                                                .size())
            - r.frameCount;
    for (const auto& tag : scan.trailingTags)
        putSpan(tag);
    if (!file.commit())
        throw MP3IntegrityError(MP3IntegrityError::Kind::cannotWrite, name, file.errorString());
    return outcome;
}

} // namespace folivox
