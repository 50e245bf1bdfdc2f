#pragma once

#include "container/mp3/MP3FrameHeader.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace folivox {

// What the side information of a Layer III frame says about its main data:
// where it begins (main_data_begin, in bytes back from this frame's own
// area, through the bit reservoir) and how long it is (part2_3_length summed
// over granules and channels). A frame's area is everything after its side
// information; the areas of successive frames, joined, form the stream of
// main data that main_data_begin counts in.
struct MP3SideInfo {
    int offset = 0;        // from the frame start: 4, or 6 after a CRC
    int length = 0;        // bytes of side information
    int mainDataBegin = 0; // bytes before this frame's area
    int mainDataBits = 0;
    int areaLength = 0; // bytes of the frame after its side information

    int mainDataBytes() const { return (mainDataBits + 7) / 8; }

    // The side information of the frame at `frame` (whose header is h), or
    // nothing when the frame is too short to hold it.
    static std::optional<MP3SideInfo> parse(const std::uint8_t* frame, std::size_t length, const MP3FrameHeader& h);
    // Writes main_data_begin into the side information of a frame.
    static void setMainDataBegin(std::uint8_t* frame, const MP3FrameHeader& h, int value);
    // The largest main_data_begin the field holds: 511 for MPEG 1, 255
    // otherwise.
    static int maxMainDataBegin(MP3FrameHeader::Version version)
    {
        return version == MP3FrameHeader::Version::mpeg1 ? 511 : 255;
    }
};

} // namespace folivox
