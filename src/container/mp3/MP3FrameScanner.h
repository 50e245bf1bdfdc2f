#pragma once

#include "container/mp3/MP3FrameHeader.h"
#include "container/mp3/MP3IntegrityHole.h"
#include "container/mp3/MP3InfoFrame.h"
#include "container/mp3/MP3TagLocator.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace folivox {

// Walks the frames of an MP3 held in memory: finds the first frame lock,
// follows the frames, and records every run of bytes that is neither audio
// nor a tag. Reads only.
class MP3FrameScanner {
public:
    // How often, in bytes of progress, the cancellation check runs.
    static constexpr std::size_t kCancelCheckInterval = 1048576;

    using Span = MP3TagLocator::Span;

    struct Result {
        bool locked = false;
        MP3FrameHeader::Version version = MP3FrameHeader::Version::mpeg1;
        int sampleRate = 0;
        int samplesPerFrame = 0;
        std::optional<int> bitrateKbps;  // of the first audio frame
        std::optional<int> channelMode;  // of the first audio frame
        std::int64_t validFrameCount = 0; // audio frames
        std::int64_t audioBytes = 0;      // their bytes
        double trueDuration = 0.0;
        std::vector<MP3IntegrityHole> holes;
        std::int64_t trailingBytes = 0;
        // Runs of back-to-back audio frames, in file order.
        std::vector<Span> audioRuns;
        // The encoder's information frame, when the first frame is one.
        std::optional<Span> infoFrameSpan;
        std::optional<MP3InfoFrame> infoFrame;
        // Tags before the first frame and after the last one.
        std::vector<Span> leadingTags;
        std::vector<Span> trailingTags;
        std::optional<double> taggedLength; // ID3v2 TLEN of a leading tag
    };

    // Scans `size` bytes. `cancelled` is asked every kCancelCheckInterval
    // bytes of progress; when it answers true the scan ends with nothing.
    static std::optional<Result> scan(const std::uint8_t* data, std::size_t size,
                                      const std::function<bool()>& cancelled = {});
};

} // namespace folivox
