// The scan on real MP3 bytes made by ffmpeg and then cut, filled or tagged by
// the tests.
#include "container/mp3/MP3FileBytes.h"
#include "container/mp3/MP3IntegrityService.h"
#include "container/mp3/Mp3TestFiles.h"
#include "support/Fixtures.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

using namespace folivox;
using namespace folivox::test;

namespace {

class MP3IntegrityIntegrationTest : public ::testing::Test {
protected:
    QString path(const QString& name) const { return dir_.filePath(name); }

    MP3IntegrityReport scan(const QString& name, const QByteArray& bytes)
    {
        EXPECT_TRUE(Fixtures::writeFile(path(name), bytes));
        auto r = MP3IntegrityService::scanFile(path(name));
        EXPECT_TRUE(r.has_value());
        return r.value_or(MP3IntegrityReport{});
    }

    // Seconds of the audio frames before frame index i (the first frame of
    // an ffmpeg file is its Info frame, which does not play).
    static double timeBefore(int i, int samples, int rate) { return double(i - 1) * samples / rate; }

    // What a hole of n bytes costs after the audio frames before frame k.
    static double missingFor(const std::vector<Mp3TestFiles::Frame>& f, int k, qsizetype n, int samples, int rate)
    {
        qint64 bytes = 0;
        for (int i = 1; i < k; ++i)
            bytes += f[std::size_t(i)].length;
        return double(n) / (double(bytes) / (k - 1)) * samples / rate;
    }

    // Bytes that make a hole of exactly so many seconds' worth after the
    // audio frames before frame k, rounded down or up.
    static qsizetype bytesFor(const std::vector<Mp3TestFiles::Frame>& f, int k, double seconds, bool up, int samples,
                              int rate)
    {
        qint64 bytes = 0;
        for (int i = 1; i < k; ++i)
            bytes += f[std::size_t(i)].length;
        const double exact = seconds * rate / samples * (double(bytes) / (k - 1));
        return up ? qsizetype(std::ceil(exact)) : qsizetype(std::floor(exact));
    }

    QTemporaryDir dir_;
};

} // namespace

TEST_F(MP3IntegrityIntegrationTest, CleanFileMatchesItsInfoFrameAndATrailingTagIsNoDamage)
{
    const QByteArray clean = Mp3TestFiles::make(path("src.mp3"), 20.0, {"-b:a", "128k"});
    const auto frames = Mp3TestFiles::frames(clean);
    ASSERT_GT(frames.size(), 700u);

    const MP3IntegrityReport r = scan("clean.mp3", clean);
    EXPECT_EQ(r.verdict, MP3IntegrityVerdict::clean);
    EXPECT_TRUE(r.holes.empty());
    EXPECT_EQ(r.trailingBytes, 0);
    EXPECT_EQ(r.validFrameCount, qint64(frames.size()) - 1);
    EXPECT_EQ(r.sampleRate, 44100);
    EXPECT_EQ(r.bitrateKbps, 128);
    EXPECT_EQ(r.fileSize, clean.size());
    ASSERT_TRUE(r.claimedDuration.has_value());
    EXPECT_EQ(r.claimedBy, "Xing header");
    EXPECT_DOUBLE_EQ(*r.claimedDuration, r.trueDuration);
    // ffmpeg plays the same frames less the encoder's delay and padding.
    EXPECT_NEAR(Fixtures::decodedDuration(path("clean.mp3")), r.trueDuration, 0.06);

    // ffmpeg's own ID3v1 tag at the end.
    ASSERT_TRUE(Fixtures::ffmpeg({"-f", "lavfi", "-i", "sine=duration=5", "-c:a", "libmp3lame", "-write_id3v1", "1",
                                  "-metadata", "title=Tagged", path("v1.mp3")}));
    const QByteArray v1 = Fixtures::readFile(path("v1.mp3"));
    ASSERT_EQ(v1.mid(v1.size() - 128, 3), "TAG");
    const MP3IntegrityReport t = scan("v1-copy.mp3", v1);
    EXPECT_TRUE(t.holes.empty());
    EXPECT_EQ(t.trailingBytes, 0);
    EXPECT_EQ(t.verdict, MP3IntegrityVerdict::clean);
}

