#include "container/mp3/MP3InfoFrame.h"

#include <cstring>

namespace folivox {

namespace {

std::uint32_t bigEndian32(const std::uint8_t* p)
{
    return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) | p[3];
}

} // namespace

std::optional<MP3InfoFrame> MP3InfoFrame::parse(const std::uint8_t* frame, std::size_t length, const MP3FrameHeader& h)
{
    const std::size_t xing = 4 + std::size_t(h.sideInfoLength());
    if (length >= xing + 8 && (std::memcmp(frame + xing, "Xing", 4) == 0 || std::memcmp(frame + xing, "Info", 4) == 0)) {
        MP3InfoFrame info;
        info.kind = frame[xing] == 'X' ? Kind::xing : Kind::info;
        info.tagOffset = int(xing);
        info.flags = bigEndian32(frame + xing + 4);
        std::size_t at = xing + 8;
        if (info.flags & kXingFlagFrames) {
            if (at + 4 > length)
                return info;
            info.frames = bigEndian32(frame + at);
            at += 4;
        }
        if (info.flags & kXingFlagBytes) {
            if (at + 4 > length)
                return info;
            info.bytes = bigEndian32(frame + at);
        }
        const std::size_t lame = xing + kLameOffset;
        const bool allFields = (info.flags & 0xF) == 0xF;
        if (allFields && lame + kLameLength <= length) {
            // An encoder name of printable characters marks the extension.
            bool printable = true;
            for (int i = 0; i < 4; ++i)
                printable = printable && frame[lame + i] >= 0x20 && frame[lame + i] < 0x7F;
            info.lame = printable;
            if (printable) {
                // Twelve bits of delay and twelve of padding, 21 bytes in.
                const std::uint8_t* d = frame + lame + 21;
                info.encoderDelay = (int(d[0]) << 4) | (d[1] >> 4);
                info.encoderPadding = ((int(d[1]) & 0x0F) << 8) | d[2];
            }
        }
        return info;
    }
    // VBRI sits 32 bytes after the header whatever the channel mode.
    if (length >= 36 + 18 && std::memcmp(frame + 36, "VBRI", 4) == 0) {
        MP3InfoFrame info;
        info.kind = Kind::vbri;
        info.tagOffset = 36;
        info.bytes = bigEndian32(frame + 36 + 10);
        info.frames = bigEndian32(frame + 36 + 14);
        return info;
    }
    return std::nullopt;
}

} // namespace folivox
