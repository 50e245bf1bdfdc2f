// Splicing re-encoded frames into an MP3 on real streams from ffmpeg: the
// main data map of a LAME stream, the choice of frames to replace, the
// repacking of a stretch's bit reservoir, and the frame copy with the
// stretch in it, each checked by decoding the result with ffmpeg.
#include "container/mp3/MP3FrameCopyWriter.h"
#include "container/mp3/MP3FrameScanner.h"
#include "container/mp3/MP3FrameSequence.h"
#include "container/mp3/MP3InfoFrame.h"
#include "container/mp3/MP3MainDataMap.h"
#include "container/mp3/MP3ReservoirPacker.h"
#include "container/mp3/MP3SideInfo.h"
#include "container/mp3/MP3SplicePlanner.h"
#include "container/mp3/Mp3TestFiles.h"
#include "support/Fixtures.h"

#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <stdexcept>

using namespace folivox;
using namespace folivox::test;

namespace {

const std::uint8_t* u(const QByteArray& b)
{
    return reinterpret_cast<const std::uint8_t*>(b.constData());
}

// What ffmpeg prints at -v error while decoding a file; empty when every
// frame decodes.
QByteArray decodeErrors(const QString& path)
{
    QProcess p;
    p.start(QStringLiteral("ffmpeg"), {"-v", "error", "-nostdin", "-i", path, "-f", "null", "-"});
    p.waitForFinished(60000);
    return p.readAllStandardError().trimmed() + (p.exitCode() != 0 ? QByteArray("exit status") : QByteArray());
}

class MP3SpliceIntegrationTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Pink noise keeps LAME's bit reservoir busy: nearly every frame
        // reads main data from the frames before it.
        source_ = Mp3TestFiles::make(path("source.mp3"), 6.0, {"-b:a", "128k"}, 44100, 2, true);
        scan_ = *MP3FrameScanner::scan(u(source_), std::size_t(source_.size()));
        frames_ = MP3FrameSequence::ofScan(u(source_), scan_);
        ASSERT_GT(frames_.size(), 200u);
    }
    QString path(const QString& name) const { return dir_.filePath(name); }

    QTemporaryDir dir_;
    QByteArray source_;
    MP3FrameScanner::Result scan_;
    std::vector<MP3FrameSequence::Frame> frames_;
};

} // namespace

TEST_F(MP3SpliceIntegrationTest, MainDataOfALameStreamLiesInOrderThroughTheReservoir)
{
    const MP3MainDataMap map(frames_);
    ASSERT_EQ(map.size(), frames_.size());
    int reaching = 0;
    for (std::size_t i = 0; i < map.size(); ++i) {
        const auto& f = map[i];
        ASSERT_TRUE(f.readable) << i;
        EXPECT_LE(f.mainDataBegin, 511);
        // A frame's main data ends inside its own area, and the next
        // frame's starts after it.
        EXPECT_LE(f.dataStart + f.dataLength, f.areaStart + f.areaLength) << i;
        if (i + 1 < map.size()) {
            EXPECT_GE(map[i + 1].dataStart, f.dataStart + f.dataLength) << i;
        }
        reaching += f.mainDataBegin > 0 ? 1 : 0;
    }
    EXPECT_GT(reaching, int(map.size()) * 9 / 10);

    // What frame 100 and those after it read before its area: as much as
    // the furthest reach back, and those bytes are the stream's.
    const std::size_t k = 100;
    const int carried = map.carriedInto(k);
    EXPECT_GE(carried, map[k].mainDataBegin);
    EXPECT_LE(carried, 511);
    const QByteArray bytes = map.streamBytes(map[k].areaStart - carried, map[k].areaStart);
    ASSERT_EQ(bytes.size(), carried);
    // The area of frame k - 1 ends the stream before frame k.
    const auto& f = frames_[k - 1];
    const int take = std::min(carried, map[k - 1].areaLength);
    EXPECT_EQ(bytes.right(take), QByteArray(reinterpret_cast<const char*>(f.data + f.length - std::size_t(take)), take));
    EXPECT_EQ(map.carriedInto(map.size()), 0);
}