TEST_F(MP3IntegrityIntegrationTest, HolesAreFoundWhereBytesWereInsertedOrCut)
{
    const QByteArray clean = Mp3TestFiles::make(path("src.mp3"), 30.0, {"-b:a", "128k"});
    const auto f = Mp3TestFiles::frames(clean);
    ASSERT_GT(f.size(), 1000u);

    // A run of garbage inserted at the start of frame 300.
    {
        const QByteArray junk = Mp3TestFiles::garbage(5000, 1);
        QByteArray bytes = clean;
        bytes.insert(f[300].offset, junk);
        const MP3IntegrityReport r = scan("inserted.mp3", bytes);
        ASSERT_EQ(r.holes.size(), 1u);
        EXPECT_EQ(r.holes[0].byteOffset, f[300].offset);
        EXPECT_EQ(r.holes[0].byteLength, 5000);
        EXPECT_DOUBLE_EQ(r.holes[0].startTime, timeBefore(300, 1152, 44100));
        EXPECT_NEAR(r.holes[0].missingSeconds, missingFor(f, 300, 5000, 1152, 44100), 1e-9);
        EXPECT_EQ(r.validFrameCount, qint64(f.size()) - 1);
        EXPECT_EQ(r.trailingBytes, 0);
    }
    // Bytes lost from inside frame 400 to inside frame 460: frame 400 is
    // cut short but still counts (its header is where it should be), and the
    // hole runs from where it should have ended to the first whole frame
    // after the cut (frame 461).
    {
        const qsizetype cutFrom = f[400].offset + 300;
        const qsizetype cutTo = f[460].offset + 50;
        QByteArray bytes = clean;
        bytes.remove(cutFrom, cutTo - cutFrom);
        const qsizetype shift = cutTo - cutFrom;
        const MP3IntegrityReport r = scan("lost.mp3", bytes);
        ASSERT_EQ(r.holes.size(), 1u);
        EXPECT_EQ(r.holes[0].byteOffset, f[400].offset + f[400].length);
        EXPECT_EQ(r.holes[0].byteOffset + r.holes[0].byteLength, f[461].offset - shift);
        EXPECT_DOUBLE_EQ(r.holes[0].startTime, timeBefore(401, 1152, 44100));
        EXPECT_EQ(r.validFrameCount, qint64(f.size()) - 1 - 60); // frames 401 to 460
    }
    // Whole frames cut out leave no hole, only a file shorter than its
    // Info frame says.
    {
        QByteArray bytes = clean;
        bytes.remove(f[500].offset, f[540].offset - f[500].offset);
        const MP3IntegrityReport r = scan("frames-cut.mp3", bytes);
        EXPECT_TRUE(r.holes.empty());
        ASSERT_TRUE(r.claimedDuration.has_value());
        EXPECT_NEAR(*r.claimedDuration - r.trueDuration, 40 * 1152.0 / 44100, 1e-9);
    }
    // Trailing junk after the last frame is not a hole.
    {
        QByteArray bytes = clean + Mp3TestFiles::garbage(777, 2);
        const MP3IntegrityReport r = scan("trailing.mp3", bytes);
        EXPECT_TRUE(r.holes.empty());
        EXPECT_EQ(r.trailingBytes, 777);
    }
}

