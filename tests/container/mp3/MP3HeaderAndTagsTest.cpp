#include "container/mp3/MP3FrameCopyWriter.h"
#include "container/mp3/MP3FrameHeader.h"
#include "container/mp3/MP3FrameScanner.h"
#include "container/mp3/MP3IntegrityReport.h"
#include "container/mp3/MP3TagLocator.h"

#include <QByteArray>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

std::optional<MP3FrameHeader> header(std::uint8_t b1, std::uint8_t b2, std::uint8_t b3 = 0x00)
{
    const std::uint8_t bytes[4] = {0xFF, b1, b2, b3};
    return MP3FrameHeader::decode(bytes, 4);
}

const std::uint8_t* u(const QByteArray& b)
{
    return reinterpret_cast<const std::uint8_t*>(b.constData());
}

} // namespace

TEST(MP3FrameHeaderTest, DecodesLayerThreeOnlyWithTheFrameLengthFormulas)
{
    // MPEG 1, 128 kbps, 44.1 kHz, without and with padding; joint stereo.
    auto h = header(0xFB, 0x90, 0x64);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->version, MP3FrameHeader::Version::mpeg1);
    EXPECT_EQ(h->bitrateKbps, 128);
    EXPECT_EQ(h->sampleRate, 44100);
    EXPECT_EQ(h->frameLength, 417); // 144 * 128000 / 44100 = 417.96, truncated
    EXPECT_EQ(h->samplesPerFrame, 1152);
    EXPECT_EQ(h->channelMode, 1);
    EXPECT_EQ(header(0xFB, 0x92)->frameLength, 418);
    // MPEG 1, 320 kbps at 32 kHz: 1440 bytes.
    EXPECT_EQ(header(0xFB, 0xE8)->frameLength, 1440);
    // MPEG 2, 8 kbps at 22.05 kHz: 72 * 8000 / 22050 = 26.1 -> 26; mono.
    h = header(0xF3, 0x10, 0xC0);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->version, MP3FrameHeader::Version::mpeg2);
    EXPECT_EQ(h->frameLength, 26);
    EXPECT_EQ(h->samplesPerFrame, 576);
    EXPECT_EQ(h->channelMode, 3);
    // MPEG 2.5, 160 kbps at 8 kHz: 72 * 160000 / 8000 = 1440.
    h = header(0xE3, 0xE8);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->version, MP3FrameHeader::Version::mpeg25);
    EXPECT_EQ(h->sampleRate, 8000);
    EXPECT_EQ(h->frameLength, 1440);

    EXPECT_FALSE(header(0xEB, 0x90));  // version 01 is reserved
    EXPECT_FALSE(header(0xFD, 0x90));  // Layer II
    EXPECT_FALSE(header(0xFF, 0x90));  // Layer I
    EXPECT_FALSE(header(0xF9, 0x90));  // layer 00 is reserved
    EXPECT_FALSE(header(0xFB, 0xF0));  // bitrate index 15
    EXPECT_FALSE(header(0xFB, 0x00));  // bitrate index 0: free format, no length
    EXPECT_FALSE(header(0xFB, 0x9C));  // sample-rate index 3
    EXPECT_FALSE(header(0xDB, 0x90));  // byte 1 below 0xE0
    const std::uint8_t three[3] = {0xFF, 0xFB, 0x90};
    EXPECT_FALSE(MP3FrameHeader::decode(three, 3));
}

