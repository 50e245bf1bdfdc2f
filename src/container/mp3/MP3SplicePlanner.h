#pragma once

#include "container/mp3/MP3MainDataMap.h"

#include <cstdint>
#include <vector>

namespace folivox {

// Which frames of a stream to replace when some of them do not decode.
//
// A frame that does not decode spoils more than itself: the frames after it
// whose main data lies in its bytes (through the bit reservoir) play its
// damage, and the decoder's overlap with the next frame carries it one frame
// further. So the frames lost are those that do not decode and every frame
// whose main data overlaps their bytes; their audio is gone. A stretch to
// re-encode spans the lost frames, one frame before them (whose end fades
// out into the gap) and one after (which fades in from it). Stretches closer
// than kMergeGap frames are joined, so that each stretch's encoder starts on
// audio that stays.
class MP3SplicePlanner {
public:
    static constexpr std::int64_t kMergeGap = 8;

    struct Region {
        std::int64_t first = 0; // the first frame replaced
        std::int64_t end = 0;   // one past the last (before any extension)
        std::vector<std::int64_t> lost;         // frames whose audio is gone, ascending
        std::vector<std::int64_t> undecodable;  // those of them that did not decode
    };

    // `undecodable` need not be sorted. Regions come in stream order.
    static std::vector<Region> plan(const MP3MainDataMap& map, std::vector<std::int64_t> undecodable);
    // One region covering both (a before b).
    static Region join(const Region& a, const Region& b);
};

} // namespace folivox