TEST_F(MP3IntegrityIntegrationTest, VerdictThresholdsOnA200SecondFile)
{
    // 200 s of mono at 32 kbps: small enough to make quickly, long enough
    // for the thresholds.
    const QByteArray clean = Mp3TestFiles::make(path("src.mp3"), 200.0, {"-b:a", "32k"}, 44100, 1);
    const auto f = Mp3TestFiles::frames(clean);
    ASSERT_GT(f.size(), 7600u);
    const int k = 3000;

    const auto withZeros = [&](const std::vector<std::pair<int, qsizetype>>& holes) {
        QByteArray bytes = clean;
        // From the back, so earlier offsets stay put.
        for (auto it = holes.rbegin(); it != holes.rend(); ++it)
            bytes.insert(f[std::size_t(it->first)].offset, QByteArray(it->second, '\0'));
        return bytes;
    };

    const qsizetype under = bytesFor(f, k, 0.99, false, 1152, 44100);
    const MP3IntegrityReport a = scan("099.mp3", withZeros({{k, under}}));
    ASSERT_EQ(a.holes.size(), 1u);
    EXPECT_LT(a.holes[0].missingSeconds, 0.99 + 1e-9);
    EXPECT_GT(a.holes[0].missingSeconds, 0.98);
    EXPECT_EQ(a.verdict, MP3IntegrityVerdict::clean);

    const qsizetype one = bytesFor(f, k, 1.0, true, 1152, 44100);
    const MP3IntegrityReport b = scan("100.mp3", withZeros({{k, one}}));
    ASSERT_EQ(b.holes.size(), 1u);
    EXPECT_GE(b.holes[0].missingSeconds, 1.0);
    EXPECT_EQ(b.verdict, MP3IntegrityVerdict::damaged);

    // Ten holes of 0.1 s: 0.5 % of the file stays clean. Ten of 0.201 s
    // (each far below a second) add up to just over 1 %: damaged.
    for (const auto& [each, verdict] : {std::pair{0.1, MP3IntegrityVerdict::clean},
                                        std::pair{0.201, MP3IntegrityVerdict::damaged}}) {
        std::vector<std::pair<int, qsizetype>> holes;
        for (int i = 0; i < 10; ++i) {
            const int at = 500 + i * 700;
            holes.emplace_back(at, bytesFor(f, at, each, true, 1152, 44100));
        }
        const MP3IntegrityReport r = scan(QStringLiteral("many-%1.mp3").arg(each), withZeros(holes));
        ASSERT_EQ(r.holes.size(), 10u);
        for (std::size_t i = 0; i < holes.size(); ++i) {
            qsizetype before = 0;
            for (std::size_t j = 0; j < i; ++j)
                before += holes[j].second;
            EXPECT_EQ(r.holes[i].byteOffset, f[std::size_t(holes[i].first)].offset + before);
            EXPECT_EQ(r.holes[i].byteLength, holes[i].second);
        }
        EXPECT_NEAR(r.missingSeconds() / r.trueDuration, each * 10 / 200.0, 0.0002);
        EXPECT_EQ(r.verdict, verdict) << each;
    }
}

TEST_F(MP3IntegrityIntegrationTest, FilesWithoutALockAreUnknown)
{
    const QByteArray clean = Mp3TestFiles::make(path("src.mp3"), 2.0, {"-b:a", "64k", "-metadata", "title=Only tag"});
    const auto f = Mp3TestFiles::frames(clean);
    ASSERT_FALSE(f.empty());
    const MP3IntegrityReport r = scan("id3-only.mp3", clean.left(f[0].offset));
    EXPECT_EQ(r.verdict, MP3IntegrityVerdict::unknown);
    EXPECT_EQ(r.validFrameCount, 0);
    EXPECT_FALSE(r.sampleRate.has_value());

    // A frame of 44.1 kHz followed by frames of 48 kHz: the head is no lock;
    // the lock is found on the 48 kHz frames, and the lone frame is neither
    // audio nor a hole.
    const QByteArray other = Mp3TestFiles::make(path("48k.mp3"), 2.0, {"-b:a", "64k"}, 48000);
    const auto g = Mp3TestFiles::frames(other);
    ASSERT_GT(g.size(), 10u);
    const QByteArray mixed = clean.mid(f[1].offset, f[1].length) + other.mid(g[1].offset);
    const MP3IntegrityReport m = scan("mixed.mp3", mixed);
    EXPECT_EQ(m.sampleRate, 48000);
    EXPECT_EQ(m.validFrameCount, qint64(g.size()) - 1);
    EXPECT_TRUE(m.holes.empty());
}

TEST_F(MP3IntegrityIntegrationTest, Mpeg2AndMpeg25FilesUseTheirOwnFrameSizes)
{
    for (const int rate : {22050, 24000, 16000, 11025, 8000}) {
        const QString name = QStringLiteral("r%1.mp3").arg(rate);
        const QByteArray clean = Mp3TestFiles::make(path(name), 6.0, {"-b:a", "32k"}, rate, 1);
        const auto f = Mp3TestFiles::frames(clean);
        ASSERT_GT(f.size(), 50u) << rate;
        QByteArray bytes = clean;
        bytes.insert(f[40].offset, Mp3TestFiles::garbage(300, 3));
        const MP3IntegrityReport r = scan(QStringLiteral("hole-") + name, bytes);
        EXPECT_EQ(r.sampleRate, rate);
        EXPECT_EQ(r.validFrameCount, qint64(f.size()) - 1) << rate;
        ASSERT_EQ(r.holes.size(), 1u) << rate;
        EXPECT_EQ(r.holes[0].byteOffset, f[40].offset);
        EXPECT_EQ(r.holes[0].byteLength, 300);
        EXPECT_DOUBLE_EQ(r.holes[0].startTime, timeBefore(40, 576, rate));
        EXPECT_NEAR(r.trueDuration, double(f.size() - 1) * 576 / rate, 1e-9);
        // ffmpeg leaves out the encoder's delay and padding: under two frames.
        EXPECT_NEAR(Fixtures::decodedDuration(path(name)), r.trueDuration, 2 * 1152.0 / rate) << rate;
    }
}

