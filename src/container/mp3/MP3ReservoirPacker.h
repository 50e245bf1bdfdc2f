#pragma once

#include "container/mp3/MP3FrameSequence.h"
#include "container/mp3/MP3MainDataMap.h"

#include <QByteArray>

#include <cstdint>
#include <optional>
#include <vector>

namespace folivox {

// Lays the main data of re-encoded frames out again so that the stretch can
// stand in the middle of another stream's frames:
//
// - its first frame starts its main data in its own area (main_data_begin
//   0), so it reads nothing from the frame before it, which is not the frame
//   its encoder wrote;
// - it ends with `carried`, the bytes of the other stream that the frames
//   after the stretch read through the bit reservoir (MP3MainDataMap::
//   carriedInto), so those frames stay byte for byte as they were.
//
// Each frame keeps its header and side information, with main_data_begin
// rewritten. Its bitrate (and so its size) is the one `preferredHeaderByte2`
// gives (the frame it stands in for) when its main data fits that size, and
// its own otherwise. Main data is packed as early as main_data_begin allows,
// so that the free bytes gather at the end, where `carried` goes.
class MP3ReservoirPacker {
public:
    // `encoded` is the encoder's whole sequence and `map` its map; the frames
    // [first, first + count) are packed. preferredHeaderByte2 has count
    // entries. Nothing when the frames and `carried` do not fit, or a frame
    // cannot be repacked (a CRC, side information that cannot be read).
    static std::optional<QByteArray> pack(const std::vector<MP3FrameSequence::Frame>& encoded,
                                          const MP3MainDataMap& map, std::size_t first, std::size_t count,
                                          const std::vector<std::uint8_t>& preferredHeaderByte2,
                                          const QByteArray& carried);
};

} // namespace folivox
