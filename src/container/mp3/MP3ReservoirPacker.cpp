#include "container/mp3/MP3ReservoirPacker.h"

#include "container/mp3/MP3SideInfo.h"

#include <algorithm>
#include <cstring>

namespace folivox {

namespace {

struct Planned {
    QByteArray head; // header and side information
    MP3FrameHeader header;
    int areaLength = 0;
    QByteArray data;
};

} // namespace

std::optional<QByteArray> MP3ReservoirPacker::pack(const std::vector<MP3FrameSequence::Frame>& encoded,
                                                   const MP3MainDataMap& map, std::size_t first, std::size_t count,
                                                   const std::vector<std::uint8_t>& preferredHeaderByte2,
                                                   const QByteArray& carried)
{
    if (count == 0 || first + count > encoded.size() || preferredHeaderByte2.size() != count)
        return std::nullopt;
    std::vector<Planned> frames;
    frames.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto& f = encoded[first + i];
        const auto own = MP3FrameHeader::decode(f.data, f.length);
        if (!own || own->crcProtected || !map[first + i].readable)
            return std::nullopt;
        const auto side = MP3SideInfo::parse(f.data, f.length, *own);
        if (!side)
            return std::nullopt;
        Planned p;
        p.head = QByteArray(reinterpret_cast<const char*>(f.data), side->offset + side->length);
        p.data = map.streamBytes(map[first + i].dataStart, map[first + i].dataStart + map[first + i].dataLength);
        if (p.data.size() != map[first + i].dataLength)
            return std::nullopt;
        // The preferred size, if this frame's main data fits in it.
        QByteArray preferred = p.head;
        preferred[2] = char(preferredHeaderByte2[i]);
        const auto h = MP3FrameHeader::decode(reinterpret_cast<const std::uint8_t*>(preferred.constData()), 4);
        if (h && h->sameStream(*own) && h->frameLength - preferred.size() >= p.data.size()) {
            p.head = preferred;
            p.header = *h;
        } else {
            p.header = *own;
        }
        p.areaLength = p.header.frameLength - int(p.head.size());
        frames.push_back(std::move(p));
    }

    // Stream positions, from the start of the first frame's area.
    const int maxBack = MP3SideInfo::maxMainDataBegin(frames.front().header.version);
    std::int64_t areaStart = 0;
    std::int64_t cursor = 0;
    std::vector<std::int64_t> dataStart(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::int64_t start = std::max(cursor, areaStart - maxBack);
        if (start + frames[i].data.size() > areaStart + frames[i].areaLength)
            return std::nullopt;
        dataStart[i] = start;
        cursor = start + frames[i].data.size();
        areaStart += frames[i].areaLength;
    }
    const std::int64_t streamLength = areaStart;
    if (cursor + carried.size() > streamLength)
        return std::nullopt;

    QByteArray stream(qsizetype(streamLength), '\0');
    for (std::size_t i = 0; i < count; ++i)
        std::memcpy(stream.data() + dataStart[i], frames[i].data.constData(), std::size_t(frames[i].data.size()));
    std::memcpy(stream.data() + streamLength - carried.size(), carried.constData(), std::size_t(carried.size()));

    QByteArray out;
    areaStart = 0;
    for (std::size_t i = 0; i < count; ++i) {
        Planned& p = frames[i];
        MP3SideInfo::setMainDataBegin(reinterpret_cast<std::uint8_t*>(p.head.data()), p.header,
                                      int(areaStart - dataStart[i]));
        out += p.head;
        out += stream.mid(qsizetype(areaStart), p.areaLength);
        areaStart += p.areaLength;
    }
    return out;
}

} // namespace folivox
