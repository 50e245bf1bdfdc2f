#pragma once

#include "container/mp3/MP3FrameSequence.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace folivox {

// Where the main data of each frame of a sequence lies in the stream of main
// data: the areas after the frames' side information, joined in order. With
// the bit reservoir a frame's main data may begin up to main_data_begin bytes
// before its own area, in the areas of the frames before it; so bytes of one
// frame carry audio of the frames after it.
class MP3MainDataMap {
public:
    struct Frame {
        std::int64_t areaStart = 0; // in the stream
        int areaLength = 0;
        std::int64_t dataStart = 0; // areaStart - main_data_begin
        int dataLength = 0;         // bytes
        int mainDataBegin = 0;
        bool readable = false; // its side information could be read
    };

    explicit MP3MainDataMap(const std::vector<MP3FrameSequence::Frame>& frames);

    const std::vector<Frame>& frames() const { return map_; }
    std::size_t size() const { return map_.size(); }
    const Frame& operator[](std::size_t i) const { return map_[i]; }
    // The stream's length: the end of the last frame's area.
    std::int64_t streamLength() const;

    // How many bytes of the stream just before frame `index`'s area the
    // frames from `index` on read: what a stretch standing in for the frames
    // before `index` must end with. 0 at the end of the sequence.
    int carriedInto(std::size_t index) const;
    // The stream's bytes from `start` to `end` (clamped to the stream).
    QByteArray streamBytes(std::int64_t start, std::int64_t end) const;

private:
    std::vector<MP3FrameSequence::Frame> frames_;
    std::vector<Frame> map_;
    std::vector<int> areaOffset_; // from each frame's start to its area
};

} // namespace folivox
