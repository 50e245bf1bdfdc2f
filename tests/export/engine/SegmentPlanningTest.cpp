#include "export/strategies/ConcurrencyPlan.h"
#include "process/EncoderCatalog.h"
#include "process/EncoderCatalogError.h"
#include "export/strategies/FFmpegAudioEncoder.h"
#include "export/strategies/FFmpegEncoderError.h"
#include "export/strategies/SegmentPlanner.h"
#include "platform/AppSettings.h"
#include "platform/Log.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {

QUrl file(const QString& name)
{
    return QUrl::fromLocalFile(QStringLiteral("/book/") + name);
}

SourceFacts facts(double duration, const QString& codec = QStringLiteral("mp3"), int rate = 44100, int channels = 2)
{
    SourceFacts f;
    f.duration = duration;
    f.codec = codec;
    f.sampleRate = rate;
    f.channels = channels;
    f.bitrate = 64000;
    return f;
}

ChapterInput wholeFiles(const QString& title, const QStringList& names)
{
    ChapterInput c;
    c.title = title;
    std::vector<MediaTimeRange> ranges;
    std::vector<bool> full;
    for (const QString& n : names) {
        c.files << file(n);
        ranges.push_back({0, 0});
        full.push_back(true);
    }
    if (names.size() == 1) {
        c.timeRange = MediaTimeRange{0, 0};
        c.wholeFileCandidate = true;
    } else {
        c.segmentRanges = ranges;
        c.segmentFullTrack = full;
    }
    return c;
}

QStringList paths(const PlannedSegment& s)
{
    QStringList out;
    for (const SegmentPiece& p : s.pieces)
        out << p.path;
    return out;
}

} // namespace

TEST(ConcurrencyPlanTest, FillsTheCoresWithoutOversubscribing)
{
    EXPECT_EQ(ConcurrencyPlan::make(8, std::nullopt, 20), (ConcurrencyPlan{8, 1}));
    EXPECT_EQ(ConcurrencyPlan::make(8, std::nullopt, 3), (ConcurrencyPlan{3, 2}));  // 3 jobs × 2 threads
    EXPECT_EQ(ConcurrencyPlan::make(8, std::nullopt, 1), (ConcurrencyPlan{1, 8}));
    EXPECT_EQ(ConcurrencyPlan::make(8, 2, 20), (ConcurrencyPlan{2, 4}));            // the user's -j 2
    EXPECT_EQ(ConcurrencyPlan::make(2, 6, 20), (ConcurrencyPlan{6, 1}));            // more jobs than cores: one thread each
    EXPECT_EQ(ConcurrencyPlan::make(2, 0, 20), (ConcurrencyPlan{2, 1}));            // 0 means "not set"
    EXPECT_EQ(ConcurrencyPlan::make(0, std::nullopt, 0), (ConcurrencyPlan{1, 1}));
    for (int cores = 1; cores <= 16; ++cores) {
        for (int work = 1; work <= 20; ++work) {
            const ConcurrencyPlan p = ConcurrencyPlan::make(cores, std::nullopt, work);
            EXPECT_LE(p.jobs * p.threadsPerJob, cores);
            EXPECT_LE(p.jobs, work);
        }
    }
}

TEST(ConcurrencyPlanTest, TheStoredSettingIsHonouredAndAnExplicitRequestWins)
{
    AppSettings settings;
    settings.setValue(QString::fromLatin1(ConcurrencyPlan::settingsKey), 1);
    settings.sync();
    EXPECT_EQ(ConcurrencyPlan::userSetting(), 1);
    EXPECT_EQ(ConcurrencyPlan::forMachine(10).jobs, 1);
    EXPECT_EQ(ConcurrencyPlan::forMachine(10, 3).jobs, 3);
    settings.remove(QString::fromLatin1(ConcurrencyPlan::settingsKey));
    settings.sync();
    EXPECT_FALSE(ConcurrencyPlan::userSetting().has_value());
}

