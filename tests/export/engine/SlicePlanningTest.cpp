// How the book's timeline is cut for the parallel encode: slices that tile
// it, cuts on packet boundaries of one continuous encode, real-audio
// margins, and work shared evenly enough among the jobs.
#include "export/strategies/SlicePlanner.h"

#include <gtest/gtest.h>

#include <tuple>

using namespace folivox;

namespace {

void expectTiles(const SlicePlan& plan)
{
    ASSERT_FALSE(plan.slices.empty());
    EXPECT_EQ(plan.slices.front().start, 0);
    EXPECT_EQ(plan.slices.back().end, plan.totalSamples);
    std::int64_t frames = 0;
    for (std::size_t i = 0; i < plan.slices.size(); ++i) {
        const PlannedSlice& s = plan.slices[i];
        EXPECT_GT(s.end, s.start);
        if (i > 0) {
            EXPECT_EQ(s.start, plan.slices[i - 1].end);
            // A cut where a continuous encode has a packet boundary.
            EXPECT_EQ((s.start + plan.framing.priming) % plan.framing.frameSize, 0) << i;
            // The margin starts on a packet boundary of the slice's own encode.
            EXPECT_EQ((s.marginBefore + plan.framing.priming) % plan.framing.frameSize, 0) << i;
            EXPECT_GE(s.marginBefore, std::min<std::int64_t>(s.start, 4 * plan.framing.frameSize));
        }
        if (i + 1 < plan.slices.size()) {
            EXPECT_EQ(s.marginAfter, std::min<std::int64_t>(4 * plan.framing.frameSize, plan.totalSamples - s.end));
            frames += s.keptFrames;
        }
    }
    const PlannedSlice& last = plan.slices.back();
    EXPECT_EQ(last.keptFrames, -1);
    EXPECT_EQ(last.marginAfter, 0);
    // The packets kept before the last slice reach exactly to its start.
    if (plan.slices.size() > 1) {
        EXPECT_EQ(frames * plan.framing.frameSize - plan.framing.priming, last.start);
    }
}

} // namespace

TEST(SlicePlanning, AnHourOnSixteenJobsIsCutIntoAlignedSlicesWithAShortCriticalPath)
{
    for (const EncoderFraming framing : {EncoderFraming{1024, 1024}, EncoderFraming{2048, 2048}, EncoderFraming{1024, 2112}}) {
        SlicePlanner::Options options;
        options.jobs = 16;
        const SlicePlan plan = SlicePlanner::plan(3600LL * 44100 + 123, 44100, framing, options);
        expectTiles(plan);
        EXPECT_EQ(plan.slices.size(), 64u);
        EXPECT_LE(plan.criticalPath(16), 1.0 / 14);
        EXPECT_EQ(plan.slices.front().marginBefore, 0);
        EXPECT_EQ(plan.slices.front().firstKeptFrame, 0);
        EXPECT_EQ(plan.slices[1].firstKeptFrame, (plan.slices[1].marginBefore + framing.priming) / framing.frameSize);
    }
}

TEST(SlicePlanning, ShortBooksAndOneJobMakeFewerSlicesButStillTile)
{
    SlicePlanner::Options options;
    options.jobs = 2;
    const SlicePlan six = SlicePlanner::plan(6 * 44100, 44100, {}, options);
    expectTiles(six);
    EXPECT_EQ(six.slices.size(), 1u);
    const SlicePlan two = SlicePlanner::plan(120 * 44100, 44100, {}, options);
    expectTiles(two);
    EXPECT_EQ(two.slices.size(), 8u); // more slices than jobs
    EXPECT_LE(two.criticalPath(2), 0.51);
    options.jobs = 1;
    EXPECT_EQ(SlicePlanner::plan(120 * 44100, 44100, {}, options).slices.size(), 1u);
    // A slice start nearer the book's start than a margin takes what there is.
    options.jobs = 4;
    options.minSliceSeconds = 0;
    const SlicePlan tiny = SlicePlanner::plan(8 * 1024, 44100, {}, options);
    expectTiles(tiny);
    EXPECT_EQ(tiny.slices[1].marginBefore, tiny.slices[1].start);
}

TEST(SlicePlanning, TheAlignedMarginIsTheSmallestOnAPacketBoundary)
{
    EXPECT_EQ(SlicePlanner::alignedMargin(4, {1024, 1024}), 4096);
    EXPECT_EQ(SlicePlanner::alignedMargin(4, {1024, 2112}), 4096 + 960);
    EXPECT_EQ(SlicePlanner::alignedMargin(1, {2048, 2048}), 2048);
}

TEST(SlicePlanning, SlicesTakenFromAnEstimateAreKeptWhateverTheDecodedLength)
{
    // Planned from the imported length; the decode then finds it a little
    // shorter, exact, or longer by more than a slice's margin.
    SlicePlanner::Options options;
    options.jobs = 2;
    const std::int64_t estimate = 3600LL * 44100;
    const SlicePlan earlier = SlicePlanner::plan(estimate, 44100, {}, options);
    ASSERT_EQ(earlier.slices.size(), 8u);
    for (const std::int64_t total : {estimate - 1000, estimate, estimate + 70001}) {
        for (const int kept : {1, 3}) {
            const SlicePlan plan = SlicePlanner::keepingLeadingSlices(earlier, kept, total, options);
            expectTiles(plan);
            EXPECT_EQ(plan.totalSamples, total);
            for (int i = 0; i < kept; ++i) {
                const PlannedSlice& a = earlier.slices[std::size_t(i)];
                const PlannedSlice& b = plan.slices[std::size_t(i)];
                EXPECT_EQ(std::tie(a.start, a.end, a.marginBefore, a.marginAfter, a.firstKeptFrame, a.keptFrames),
                          std::tie(b.start, b.end, b.marginBefore, b.marginAfter, b.firstKeptFrame, b.keptFrames))
                    << "slice " << i << " of " << kept << " kept, total " << total;
            }
            // The rest holds the work of as many slices as the plan would
            // make, the last of them cut into a tail of four quarter-long ones.
            ASSERT_EQ(plan.slices.size(), 8u - 1u + 4u) << kept;
            const std::int64_t share = plan.slices[std::size_t(kept)].end - plan.slices[std::size_t(kept)].start;
            for (std::size_t i = plan.slices.size() - 4; i < plan.slices.size(); ++i) {
                const std::int64_t length = plan.slices[i].end - plan.slices[i].start;
                EXPECT_NEAR(double(length), share / 4.0, 1024.0) << i;
            }
            EXPECT_LE(plan.criticalPath(2), 0.52);
        }
    }
}
