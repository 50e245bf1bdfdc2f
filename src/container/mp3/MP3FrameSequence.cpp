#include "container/mp3/MP3FrameSequence.h"

namespace folivox {

std::vector<MP3FrameSequence::Frame> MP3FrameSequence::ofScan(const std::uint8_t* source,
                                                              const MP3FrameScanner::Result& scan)
{
    std::vector<Frame> frames;
    frames.reserve(std::size_t(scan.validFrameCount));
    for (const auto& run : scan.audioRuns) {
        const auto part = ofBytes(source + run.start, run.end - run.start);
        frames.insert(frames.end(), part.begin(), part.end());
    }
    return frames;
}

std::vector<MP3FrameSequence::Frame> MP3FrameSequence::ofBytes(const std::uint8_t* data, std::size_t size)
{
    std::vector<Frame> frames;
    std::size_t pos = 0;
    while (pos < size) {
        const auto h = MP3FrameHeader::decode(data + pos, size - pos);
        if (!h || std::size_t(h->frameLength) > size - pos)
            break;
        frames.push_back({data + pos, std::size_t(h->frameLength)});
        pos += std::size_t(h->frameLength);
    }
    return frames;
}

} // namespace folivox