TEST_F(MP3SpliceIntegrationTest, PlannedStretchesCoverTheDamageItsReachAndTheFadesEitherSide)
{
    const MP3MainDataMap map(frames_);
    const auto n = std::int64_t(map.size());

    auto regions = MP3SplicePlanner::plan(map, {120}, 1152);
    ASSERT_EQ(regions.size(), 1u);
    const auto& r = regions[0];
    EXPECT_EQ(r.first, 119);
    EXPECT_EQ(r.undecodable, std::vector<std::int64_t>{120});
    ASSERT_FALSE(r.lost.empty());
    EXPECT_EQ(r.lost.front(), 120);
    // Frame 121 reads frame 120's bytes in this stream, so its audio is
    // gone too; every lost frame after 120 reads them. The stretch ends two
    // frames after the last lost one: one to fade in, one to settle.
    const std::int64_t bad = map[120].areaStart + map[120].areaLength;
    ASSERT_LT(map[121].dataStart, bad);
    for (const std::int64_t k : r.lost)
        EXPECT_TRUE(k == 120 || map[std::size_t(k)].dataStart < bad) << k;
    EXPECT_GE(map[std::size_t(r.lost.back() + 1)].dataStart, bad);
    EXPECT_EQ(r.end, r.lost.back() + 3);
    // Frames of 576 samples take two frames to fade out and settle, and
    // three to fade in and settle.
    EXPECT_EQ(MP3SplicePlanner::plan(map, {120}, 576)[0].end, r.lost.back() + 4);
    EXPECT_EQ(MP3SplicePlanner::plan(map, {120}, 576)[0].first, 118);

    // Damage a few frames apart is one stretch; far apart, two.
    regions = MP3SplicePlanner::plan(map, {120, 128}, 1152);
    ASSERT_EQ(regions.size(), 1u);
    EXPECT_EQ(regions[0].undecodable, (std::vector<std::int64_t>{120, 128}));
    regions = MP3SplicePlanner::plan(map, {160, 20, 999999}, 1152);
    ASSERT_EQ(regions.size(), 2u);
    EXPECT_EQ(regions[0].first, 19);
    EXPECT_EQ(regions[1].first, 159);
    // At the ends of the stream.
    regions = MP3SplicePlanner::plan(map, {0, n - 1}, 1152);
    ASSERT_EQ(regions.size(), 2u);
    EXPECT_EQ(regions[0].first, 0);
    EXPECT_EQ(regions[1].end, n);
}

