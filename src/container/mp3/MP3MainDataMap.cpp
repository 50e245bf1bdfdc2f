#include "container/mp3/MP3MainDataMap.h"

#include "container/mp3/MP3SideInfo.h"

#include <algorithm>

namespace folivox {

MP3MainDataMap::MP3MainDataMap(const std::vector<MP3FrameSequence::Frame>& frames) : frames_(frames)
{
    map_.reserve(frames.size());
    areaOffset_.reserve(frames.size());
    std::int64_t at = 0;
    for (const auto& f : frames) {
        Frame m;
        m.areaStart = at;
        int offset = int(f.length);
        const auto h = MP3FrameHeader::decode(f.data, f.length);
        const auto side = h ? MP3SideInfo::parse(f.data, f.length, *h) : std::nullopt;
        if (side) {
            offset = side->offset + side->length;
            m.areaLength = int(f.length) - offset;
            m.mainDataBegin = side->mainDataBegin;
            m.dataStart = at - side->mainDataBegin;
            m.dataLength = side->mainDataBytes();
            m.readable = true;
        } else {
            m.dataStart = at;
        }
        areaOffset_.push_back(offset);
        at += m.areaLength;
        map_.push_back(m);
    }
}

std::int64_t MP3MainDataMap::streamLength() const
{
    return map_.empty() ? 0 : map_.back().areaStart + map_.back().areaLength;
}

int MP3MainDataMap::carriedInto(std::size_t index) const
{
    if (index >= map_.size())
        return 0;
    const std::int64_t start = map_[index].areaStart;
    std::int64_t reach = 0;
    // No frame reaches further back than the largest main_data_begin (511),
    // so the frames whose areas start more than that after `start` cannot
    // reach before it.
    for (std::size_t k = index; k < map_.size() && map_[k].areaStart - start <= 511; ++k)
        reach = std::max(reach, start - map_[k].dataStart);
    return int(std::min<std::int64_t>(reach, start));
}

QByteArray MP3MainDataMap::streamBytes(std::int64_t start, std::int64_t end) const
{
    start = std::max<std::int64_t>(start, 0);
    end = std::min(end, streamLength());
    QByteArray out;
    if (end <= start)
        return out;
    out.reserve(qsizetype(end - start));
    // The first frame whose area ends after `start`.
    auto it = std::upper_bound(map_.begin(), map_.end(), start,
                               [](std::int64_t v, const Frame& f) { return v < f.areaStart + f.areaLength; });
    for (auto i = std::size_t(it - map_.begin()); i < map_.size() && map_[i].areaStart < end; ++i) {
        const std::int64_t from = std::max(start, map_[i].areaStart);
        const std::int64_t to = std::min(end, map_[i].areaStart + map_[i].areaLength);
        if (to > from)
            out.append(reinterpret_cast<const char*>(frames_[i].data + areaOffset_[i] + (from - map_[i].areaStart)),
                       qsizetype(to - from));
    }
    return out;
}

} // namespace folivox
