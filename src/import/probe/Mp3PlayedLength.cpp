#include "import/probe/Mp3PlayedLength.h"

#include "container/mp3/MP3FrameHeader.h"
#include "container/mp3/MP3InfoFrame.h"

#include <QFile>

#include <algorithm>
#include <cstdint>

namespace folivox {

namespace {

// Enough for an ID3v2 header and the first frame after it.
constexpr qint64 kHead = 16 * 1024;

} // namespace

std::optional<double> Mp3PlayedLength::fromLameHeader(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // An ID3v2 tag first: the frames start after it.
    if (!file.seek(id3v2Size(path)))
        return std::nullopt;
    const QByteArray head = file.read(kHead);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(head.constData());
    std::size_t at = 0;
    const std::size_t size = std::size_t(head.size());
    // The information frame is the first frame; allow a little junk before it.
    for (; at + 4 <= size && at < 4096; ++at) {
        if (bytes[at] != 0xFF)
            continue;
        const auto header = MP3FrameHeader::decode(bytes + at, size - at);
        if (!header || std::size_t(header->frameLength) > size - at)
            continue;
        const auto info = MP3InfoFrame::parse(bytes + at, std::size_t(header->frameLength), *header);
        if (!info || !info->frames || !info->encoderDelay || header->sampleRate <= 0)
            return std::nullopt;
        std::int64_t samples = std::int64_t(*info->frames) * header->samplesPerFrame - *info->encoderDelay
                               - MP3InfoFrame::kDecoderDelay
                               - std::max(0, info->encoderPadding.value_or(0) - MP3InfoFrame::kDecoderDelay);
        if (samples <= 0)
            return std::nullopt;
        return double(samples) / header->sampleRate;
    }
    return std::nullopt;
}

qint64 Mp3PlayedLength::id3v2Size(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray h = f.read(10);
    if (h.size() < 10 || !h.startsWith("ID3"))
        return 0;
    auto b = [&h](int i) { return static_cast<qint64>(static_cast<unsigned char>(h[i]) & 0x7F); };
    const qint64 body = (b(6) << 21) | (b(7) << 14) | (b(8) << 7) | b(9);
    const bool footer = (static_cast<unsigned char>(h[5]) & 0x10) != 0;
    return 10 + body + (footer ? 10 : 0);
}

} // namespace folivox
