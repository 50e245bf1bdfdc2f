// Where the book's timeline stands while its sources decode: how far from the
// start every sample is decoded and in its final place, so that slices there
// can be encoded before the decode is done.
#include "export/strategies/GaplessTimeline.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {

constexpr int kRate = 1000; // one sample a millisecond keeps the numbers readable

SegmentPiece whole(const QString& path, double duration)
{
    SegmentPiece p;
    p.path = path;
    p.length = duration;
    p.fullTrack = true;
    p.facts.duration = duration;
    return p;
}

SegmentPiece part(const QString& path, double start, double length, double duration)
{
    SegmentPiece p = whole(path, duration);
    p.start = start;
    p.length = length;
    p.fullTrack = false;
    return p;
}

// One chapter per piece, in order.
SegmentPlan chaptersOf(const QList<SegmentPiece>& pieces)
{
    SegmentPlan plan;
    for (const SegmentPiece& p : pieces) {
        PlannedSegment s;
        s.index = static_cast<int>(plan.segments.size());
        s.pieces = {p};
        plan.chapterSegments.push_back({s.index});
        plan.segments.push_back(s);
        plan.totalDuration += p.length;
    }
    return plan;
}

} // namespace

TEST(GaplessTimeline, WholeFilesAreKnownUpToTheFirstFileStillDecoding)
{
    const QStringList sources{"a.mp3", "b.mp3", "c.mp3"};
    const SegmentPlan plan = chaptersOf({whole("a.mp3", 10), whole("b.mp3", 20), whole("c.mp3", 30)});
    // a done (a little longer than imported), b half way, c not begun.
    EXPECT_EQ(GaplessTimeline::decodedPrefix(plan, sources, {10'005, 9'000, 0}, {true, false, false}, kRate), 10'005 + 9'000);
    // b done: c's first samples count on.
    EXPECT_EQ(GaplessTimeline::decodedPrefix(plan, sources, {10'005, 19'990, 500}, {true, true, false}, kRate),
              10'005 + 19'990 + 500);
    // a still decoding: nothing after it is placed yet, however much of b is there.
    EXPECT_EQ(GaplessTimeline::decodedPrefix(plan, sources, {4'000, 20'000, 0}, {false, true, false}, kRate), 4'000);
    // All done: the prefix is the whole timeline.
    const std::vector<std::int64_t> done{10'005, 19'990, 30'000};
    EXPECT_EQ(GaplessTimeline::decodedPrefix(plan, sources, done, {true, true, true}, kRate),
              GaplessTimeline::build(plan, sources, done, kRate).total);
}

TEST(GaplessTimeline, ChaptersOfOneLongFileAreKnownAsFarAsItsAudioIsDecoded)
{
    // One hour-long file cut by a chapter file at 1 200 s and 2 500 s.
    const QStringList sources{"book.mp3"};
    const SegmentPlan plan = chaptersOf({part("book.mp3", 0, 1200, 3600), part("book.mp3", 1200, 1300, 3600),
                                         part("book.mp3", 2500, 1100, 3600)});
    for (const std::int64_t have : {0LL, 700'000LL, 1'200'000LL, 2'000'000LL, 2'600'000LL, 3'599'000LL})
        EXPECT_EQ(GaplessTimeline::decodedPrefix(plan, sources, {have}, {false}, kRate), have) << have;
    // Done: the last chapter runs to the decoded end, whatever the import said.
    EXPECT_EQ(GaplessTimeline::decodedPrefix(plan, sources, {3'600'123}, {true}, kRate), 3'600'123);
    const GaplessTimeline timeline = GaplessTimeline::build(plan, sources, {3'600'123}, kRate);
    EXPECT_EQ(timeline.chapterStarts, (std::vector<std::int64_t>{0, 1'200'000, 2'500'000}));
    EXPECT_EQ(timeline.total, 3'600'123);
}

TEST(GaplessTimeline, AStretchOfAFileStillDecodingKeepsItsPlaceWhenItEndsBeforeTheFileDoes)
{
    // Chapter 1: the first 100 s of a; chapter 2: all of b. While a decodes
    // on, b (done) follows a's stretch, whose end is a time, not a's end.
    const QStringList sources{"a.mp3", "b.mp3"};
    const SegmentPlan plan = chaptersOf({part("a.mp3", 0, 100, 600), whole("b.mp3", 50)});
    EXPECT_EQ(GaplessTimeline::decodedPrefix(plan, sources, {99'000, 50'000}, {false, true}, kRate), 99'000);
    EXPECT_EQ(GaplessTimeline::decodedPrefix(plan, sources, {300'000, 50'000}, {false, true}, kRate), 150'000);
    EXPECT_EQ(GaplessTimeline::decodedPrefix(plan, sources, {300'000, 20'000}, {false, false}, kRate), 120'000);
}
