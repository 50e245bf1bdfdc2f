#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace folivox {

// The four-byte header of an MPEG audio Layer III frame. Only Layer III is
// accepted; a header with a reserved version, bitrate or sample rate, or with
// bitrate index 0 (free format, whose length the header does not give), is not
// a frame.
struct MP3FrameHeader {
    enum class Version { mpeg1, mpeg2, mpeg25 };

    Version version = Version::mpeg1;
    int bitrateIndex = 0;
    int bitrateKbps = 0;
    int sampleRateIndex = 0;
    int sampleRate = 0;
    bool padding = false;
    bool crcProtected = false;
    int channelMode = 0; // 0 stereo, 1 joint stereo, 2 dual channel, 3 mono
    int frameLength = 0; // bytes, header included
    int samplesPerFrame = 0;

    // The header at p, given `available` bytes from p on; nothing when fewer
    // than four bytes are at hand or they are not a Layer III header.
    static std::optional<MP3FrameHeader> decode(const std::uint8_t* p, std::size_t available);

    // Frame length in bytes for these values: 144 * kbps * 1000 / rate +
    // padding for MPEG 1, 72 * kbps * 1000 / rate + padding otherwise, in
    // integer arithmetic.
    static int frameLengthFor(Version version, int bitrateKbps, int sampleRate, bool padding);
    // The bitrate of an index (1..14) for a version; 0 outside that range.
    static int bitrateFor(Version version, int bitrateIndex);

    // Two frames belong to one stream when version and sample rate agree.
    bool sameStream(const MP3FrameHeader& other) const
    {
        return version == other.version && sampleRate == other.sampleRate;
    }
    // Bytes of side information after the header (and its CRC, if any).
    int sideInfoLength() const;
    double seconds() const { return double(samplesPerFrame) / double(sampleRate); }
};

} // namespace folivox