TEST(MP3TagLocatorTest, SizesOfId3v2Id3v1AndApeTags)
{
    // ID3v2 with a syncsafe size of 0x0201 (257) -> 267 bytes; with the
    // footer flag 277. A size byte with its high bit set is no tag.
    QByteArray id3("ID3\x04\x00\x00\x00\x00\x02\x01", 10);
    id3 += QByteArray(400, '\0');
    auto span = MP3TagLocator::tagAt(u(id3), std::size_t(id3.size()), 0);
    ASSERT_TRUE(span);
    EXPECT_EQ(span->end, 267u);
    id3[5] = 0x10;
    EXPECT_EQ(MP3TagLocator::tagAt(u(id3), std::size_t(id3.size()), 0)->end, 277u);
    id3[8] = char(0x82);
    EXPECT_FALSE(MP3TagLocator::tagAt(u(id3), std::size_t(id3.size()), 0));
    // A tag that claims more than the file holds ends with the file.
    QByteArray cut("ID3\x03\x00\x00\x00\x00\x7F\x7F", 10);
    EXPECT_EQ(MP3TagLocator::tagAt(u(cut), 10, 0)->end, 10u);

    // "TAG" needs its 128 bytes at hand.
    QByteArray v1 = QByteArray(10, 'x') + "TAG" + QByteArray(125, ' ');
    EXPECT_EQ(MP3TagLocator::tagAt(u(v1), std::size_t(v1.size()), 10)->end, 138u);
    EXPECT_FALSE(MP3TagLocator::tagAt(u(v1), std::size_t(v1.size()) - 1, 10));

    // APE: size 100 counts the items and the footer. From the header the tag
    // runs 132 bytes; from a footer it began 68 bytes before the footer (and
    // 32 more when the flags say it has a header).
    const auto block = [](quint32 size, quint32 flags) {
        QByteArray b("APETAGEX");
        for (quint32 v : {2000u, size, 0u, flags})
            for (int i = 0; i < 4; ++i)
                b.append(char((v >> (8 * i)) & 0xFF));
        return b + QByteArray(8, '\0');
    };
    QByteArray ape = QByteArray(200, 'x');
    ape.replace(50, 32, block(100, 0xA0000000u));
    auto a = MP3TagLocator::tagAt(u(ape), std::size_t(ape.size()), 50);
    ASSERT_TRUE(a);
    EXPECT_EQ(a->start, 50u);
    EXPECT_EQ(a->end, 182u);
    ape.replace(150, 32, block(100, 0x00000000u));
    a = MP3TagLocator::tagAt(u(ape), std::size_t(ape.size()), 150);
    EXPECT_EQ(a->start, 82u);
    EXPECT_EQ(a->end, 182u);
    ape.replace(150, 32, block(100, 0x80000000u));
    EXPECT_EQ(MP3TagLocator::tagAt(u(ape), std::size_t(ape.size()), 150)->start, 50u);
    ape.replace(150, 32, block(12, 0u)); // smaller than its own footer
    EXPECT_FALSE(MP3TagLocator::tagAt(u(ape), std::size_t(ape.size()), 150));

    // TLEN in an ID3v2.3 tag: "183500" ms.
    QByteArray tlen("TLEN\x00\x00\x00\x07\x00\x00\x00" "183500", 17);
    QByteArray tag = QByteArray("ID3\x03\x00\x00\x00\x00\x00", 9) + char(tlen.size() + 10) + tlen + QByteArray(10, '\0');
    EXPECT_DOUBLE_EQ(*MP3TagLocator::id3v2Length(u(tag), std::size_t(tag.size())), 183.5);
}

TEST(MP3IntegrityReportTest, VerdictRules)
{
    using V = MP3IntegrityVerdict;
    const auto hole = [](double s) { return MP3IntegrityHole{0, 10, 0, s}; };
    EXPECT_EQ(MP3IntegrityReport::judge(false, {}, 0), V::unknown);
    EXPECT_EQ(MP3IntegrityReport::judge(true, {}, 100), V::clean);
    EXPECT_EQ(MP3IntegrityReport::judge(true, {hole(0.99)}, 200), V::clean);
    EXPECT_EQ(MP3IntegrityReport::judge(true, {hole(1.0)}, 200), V::damaged);
    EXPECT_EQ(MP3IntegrityReport::judge(true, {hole(0.5), hole(0.49)}, 100), V::clean);
    EXPECT_EQ(MP3IntegrityReport::judge(true, {hole(0.5), hole(0.5)}, 100), V::damaged);
    // A one-hour file: 36 s in small holes is damage, 35 s is not.
    std::vector<MP3IntegrityHole> small(36, hole(0.999));
    EXPECT_EQ(MP3IntegrityReport::judge(true, small, 3600), V::clean);
    small.push_back(hole(0.1));
    EXPECT_EQ(MP3IntegrityReport::judge(true, small, 3600), V::damaged);
    EXPECT_EQ(MP3IntegrityReport::judge(true, {hole(0.5)}, 0), V::clean);

    MP3IntegrityReport r;
    r.url = QUrl::fromLocalFile("/book/a.mp3");
    r.holes = {hole(0.25), hole(0.5)};
    r.verdict = V::damaged;
    r.claimedDuration = 12.5;
    EXPECT_EQ(MP3IntegrityReport::fromJson(r.toJson()), r);
    EXPECT_FALSE(r.toJson().contains("sampleRate"));
}