TEST(SegmentPlannerTest, CutsChaptersIntoStretchesGroupsAndCrossFilePieces)
{
    QHash<QString, SourceFacts> known;
    for (int i = 1; i <= 6; ++i)
        known.insert(QStringLiteral("/book/%1.mp3").arg(i), facts(100));
    known.insert(QStringLiteral("/book/big.mp3"), facts(600));

    ChapterInput partOfOne;
    partOfOne.title = QStringLiteral("Middle");
    partOfOne.files << file(QStringLiteral("big.mp3"));
    partOfOne.timeRange = MediaTimeRange{120, 60};

    ChapterInput crossing;
    crossing.title = QStringLiteral("Across");
    crossing.files << file(QStringLiteral("5.mp3")) << file(QStringLiteral("6.mp3"));
    crossing.segmentRanges = std::vector<MediaTimeRange>{{40, 60}, {0, 30}};
    crossing.segmentFullTrack = std::vector<bool>{false, false};

    SegmentPlanner::Options options;
    options.parallelJobs = 2;
    LogCapture log;
    const SegmentPlan plan = SegmentPlanner::plan(
        {partOfOne, wholeFiles(QStringLiteral("Four files"), {"1.mp3", "2.mp3", "3.mp3", "4.mp3"}), crossing}, known,
        options);

    // Three chapters already keep two jobs busy: the whole files stay one group.
    ASSERT_EQ(plan.chapterCount(), 3);
    ASSERT_EQ(plan.segments.size(), 3u);
    const PlannedSegment& a = plan.segments[0];
    EXPECT_EQ(a.kind, PlannedSegment::Kind::stretch);
    EXPECT_DOUBLE_EQ(a.pieces[0].start, 120);
    EXPECT_DOUBLE_EQ(a.pieces[0].length, 60);
    EXPECT_FALSE(a.pieces[0].fullTrack);
    EXPECT_EQ(plan.segments[1].kind, PlannedSegment::Kind::concat);
    EXPECT_EQ(plan.segments[1].pieces.size(), 4);
    EXPECT_DOUBLE_EQ(plan.segments[1].plannedDuration, 400);
    EXPECT_EQ(plan.segments[2].kind, PlannedSegment::Kind::crossFile);
    EXPECT_DOUBLE_EQ(plan.segments[2].plannedDuration, 90);
    EXPECT_DOUBLE_EQ(plan.totalDuration, 550);
    EXPECT_EQ(plan.segments[2].sourceFileNames(), (QStringList{"5.mp3", "6.mp3"}));
    EXPECT_TRUE(log.contains(QStringLiteral("[BatchEncoding] Chapter 2: splitting 4 full tracks into 1 parallel groups")));
}

TEST(SegmentPlannerTest, OneLongChapterOfWholeFilesIsSharedOutAmongTheJobsBySameFormat)
{
    QHash<QString, SourceFacts> known;
    for (int i = 1; i <= 6; ++i)
        known.insert(QStringLiteral("/book/%1.mp3").arg(i), facts(i == 6 ? 300 : 100));
    SegmentPlanner::Options options;
    options.parallelJobs = 2;
    SegmentPlan plan = SegmentPlanner::plan({wholeFiles(QStringLiteral("All"), {"1.mp3", "2.mp3", "3.mp3", "4.mp3", "5.mp3", "6.mp3"})},
                                            known, options);
    ASSERT_EQ(plan.segments.size(), 2u);
    // 800 s in two groups of about 400 s, in order.
    EXPECT_EQ(paths(plan.segments[0]), (QStringList{"/book/1.mp3", "/book/2.mp3", "/book/3.mp3", "/book/4.mp3"}));
    EXPECT_EQ(paths(plan.segments[1]), (QStringList{"/book/5.mp3", "/book/6.mp3"}));
    EXPECT_EQ(plan.chapterSegments[0], (std::vector<int>{0, 1}));

    // A change of format splits a group: the concat demuxer cannot join them.
    known[QStringLiteral("/book/2.mp3")] = facts(100, QStringLiteral("mp3"), 22050, 1);
    options.parallelJobs = 1;
    plan = SegmentPlanner::plan({wholeFiles(QStringLiteral("All"), {"1.mp3", "2.mp3", "3.mp3"})}, known, options);
    ASSERT_EQ(plan.segments.size(), 3u);
    EXPECT_EQ(plan.segments[1].kind, PlannedSegment::Kind::stretch);

    // Without groups (one file per chapter) mixed formats go the lossless way.
    options.allowGroups = false;
    plan = SegmentPlanner::plan({wholeFiles(QStringLiteral("All"), {"1.mp3", "2.mp3", "3.mp3"})}, known, options);
    ASSERT_EQ(plan.segments.size(), 1u);
    EXPECT_EQ(plan.segments[0].kind, PlannedSegment::Kind::crossFile);
}