TEST_F(MP3SpliceIntegrationTest, ARepackedStretchDecodesAsEncodedAndHandsOnTheReservoir)
{
    // The same audio encoded at 96 kbps without the bit reservoir.
    const QByteArray other = Mp3TestFiles::make(path("other.mp3"), 6.0,
                                                {"-b:a", "96k", "-reservoir", "0", "-write_xing", "0"}, 44100, 2, true);
    const auto otherScan = MP3FrameScanner::scan(u(other), std::size_t(other.size()));
    ASSERT_TRUE(otherScan);
    const auto encoded = MP3FrameSequence::ofScan(u(other), *otherScan);
    const MP3MainDataMap encodedMap(encoded);
    ASSERT_GT(encoded.size(), 100u);

    // 20 of its frames, to stand for frames 60..79 of the source: in the
    // source's frame sizes, ending with what frames 80 on read before them.
    const MP3MainDataMap map(frames_);
    const std::size_t first = 3, count = 20, at = 60;
    std::vector<std::uint8_t> sizes;
    for (std::size_t k = at; k < at + count; ++k)
        sizes.push_back(frames_[k].data[2]);
    const int reach = map.carriedInto(at + count);
    ASSERT_GT(reach, 0);
    const QByteArray carried = map.streamBytes(map[at + count].areaStart - reach, map[at + count].areaStart);
    const auto packed = MP3ReservoirPacker::pack(encoded, encodedMap, first, count, sizes, carried);
    ASSERT_TRUE(packed);

    const auto stretch = MP3FrameSequence::ofBytes(u(*packed), std::size_t(packed->size()));
    ASSERT_EQ(stretch.size(), count);
    for (std::size_t i = 0; i < count; ++i)
        EXPECT_EQ(stretch[i].length, frames_[at + i].length) << i;
    const MP3MainDataMap stretchMap(stretch);
    EXPECT_EQ(stretchMap[0].mainDataBegin, 0);
    EXPECT_EQ(stretchMap.streamBytes(stretchMap.streamLength() - reach, stretchMap.streamLength()), carried);

    // In its own stream, the stretch plays exactly what the encoder's frames
    // played: only where the main data lies has changed.
    QByteArray own = other.left(qsizetype(encoded[first].data - u(other)));
    own += *packed;
    own += other.mid(qsizetype(encoded[first + count].data - u(other)));
    ASSERT_TRUE(Fixtures::writeFile(path("own.mp3"), own));
    EXPECT_TRUE(decodeErrors(path("own.mp3")).isEmpty());
    const auto expected = Mp3TestFiles::decodedSamples(path("other.mp3"));
    const auto repacked = Mp3TestFiles::decodedSamples(path("own.mp3"));
    ASSERT_EQ(repacked.size(), expected.size());
    EXPECT_GT(Mp3TestFiles::snr(expected, repacked, 0, expected.size()), 140.0);

    // In the source, as a frame copy with the stretch in place of frames
    // 60..79: every other frame as it was, the same size in all (one
    // bitrate, so the Info frame stays "Info"), and the frames after the
    // stretch decode as before once the overlap with it has passed.
    const QString spliced = path("spliced.mp3");
    const auto written = MP3FrameCopyWriter::write(u(source_), std::size_t(source_.size()), scan_, spliced, {},
                                                   {{std::int64_t(at), std::int64_t(count), *packed}});
    ASSERT_TRUE(written);
    EXPECT_EQ(written->audioFrames, scan_.validFrameCount);
    const QByteArray out = Fixtures::readFile(spliced);
    EXPECT_EQ(out.size(), source_.size());
    const auto outScan = MP3FrameScanner::scan(u(out), std::size_t(out.size()));
    const auto outFrames = MP3FrameSequence::ofScan(u(out), *outScan);
    ASSERT_EQ(outFrames.size(), frames_.size());
    for (std::size_t i = 0; i < frames_.size(); ++i) {
        const auto& f = outFrames[i];
        const QByteArray bytes(reinterpret_cast<const char*>(f.data), qsizetype(f.length));
        const auto& wanted = i >= at && i < at + count ? stretch[i - at] : frames_[i];
        EXPECT_EQ(bytes, QByteArray(reinterpret_cast<const char*>(wanted.data), qsizetype(wanted.length))) << i;
    }
    ASSERT_TRUE(outScan->infoFrame);
    EXPECT_EQ(outScan->infoFrame->kind, MP3InfoFrame::Kind::info);
    EXPECT_EQ(outScan->infoFrame->frames, std::uint32_t(frames_.size()));
    EXPECT_TRUE(decodeErrors(spliced).isEmpty()) << decodeErrors(spliced).toStdString();
    const auto before = Mp3TestFiles::decodedSamples(path("source.mp3"));
    const auto after = Mp3TestFiles::decodedSamples(spliced);
    ASSERT_EQ(after.size(), before.size());
    const std::size_t delay = 1105; // samples ffmpeg trims from the start
    const std::size_t from = (at + count + 1) * 1152 - delay;
    EXPECT_GT(Mp3TestFiles::snr(before, after, from, before.size()), 140.0);
    EXPECT_GT(Mp3TestFiles::snr(before, after, 0, at * 1152 - delay), 140.0);

    // Without the carried bytes, the frames after the stretch read the
    // wrong bytes.
    const auto bare = MP3ReservoirPacker::pack(encoded, encodedMap, first, count, sizes, {});
    ASSERT_TRUE(bare);
    MP3FrameCopyWriter::write(u(source_), std::size_t(source_.size()), scan_, path("bare.mp3"), {},
                              {{std::int64_t(at), std::int64_t(count), *bare}});
    EXPECT_LT(Mp3TestFiles::snr(before, Mp3TestFiles::decodedSamples(path("bare.mp3")), from, from + 1152), 20.0);

    // In the encoder's own sizes the bitrate changes at the stretch, and
    // the Info frame says "Xing".
    std::vector<std::uint8_t> ownSizes;
    for (std::size_t i = 0; i < count; ++i)
        ownSizes.push_back(encoded[first + i].data[2]);
    const auto smaller = MP3ReservoirPacker::pack(encoded, encodedMap, first, count, ownSizes, carried);
    ASSERT_TRUE(smaller);
    EXPECT_LT(smaller->size(), packed->size());
    MP3FrameCopyWriter::write(u(source_), std::size_t(source_.size()), scan_, path("vbr.mp3"), {},
                              {{std::int64_t(at), std::int64_t(count), *smaller}});
    const QByteArray vbr = Fixtures::readFile(path("vbr.mp3"));
    const auto vbrScan = MP3FrameScanner::scan(u(vbr), std::size_t(vbr.size()));
    ASSERT_TRUE(vbrScan->infoFrame);
    EXPECT_EQ(vbrScan->infoFrame->kind, MP3InfoFrame::Kind::xing);
    EXPECT_EQ(vbrScan->infoFrame->bytes, std::uint32_t(vbr.size() - vbrScan->infoFrameSpan->start));
    EXPECT_TRUE(decodeErrors(path("vbr.mp3")).isEmpty());

    // Carried bytes that cannot fit are refused, as are replacements that
    // overlap or lie outside the frames.
    EXPECT_FALSE(MP3ReservoirPacker::pack(encoded, encodedMap, first, 1, {sizes[0]}, QByteArray(400, 'x')));
    EXPECT_THROW(MP3FrameCopyWriter::write(u(source_), std::size_t(source_.size()), scan_, path("x.mp3"), {},
                                           {{10, 5, *packed}, {12, 5, *packed}}),
                 std::invalid_argument);
    EXPECT_THROW(MP3FrameCopyWriter::write(u(source_), std::size_t(source_.size()), scan_, path("x.mp3"), {},
                                           {{std::int64_t(frames_.size()) - 2, 20, *packed}}),
                 std::invalid_argument);
    EXPECT_FALSE(QFileInfo::exists(path("x.mp3")));
}
