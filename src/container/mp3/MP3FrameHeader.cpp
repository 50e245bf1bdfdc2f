#include "container/mp3/MP3FrameHeader.h"

namespace folivox {

namespace {

constexpr int kBitratesV1[16] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0};
constexpr int kBitratesV2[16] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0};
constexpr int kRatesV1[3] = {44100, 48000, 32000};
constexpr int kRatesV2[3] = {22050, 24000, 16000};
constexpr int kRatesV25[3] = {11025, 12000, 8000};

} // namespace

int MP3FrameHeader::bitrateFor(Version version, int bitrateIndex)
{
    if (bitrateIndex < 1 || bitrateIndex > 14)
        return 0;
    return version == Version::mpeg1 ? kBitratesV1[bitrateIndex] : kBitratesV2[bitrateIndex];
}

int MP3FrameHeader::frameLengthFor(Version version, int bitrateKbps, int sampleRate, bool padding)
{
    const int factor = version == Version::mpeg1 ? 144 : 72;
    return factor * bitrateKbps * 1000 / sampleRate + (padding ? 1 : 0);
}

std::optional<MP3FrameHeader> MP3FrameHeader::decode(const std::uint8_t* p, std::size_t available)
{
    if (available < 4 || p[0] != 0xFF || p[1] < 0xE0)
        return std::nullopt;
    const int versionBits = (p[1] >> 3) & 3;
    const int layerBits = (p[1] >> 1) & 3;
    const int bitrateIndex = p[2] >> 4;
    const int rateIndex = (p[2] >> 2) & 3;
    if (versionBits == 1 || layerBits != 1 || bitrateIndex == 15 || bitrateIndex == 0 || rateIndex == 3)
        return std::nullopt;

    MP3FrameHeader h;
    h.version = versionBits == 3 ? Version::mpeg1 : versionBits == 2 ? Version::mpeg2 : Version::mpeg25;
    h.bitrateIndex = bitrateIndex;
    h.bitrateKbps = bitrateFor(h.version, bitrateIndex);
    h.sampleRateIndex = rateIndex;
    h.sampleRate = h.version == Version::mpeg1 ? kRatesV1[rateIndex]
        : h.version == Version::mpeg2          ? kRatesV2[rateIndex]
                                               : kRatesV25[rateIndex];
    h.padding = (p[2] >> 1) & 1;
    h.crcProtected = (p[1] & 1) == 0;
    h.channelMode = p[3] >> 6;
    h.frameLength = frameLengthFor(h.version, h.bitrateKbps, h.sampleRate, h.padding);
    h.samplesPerFrame = h.version == Version::mpeg1 ? 1152 : 576;
    return h;
}

int MP3FrameHeader::sideInfoLength() const
{
    const bool mono = channelMode == 3;
    const int side = version == Version::mpeg1 ? (mono ? 17 : 32) : (mono ? 9 : 17);
    return side + (crcProtected ? 2 : 0);
}

} // namespace folivox