TEST(SegmentPlannerTest, CopyIsAskedOnlyForWholeFileStretchesAndProbingFallsBack)
{
    QHash<QString, SourceFacts> known{{QStringLiteral("/book/a.m4a"), facts(50, QStringLiteral("aac-lc"))}};
    int asked = 0;
    SegmentPlanner::Options options;
    options.mayCopy = [&asked](const SegmentPiece& p) {
        ++asked;
        return p.facts.codec == QStringLiteral("aac-lc");
    };
    options.probe = [](const QString&) { return std::optional<FormatProbe>(); };
    ChapterInput partial;
    partial.title = QStringLiteral("Part");
    partial.files << file(QStringLiteral("a.m4a"));
    partial.timeRange = MediaTimeRange{10, 5};
    ChapterInput unknown;
    unknown.title = QStringLiteral("Unknown");
    unknown.files << file(QStringLiteral("x.m4a"));
    unknown.timeRange = MediaTimeRange{0, 12.5};

    LogCapture log;
    const SegmentPlan plan = SegmentPlanner::plan({wholeFiles(QStringLiteral("Whole"), {"a.m4a"}), partial, unknown},
                                                  known, options);
    EXPECT_TRUE(plan.segments[0].copy);
    EXPECT_FALSE(plan.segments[1].copy);
    EXPECT_EQ(asked, 2); // the whole file a.m4a, and x.m4a (no facts: mayCopy says no)
    EXPECT_DOUBLE_EQ(plan.segments[2].plannedDuration, 12.5);
    EXPECT_TRUE(log.contains(QStringLiteral("[BatchEncoding] FFprobe failed for x.m4a. Using fallback (duration=12.500)")));

    ChapterInput empty;
    empty.title = QStringLiteral("Empty");
    try {
        SegmentPlanner::plan({wholeFiles(QStringLiteral("Whole"), {"a.m4a"}), empty}, known, options);
        FAIL();
    } catch (const FFmpegEncoderError& e) {
        EXPECT_EQ(e.kind(), FFmpegEncoderError::Kind::noInputFiles);
        EXPECT_EQ(e.description(), QStringLiteral("Chapter 2 has no input files"));
    }
}

