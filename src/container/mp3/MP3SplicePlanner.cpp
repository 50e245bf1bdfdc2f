#include "container/mp3/MP3SplicePlanner.h"

#include <algorithm>

namespace folivox {

std::int64_t MP3SplicePlanner::leadFrames(int samplesPerFrame)
{
    return (kFadeOutSamples + kSettleSamples + samplesPerFrame - 1) / samplesPerFrame;
}

std::int64_t MP3SplicePlanner::trailFrames(int samplesPerFrame)
{
    return (kRecoverySamples + kSettleSamples + samplesPerFrame - 1) / samplesPerFrame;
}

std::vector<MP3SplicePlanner::Region> MP3SplicePlanner::plan(const MP3MainDataMap& map,
                                                             std::vector<std::int64_t> undecodable,
                                                             int samplesPerFrame)
{
    const auto n = std::int64_t(map.size());
    std::sort(undecodable.begin(), undecodable.end());
    undecodable.erase(std::unique(undecodable.begin(), undecodable.end()), undecodable.end());
    undecodable.erase(std::remove_if(undecodable.begin(), undecodable.end(),
                                     [n](std::int64_t i) { return i < 0 || i >= n; }),
                      undecodable.end());

    // Lost: each undecodable frame and the frames after it whose main data
    // overlaps its area or its own main data. No main data reaches back more
    // than 511 bytes, so the search stops once areas start past that.
    std::vector<std::int64_t> lost;
    for (const std::int64_t u : undecodable) {
        const auto& bad = map[std::size_t(u)];
        const std::int64_t from = std::min(bad.areaStart, bad.dataStart);
        const std::int64_t to = std::max(bad.areaStart + bad.areaLength, bad.dataStart + bad.dataLength);
        lost.push_back(u);
        for (std::int64_t k = u + 1; k < n && map[std::size_t(k)].areaStart - to <= 511; ++k) {
            const auto& f = map[std::size_t(k)];
            if (f.dataStart < to && f.dataStart + f.dataLength > from)
                lost.push_back(k);
        }
    }
    std::sort(lost.begin(), lost.end());
    lost.erase(std::unique(lost.begin(), lost.end()), lost.end());

    std::vector<Region> regions;
    for (const std::int64_t k : lost) {
        Region r;
        r.first = std::max<std::int64_t>(k - leadFrames(samplesPerFrame), 0);
        r.end = std::min(k + 1 + trailFrames(samplesPerFrame), n);
        r.lost = {k};
        if (std::binary_search(undecodable.begin(), undecodable.end(), k))
            r.undecodable = {k};
        if (!regions.empty() && r.first - regions.back().end < kMergeGap)
            regions.back() = join(regions.back(), r);
        else
            regions.push_back(std::move(r));
    }
    return regions;
}

MP3SplicePlanner::Region MP3SplicePlanner::join(const Region& a, const Region& b)
{
    Region r;
    r.first = std::min(a.first, b.first);
    r.end = std::max(a.end, b.end);
    r.lost = a.lost;
    r.lost.insert(r.lost.end(), b.lost.begin(), b.lost.end());
    std::sort(r.lost.begin(), r.lost.end());
    r.lost.erase(std::unique(r.lost.begin(), r.lost.end()), r.lost.end());
    r.undecodable = a.undecodable;
    r.undecodable.insert(r.undecodable.end(), b.undecodable.begin(), b.undecodable.end());
    std::sort(r.undecodable.begin(), r.undecodable.end());
    r.undecodable.erase(std::unique(r.undecodable.begin(), r.undecodable.end()), r.undecodable.end());
    return r;
}

} // namespace folivox
