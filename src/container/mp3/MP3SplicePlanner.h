#pragma once

#include "container/mp3/MP3MainDataMap.h"

#include <cstdint>
#include <vector>

namespace folivox {

// Which frames of a stream to replace when some of them do not decode.
//
// A frame that does not decode spoils more than itself: the frames after it
// whose main data lies in its bytes (through the bit reservoir) play its
// damage, and the decoder carries it further still, for up to
// kRecoverySamples after the last of them (its overlap of 576 samples with
// the next granule and the 512 samples its synthesis filter remembers). So
// the frames lost are those that do not decode and every frame whose main
// data overlaps their bytes; their audio is gone.
//
// A stretch to re-encode spans the lost frames and, on either side, the
// frames over which the audio fades into and out of the gap (kFadeOutSamples
// before it, kRecoverySamples after it, while the decoder recovers), plus one
// granule (kSettleSamples) of untouched audio at each end: the decoder
// overlaps a stretch's first and last granules with the frames beside it, so
// those granules must hold the same audio as the frames they stand in for.
// That is one frame before and two after for MPEG 1, two before and three
// after for MPEG 2 and 2.5. Stretches closer than kMergeGap frames are
// joined, so that each stretch's encoder starts on audio that stays.
class MP3SplicePlanner {
public:
    static constexpr std::int64_t kMergeGap = 8;
    static constexpr int kFadeOutSamples = 576;
    static constexpr int kRecoverySamples = 1152;
    static constexpr int kSettleSamples = 576;

    struct Region {
        std::int64_t first = 0; // the first frame replaced
        std::int64_t end = 0;   // one past the last (before any extension)
        std::vector<std::int64_t> lost;         // frames whose audio is gone, ascending
        std::vector<std::int64_t> undecodable;  // those of them that did not decode
    };

    // `undecodable` need not be sorted. Regions come in stream order.
    static std::vector<Region> plan(const MP3MainDataMap& map, std::vector<std::int64_t> undecodable,
                                    int samplesPerFrame);
    // Frames of a stretch before and after its lost frames, for this frame
    // size.
    static std::int64_t leadFrames(int samplesPerFrame);
    static std::int64_t trailFrames(int samplesPerFrame);
    // One region covering both (a before b).
    static Region join(const Region& a, const Region& b);
};

} // namespace folivox