TEST(MP3FrameScannerTest, SynthesisedStreamsLockOnlyOnMatchingPairs)
{
    // Frames made of a header and silence: MPEG 1 128 kbps 44.1 kHz (417
    // bytes) and the same at 48 kHz (384 bytes).
    const auto frames = [](int n, std::uint8_t b2, int length) {
        QByteArray out;
        for (int i = 0; i < n; ++i)
            out += QByteArray("\xFF\xFB", 2) + char(b2) + char(0x44) + QByteArray(length - 4, '\0');
        return out;
    };
    const QByteArray a = frames(1, 0x90, 417);
    const QByteArray b = frames(50, 0x94, 384);
    const QByteArray bytes = a + b;
    auto r = MP3FrameScanner::scan(u(bytes), std::size_t(bytes.size()));
    ASSERT_TRUE(r);
    EXPECT_TRUE(r->locked);
    EXPECT_EQ(r->sampleRate, 48000);
    EXPECT_EQ(r->validFrameCount, 50);
    ASSERT_EQ(r->audioRuns.size(), 1u);
    EXPECT_EQ(r->audioRuns[0].start, 417u);

    // A single frame is no lock; nor is nothing at all.
    r = MP3FrameScanner::scan(u(a), std::size_t(a.size()));
    EXPECT_FALSE(r->locked);
    r = MP3FrameScanner::scan(nullptr, 0);
    EXPECT_FALSE(r->locked);

    // After the lock a frame of another rate ends the run: the 44.1 kHz
    // frames in the middle are a hole, not audio.
    const QByteArray mixed = b + frames(3, 0x90, 417) + b;
    r = MP3FrameScanner::scan(u(mixed), std::size_t(mixed.size()));
    ASSERT_EQ(r->holes.size(), 1u);
    EXPECT_EQ(r->holes[0].byteOffset, b.size());
    EXPECT_EQ(r->holes[0].byteLength, 3 * 417);
    EXPECT_EQ(r->validFrameCount, 100);
    EXPECT_DOUBLE_EQ(r->holes[0].missingSeconds, 3.0 * 417 / 384 * 1152 / 48000);
}

TEST(MP3FrameCopyWriterTest, AnInfoFrameTooSmallForItsFieldsIsReplaced)
{
    // MPEG 2, 8 kbps, 22.05 kHz mono frames of 26 bytes; the first says
    // "Info" with all four fields, which cannot fit in it.
    QByteArray bytes;
    for (int i = 0; i < 20; ++i)
        bytes += QByteArray("\xFF\xF3\x10\xC0", 4) + QByteArray(22, '\0');
    bytes.replace(13, 8, QByteArray("Info\0\0\0\x0F", 8));
    const auto scan = MP3FrameScanner::scan(u(bytes), std::size_t(bytes.size()));
    ASSERT_TRUE(scan && scan->infoFrame);
    EXPECT_EQ(scan->validFrameCount, 19);

    const QByteArray info = MP3FrameCopyWriter::infoFrame(u(bytes), *scan);
    const auto h = MP3FrameHeader::decode(u(info), std::size_t(info.size()));
    ASSERT_TRUE(h);
    EXPECT_EQ(h->frameLength, info.size());
    EXPECT_EQ(h->sampleRate, 22050);
    EXPECT_EQ(h->channelMode, 3);
    const auto parsed = MP3InfoFrame::parse(u(info), std::size_t(info.size()), *h);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->kind, MP3InfoFrame::Kind::info); // one bitrate throughout
    EXPECT_EQ(parsed->frames, 19u);
    EXPECT_EQ(parsed->bytes, std::uint32_t(info.size() + 19 * 26));
}
