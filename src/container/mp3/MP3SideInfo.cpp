#include "container/mp3/MP3SideInfo.h"

namespace folivox {

namespace {

// Reads big-endian bit fields.
class BitReader {
public:
    explicit BitReader(const std::uint8_t* p) : p_(p) {}
    int read(int bits)
    {
        int v = 0;
        for (int i = 0; i < bits; ++i, ++pos_)
            v = (v << 1) | ((p_[pos_ >> 3] >> (7 - (pos_ & 7))) & 1);
        return v;
    }
    void skip(int bits) { pos_ += std::size_t(bits); }

private:
    const std::uint8_t* p_;
    std::size_t pos_ = 0;
};

} // namespace

std::optional<MP3SideInfo> MP3SideInfo::parse(const std::uint8_t* frame, std::size_t length, const MP3FrameHeader& h)
{
    MP3SideInfo s;
    s.offset = h.crcProtected ? 6 : 4;
    s.length = h.sideInfoLength() - (h.crcProtected ? 2 : 0);
    s.areaLength = h.frameLength - s.offset - s.length;
    if (s.areaLength < 0 || length < std::size_t(s.offset + s.length))
        return std::nullopt;
    const bool mpeg1 = h.version == MP3FrameHeader::Version::mpeg1;
    const int channels = h.channelMode == 3 ? 1 : 2;
    BitReader r(frame + s.offset);
    if (mpeg1) {
        s.mainDataBegin = r.read(9);
        r.skip(channels == 1 ? 5 : 3); // private bits
        r.skip(4 * channels);          // scale factor selection
    } else {
        s.mainDataBegin = r.read(8);
        r.skip(channels == 1 ? 1 : 2);
    }
    // After part2_3_length: big_values 9, global_gain 8, scalefac_compress
    // (4 in MPEG 1, 9 otherwise), the window switching flag 1 and the 22 bits
    // either of its branches takes, then preflag (MPEG 1 only),
    // scalefac_scale and count1table_select.
    const int rest = mpeg1 ? 9 + 8 + 4 + 1 + 22 + 3 : 9 + 8 + 9 + 1 + 22 + 2;
    for (int granule = 0; granule < (mpeg1 ? 2 : 1); ++granule) {
        for (int ch = 0; ch < channels; ++ch) {
            s.mainDataBits += r.read(12);
            r.skip(rest);
        }
    }
    return s;
}

void MP3SideInfo::setMainDataBegin(std::uint8_t* frame, const MP3FrameHeader& h, int value)
{
    std::uint8_t* p = frame + (h.crcProtected ? 6 : 4);
    if (h.version == MP3FrameHeader::Version::mpeg1) {
        p[0] = std::uint8_t(value >> 1);
        p[1] = std::uint8_t((p[1] & 0x7F) | ((value & 1) << 7));
    } else {
        p[0] = std::uint8_t(value);
    }
}

} // namespace folivox