TEST_F(MP3IntegrityIntegrationTest, VbrFileWithXingHeaderAndApeTags)
{
    const QByteArray clean = Mp3TestFiles::make(path("vbr.mp3"), 12.0, {"-q:a", "2"}, 44100, 2, true);
    const auto f = Mp3TestFiles::frames(clean);
    ASSERT_GT(f.size(), 400u);
    int sizes = 0;
    for (std::size_t i = 2; i < f.size(); ++i)
        sizes += f[i].length != f[1].length;
    ASSERT_GT(sizes, 0) << "frames of one size: not VBR";

    QByteArray bytes = clean;
    bytes.insert(f[200].offset, Mp3TestFiles::garbage(2345, 4));
    const MP3IntegrityReport r = scan("vbr-hole.mp3", bytes);
    EXPECT_EQ(r.claimedBy, "Xing header");
    ASSERT_EQ(r.holes.size(), 1u);
    EXPECT_EQ(r.holes[0].byteOffset, f[200].offset);
    EXPECT_EQ(r.holes[0].byteLength, 2345);
    EXPECT_NEAR(r.holes[0].missingSeconds, missingFor(f, 200, 2345, 1152, 44100), 1e-9);
    EXPECT_DOUBLE_EQ(*r.claimedDuration, r.trueDuration);

    // APEv2 with header and footer, and an APEv1-style tag with a footer
    // only, at the end: neither is damage nor trailing bytes.
    const auto apeBlock = [](quint32 size, quint32 flags) {
        QByteArray b("APETAGEX");
        for (quint32 v : {2000u, size, 1u, flags}) {
            for (int i = 0; i < 4; ++i)
                b.append(char((v >> (8 * i)) & 0xFF));
        }
        return b + QByteArray(8, '\0');
    };
    QByteArray item;
    for (quint32 v : {5u, 0u})
        for (int i = 0; i < 4; ++i)
            item.append(char((v >> (8 * i)) & 0xFF));
    item += QByteArray("Title\0Hello", 11);
    const quint32 size = quint32(item.size() + 32);
    const QByteArray v2 = apeBlock(size, 0xA0000000u) + item + apeBlock(size, 0x80000000u);
    const QByteArray v1 = item + apeBlock(size, 0u);
    for (const auto& tag : {v2, v1}) {
        const MP3IntegrityReport t = scan("ape.mp3", clean + tag);
        EXPECT_TRUE(t.holes.empty());
        EXPECT_EQ(t.trailingBytes, 0);
        EXPECT_EQ(t.verdict, MP3IntegrityVerdict::clean);
    }
    // Junk before a footer-only tag is still trailing junk.
    const MP3IntegrityReport j = scan("ape-junk.mp3", clean + Mp3TestFiles::garbage(99, 5) + v1);
    EXPECT_EQ(j.trailingBytes, 99);
}

TEST_F(MP3IntegrityIntegrationTest, CancelledAtTheFirstMebibyteGivesNoReport)
{
    const QByteArray clean = Mp3TestFiles::make(path("big.mp3"), 200.0, {"-b:a", "128k"});
    ASSERT_GT(clean.size(), 3 * 1048576);
    int checks = 0;
    EXPECT_FALSE(MP3IntegrityService::scanFile(path("big.mp3"), [&] {
                     ++checks;
                     return true;
                 }).has_value());
    EXPECT_EQ(checks, 1);

    checks = 0;
    const auto full = MP3IntegrityService::scanFile(path("big.mp3"), [&] {
        ++checks;
        return false;
    });
    ASSERT_TRUE(full.has_value());
    EXPECT_EQ(checks, clean.size() / 1048576);

    // Read into memory, as on a network volume: the same report.
    const auto read = MP3IntegrityService::scanFile(path("big.mp3"), {}, MP3FileBytes::Placement::remote);
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(*read, *full);
}
