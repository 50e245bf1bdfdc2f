// Side information read from frames whose bits the test lays down itself,
// field by field as the Layer III syntax orders them.
#include "container/mp3/MP3SideInfo.h"

#include <gtest/gtest.h>

#include <vector>

using namespace folivox;

namespace {

class BitWriter {
public:
    void put(int value, int bits)
    {
        for (int i = bits - 1; i >= 0; --i) {
            if (pos_ / 8 >= bytes_.size())
                bytes_.push_back(0);
            if ((value >> i) & 1)
                bytes_[pos_ / 8] |= std::uint8_t(0x80 >> (pos_ % 8));
            ++pos_;
        }
    }
    std::vector<std::uint8_t> bytes() const { return bytes_; }

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t pos_ = 0;
};

// A whole frame: the header bytes, then side information with these
// main_data_begin and part2_3_length values (every other field set to ones,
// so that a reader off by a bit reads a different length).
std::vector<std::uint8_t> frame(std::vector<std::uint8_t> header, bool mpeg1, int channels, int mainDataBegin,
                                const std::vector<int>& part23)
{
    BitWriter w;
    if (mpeg1) {
        w.put(mainDataBegin, 9);
        w.put(channels == 1 ? 0x1F : 0x7, channels == 1 ? 5 : 3);
        w.put((1 << (4 * channels)) - 1, 4 * channels);
    } else {
        w.put(mainDataBegin, 8);
        w.put(channels == 1 ? 1 : 3, channels == 1 ? 1 : 2);
    }
    for (const int p : part23) {
        w.put(p, 12);
        const int rest = mpeg1 ? 59 - 12 : 63 - 12;
        for (int i = 0; i < rest; ++i)
            w.put(1, 1);
    }
    std::vector<std::uint8_t> out = std::move(header);
    const auto side = w.bytes();
    out.insert(out.end(), side.begin(), side.end());
    const auto h = MP3FrameHeader::decode(out.data(), out.size());
    out.resize(std::size_t(h->frameLength), 0);
    return out;
}

} // namespace

TEST(MP3SideInfoTest, ReadsMainDataBeginAndLengthForEachLayout)
{
    // MPEG 1 joint stereo, 128 kbps at 44.1 kHz: two granules of two channels.
    auto f = frame({0xFF, 0xFB, 0x90, 0x44}, true, 2, 300, {100, 200, 300, 405});
    auto h = MP3FrameHeader::decode(f.data(), f.size());
    auto s = MP3SideInfo::parse(f.data(), f.size(), *h);
    ASSERT_TRUE(s);
    EXPECT_EQ(s->offset, 4);
    EXPECT_EQ(s->length, 32);
    EXPECT_EQ(s->mainDataBegin, 300);
    EXPECT_EQ(s->mainDataBits, 1005);
    EXPECT_EQ(s->mainDataBytes(), 126);
    EXPECT_EQ(s->areaLength, 417 - 36);

    // Rewriting main_data_begin touches nothing else; 511 is the largest.
    MP3SideInfo::setMainDataBegin(f.data(), *h, 511);
    s = MP3SideInfo::parse(f.data(), f.size(), *h);
    EXPECT_EQ(s->mainDataBegin, 511);
    EXPECT_EQ(s->mainDataBits, 1005);
    MP3SideInfo::setMainDataBegin(f.data(), *h, 0);
    EXPECT_EQ(MP3SideInfo::parse(f.data(), f.size(), *h)->mainDataBegin, 0);
    EXPECT_EQ(MP3SideInfo::maxMainDataBegin(h->version), 511);

    // MPEG 1 mono: 17 bytes of side information, two granules of one channel.
    f = frame({0xFF, 0xFB, 0x90, 0xC4}, true, 1, 7, {1000, 24});
    h = MP3FrameHeader::decode(f.data(), f.size());
    s = MP3SideInfo::parse(f.data(), f.size(), *h);
    EXPECT_EQ(s->length, 17);
    EXPECT_EQ(s->mainDataBegin, 7);
    EXPECT_EQ(s->mainDataBits, 1024);

    // MPEG 2 stereo at 22.05 kHz, 64 kbps: one granule, an 8-bit
    // main_data_begin.
    f = frame({0xFF, 0xF3, 0x80, 0x44}, false, 2, 255, {333, 444});
    h = MP3FrameHeader::decode(f.data(), f.size());
    s = MP3SideInfo::parse(f.data(), f.size(), *h);
    EXPECT_EQ(s->length, 17);
    EXPECT_EQ(s->mainDataBegin, 255);
    EXPECT_EQ(s->mainDataBits, 777);
    MP3SideInfo::setMainDataBegin(f.data(), *h, 9);
    EXPECT_EQ(MP3SideInfo::parse(f.data(), f.size(), *h)->mainDataBegin, 9);
    EXPECT_EQ(MP3SideInfo::parse(f.data(), f.size(), *h)->mainDataBits, 777);
    EXPECT_EQ(MP3SideInfo::maxMainDataBegin(h->version), 255);

    // MPEG 2.5 mono, with a CRC after the header: the side information
    // starts two bytes later.
    f = frame({0xFF, 0xE2, 0x80, 0xC0, 0x12, 0x34}, false, 1, 42, {2047});
    h = MP3FrameHeader::decode(f.data(), f.size());
    ASSERT_TRUE(h->crcProtected);
    s = MP3SideInfo::parse(f.data(), f.size(), *h);
    EXPECT_EQ(s->offset, 6);
    EXPECT_EQ(s->length, 9);
    EXPECT_EQ(s->mainDataBegin, 42);
    EXPECT_EQ(s->mainDataBits, 2047);

    // Too few bytes for the side information.
    EXPECT_FALSE(MP3SideInfo::parse(f.data(), 10, *h));
}
