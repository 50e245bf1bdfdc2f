#pragma once

#include "container/mp3/MP3FrameScanner.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace folivox {

// The audio frames of a stream in playing order, each where its bytes lie.
// The frames of a scan are read where they stand in the source (holes, tags
// and the information frame left out), which is the order a frame copy of
// the file holds them in.
class MP3FrameSequence {
public:
    struct Frame {
        const std::uint8_t* data = nullptr;
        std::size_t length = 0;
    };

    // The audio frames of a scan of `source`.
    static std::vector<Frame> ofScan(const std::uint8_t* source, const MP3FrameScanner::Result& scan);
    // The frames standing back to back in `size` bytes, until a byte that
    // does not start one.
    static std::vector<Frame> ofBytes(const std::uint8_t* data, std::size_t size);
};

} // namespace folivox