TEST(FFmpegAudioEncoderArgumentsTest, SegmentJobsHaveTheirShapeAndTheCatalogsEncoder)
{
    const FFmpegAudioEncoder encoder(nullptr, EncoderCatalog(QSet<QString>{"aac", "libmp3lame", "flac"}));
    FFmpegAudioEncoder::OutputSpec spec;
    spec.bitrateKbps = 64;
    spec.channels = 1;
    spec.sampleRate = 44100;
    const QStringList block = encoder.encoderBlock(spec, false);
    EXPECT_EQ(block, (QStringList{"-ac", "1", "-ar", "44100", "-c:a", "aac", "-b:a", "64k"}));
    EXPECT_FALSE(block.contains(QStringLiteral("-aac_at_mode")));
    EXPECT_EQ(encoder.encoderBlock(spec, true), (QStringList{"-c:a", "copy"}));

    SegmentPiece piece;
    piece.path = QStringLiteral("/book/ch1.mp3");
    piece.start = 12.5;
    piece.length = 30.25;
    EXPECT_EQ(FFmpegAudioEncoder::stretchArguments(piece, block, 2, QStringLiteral("ipod"), QStringLiteral("/w/segment_000.m4a")),
              (QStringList{"-ss", "12.500000", "-i", "/book/ch1.mp3", "-vn", "-map_chapters", "-1", "-threads", "2", "-ac",
                           "1", "-ar", "44100", "-c:a", "aac", "-b:a", "64k", "-t", "30.250000", "-f", "ipod", "-y",
                           "/w/segment_000.m4a"}));
    piece.start = 0;
    piece.fullTrack = true;
    const QStringList whole = FFmpegAudioEncoder::stretchArguments(piece, {"-c:a", "copy"}, 1, QStringLiteral("ipod"),
                                                                   QStringLiteral("/w/s.m4a"),
                                                                   {QStringLiteral("-c:a"), QStringLiteral("aac_at")});
    EXPECT_EQ(whole, (QStringList{"-ss", "0.000000", "-c:a", "aac_at", "-i", "/book/ch1.mp3", "-vn", "-map_chapters", "-1",
                                  "-threads", "1", "-c:a", "copy", "-f", "ipod", "-y", "/w/s.m4a"}));

    EXPECT_EQ(FFmpegAudioEncoder::concatArguments(QStringLiteral("/w/l.txt"), block, 4, QStringLiteral("ipod"),
                                                  QStringLiteral("/w/o.m4a")),
              (QStringList{"-fflags", "+genpts+igndts", "-f", "concat", "-safe", "0", "-i", "/w/l.txt", "-vn",
                           "-map_metadata", "-1", "-threads", "4", "-ac", "1", "-ar", "44100", "-c:a", "aac", "-b:a",
                           "64k", "-f", "ipod", "-y", "/w/o.m4a"}));

    piece.start = 5;
    piece.length = 10;
    EXPECT_EQ(FFmpegAudioEncoder::extractArguments(piece, QStringLiteral("/w/xfile_0.flac"), 0.02),
              (QStringList{"-i", "/book/ch1.mp3", "-vn", "-af",
                           "atrim=start=5.000000:end=15.000000,asetpts=PTS-STARTPTS,afade=t=out:st=9.980000:d=0.020000",
                           "-ac", "2", "-ar", "44100", "-c:a", "flac", "-sample_fmt", "s16", "-compression_level", "0",
                           "-y", "/w/xfile_0.flac"}));
    EXPECT_EQ(FFmpegAudioEncoder::joinArguments(QStringLiteral("/w/concat_list.txt"), QStringLiteral("/w/out.m4b"),
                                                QStringLiteral("ipod")),
              (QStringList{"-f", "concat", "-safe", "0", "-i", "/w/concat_list.txt", "-c", "copy", "-map_metadata", "-1",
                           "-map", "0:a", "-f", "ipod", "-y", "/w/out.m4b"}));
    EXPECT_EQ(FFmpegAudioEncoder::mergeArguments(QStringLiteral("/w/l.txt"), QStringLiteral("/w/chapter_001_merged.m4a")),
              (QStringList{"-fflags", "+genpts", "-f", "concat", "-safe", "0", "-i", "/w/l.txt", "-c", "copy", "-f",
                           "mp4", "-y", "/w/chapter_001_merged.m4a"}));

    spec.format = OutputFormat::mp3;
    spec.channels.reset();
    spec.sampleRate.reset();
    spec.bitrateKbps = 96;
    EXPECT_EQ(encoder.encoderBlock(spec, false), (QStringList{"-c:a", "libmp3lame", "-b:a", "96k"}));
    EXPECT_EQ(FFmpegAudioEncoder::muxerName(OutputFormat::mp3), QStringLiteral("mp3"));
    EXPECT_EQ(FFmpegAudioEncoder::muxerName(OutputFormat::m4a), QStringLiteral("ipod"));

    // HE-AAC needs an encoder Debian's ffmpeg does not have: a clear refusal naming them.
    spec.format = OutputFormat::m4b;
    spec.codec = AudioCodec::heAAC;
    try {
        (void)encoder.encoderBlock(spec, false);
        FAIL() << "HE-AAC without aac_at or libfdk_aac must be refused";
    } catch (const EncoderCatalogError& e) {
        EXPECT_TRUE(e.description().contains(QStringLiteral("libfdk_aac"))) << e.description().toStdString();
    }
    const FFmpegAudioEncoder apple(nullptr, EncoderCatalog(QSet<QString>{"aac_at"}));
    EXPECT_EQ(apple.encoderBlock(spec, false), (QStringList{"-c:a", "aac_at", "-profile:a", "4", "-b:a", "96k"}));
}
