#pragma once

#include "container/mp3/MP3FrameSequence.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace folivox {

// Decodes MP3 frames in process (libavcodec's MP3 decoder), one packet per
// frame, and tells which frames the decoder rejects: a frame is undecodable
// when decoding it fails or the decoder reports an error while at it (as
// ffmpeg would print it), or when it decodes to samples beyond
// kImplausiblePeak, which no encoder writes but damaged data that happens to
// parse often gives. Optionally keeps the decoded samples.
class MP3FrameDecoder {
public:
    // Four times full scale: an encoder's overshoot on clipped audio stays
    // well below it.
    static constexpr float kImplausiblePeak = 4.0f;
    // Silence: no sample above -60 dBFS.
    static constexpr float kSilentPeak = 1.0f / 1024.0f;

    // Frames decoded before the first one asked about, so that the bit
    // reservoir and the decoder's overlap hold what they would in a decode
    // from the start.
    static constexpr std::size_t kWarmUpFrames = 8;

    struct Result {
        std::vector<std::int64_t> undecodable; // indices into the sequence, ascending
        // Frames that decoded without an error to silence (or to nothing),
        // ascending. After a frame that does not decode, this is how the
        // decoder plays a frame whose main data it could not reach: zeros,
        // with the fading tail of the frames before.
        std::vector<std::int64_t> silent;
        int channels = 0;
        int samplesPerFrame = 0;
        // With samples: per channel interleaved float, samplesPerFrame of
        // them for every frame asked about (silence where a frame gave none).
        std::vector<float> samples;
    };

    // Decodes frames [from - kWarmUpFrames, to) with a fresh decoder and
    // reports on [from, to). `cancelled` is asked every few thousand frames
    // (nothing comes back when it answers true), and `progress` is told the
    // fraction done then. Throws GenericError when the decoder is missing
    // from the libavcodec in use.
    static std::optional<Result> decode(const std::vector<MP3FrameSequence::Frame>& frames, std::size_t from,
                                        std::size_t to, bool keepSamples,
                                        const std::function<bool()>& cancelled = {},
                                        const std::function<void(double)>& progress = {});
};

} // namespace folivox
