#pragma once

#include "container/mp3/MP3FrameHeader.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace folivox {

// The encoder's information frame at the head of an MP3: a frame that holds
// no audio but a Xing ("Xing" for VBR, "Info" for CBR) or VBRI header with the
// stream's frame and byte counts, often followed by a LAME extension.
struct MP3InfoFrame {
    enum class Kind { xing, info, vbri };

    static constexpr int kXingFlagFrames = 0x1;
    static constexpr int kXingFlagBytes = 0x2;
    static constexpr int kXingFlagToc = 0x4;
    static constexpr int kXingFlagQuality = 0x8;
    // Bytes from the Xing tag to the LAME extension when all four fields are
    // present, and the length of that extension.
    static constexpr int kLameOffset = 120;
    static constexpr int kLameLength = 36;

    Kind kind = Kind::xing;
    int tagOffset = 0; // from the start of the frame
    std::uint32_t flags = 0;
    std::optional<std::uint32_t> frames; // audio frames, this one not counted
    std::optional<std::uint32_t> bytes;  // stream bytes, this frame included
    bool lame = false;                   // a LAME-style extension follows
    // From the LAME extension: samples the encoder put before the audio, and
    // samples of silence it added after it to fill the last frame.
    std::optional<int> encoderDelay;
    std::optional<int> encoderPadding;

    // Samples a decoder adds in front of its output on its own, which a
    // gapless decoder drops along with the encoder's delay (and gives back at
    // the end, out of the padding).
    static constexpr int kDecoderDelay = 529;

    // The information frame in this frame (whose header is h), if it is one.
    static std::optional<MP3InfoFrame> parse(const std::uint8_t* frame, std::size_t length, const MP3FrameHeader& h);
};

} // namespace folivox
