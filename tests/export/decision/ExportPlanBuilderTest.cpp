#include "DecisionTestBooks.h"

#include "export/decision/ExportPlanBuilder.h"
#include "platform/Log.h"

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::cachedTrack;
using folivox::test::chapter;
using folivox::test::chapterPerTrack;

namespace {

QUrl file(const char* path)
{
    return QUrl::fromLocalFile(QString::fromLatin1(path));
}

} // namespace

TEST(ExportPlanBuilderTest, ChaptersInsideOneFileBecomeTimeRangesOfThatFile)
{
    const Track book = cachedTrack(QStringLiteral("/books/one.m4b"), 300.0);
    const auto plan = ExportPlanBuilder::build({chapter(QStringLiteral("A"), {book}, 0, 100),
                                                chapter(QStringLiteral("B"), {book}, 100, 100),
                                                chapter(QStringLiteral("C"), {book}, 200, 100)});
    ASSERT_EQ(plan.chapters.size(), 3u);
    EXPECT_EQ(plan.uniqueURLs, QList<QUrl>{file("/books/one.m4b")});
    EXPECT_EQ(plan.chapterToBookmarkMap, (std::vector<int>{0, 1, 2}));
    for (std::size_t i = 0; i < 3; ++i) {
        const ChapterInput& c = plan.chapters[i];
        EXPECT_EQ(c.files, QList<QUrl>{file("/books/one.m4b")});
        ASSERT_TRUE(c.timeRange);
        EXPECT_DOUBLE_EQ(c.timeRange->start, 100.0 * static_cast<double>(i));
        EXPECT_DOUBLE_EQ(c.timeRange->duration, 100.0);
        EXPECT_FALSE(c.wholeFileCandidate) << i;
        EXPECT_FALSE(c.segmentRanges);
        EXPECT_FALSE(c.segmentFullTrack);
    }
    EXPECT_EQ(plan.chapters[1].title, "B");
}

TEST(ExportPlanBuilderTest, AChapterThatIsExactlyOneFileIsAWholeFileCandidate)
{
    const auto plan = ExportPlanBuilder::build(chapterPerTrack({cachedTrack(QStringLiteral("/b/1.m4b"), 60.0),
                                                                cachedTrack(QStringLiteral("/b/2.m4b"), 75.5)}));
    ASSERT_EQ(plan.chapters.size(), 2u);
    EXPECT_TRUE(plan.chapters[0].wholeFileCandidate);
    EXPECT_TRUE(plan.chapters[1].wholeFileCandidate);
    EXPECT_EQ(plan.chapters[1].timeRange, (MediaTimeRange{0.0, 75.5}));
    EXPECT_EQ(plan.uniqueURLs, (QList<QUrl>{file("/b/1.m4b"), file("/b/2.m4b")}));
}

TEST(ExportPlanBuilderTest, WholeFileNeedsTheStartWithinOneHundredthAndTheEndWithinOneTenth)
{
    const Track t = cachedTrack(QStringLiteral("/b/a.m4b"), 100.0);
    const auto candidate = [&](double start, double duration) {
        return ExportPlanBuilder::build({chapter(QStringLiteral("x"), {t}, start, duration)})
            .chapters.front()
            .wholeFileCandidate;
    };
    EXPECT_TRUE(candidate(0.0, 100.0));
    EXPECT_TRUE(candidate(0.005, 99.995));
    EXPECT_FALSE(candidate(0.02, 99.98));  // trimmed at the start
    EXPECT_TRUE(candidate(0.0, 99.95));    // a frame short of the end is still the end
    EXPECT_FALSE(candidate(0.0, 99.5));    // half a second short is a trim
    EXPECT_TRUE(candidate(0.0, 250.0));    // a chapter longer than its file takes just the file
    EXPECT_EQ(ExportPlanBuilder::build({chapter(QStringLiteral("x"), {t}, 0, 250)}).chapters.front().timeRange,
              (MediaTimeRange{0.0, 100.0}));
}

TEST(ExportPlanBuilderTest, AChapterOverSeveralFilesGetsOneRangePerFile)
{
    const Track a = cachedTrack(QStringLiteral("/b/a.mp3"), 100.0, QStringLiteral("mp3"));
    const Track b = cachedTrack(QStringLiteral("/b/b.mp3"), 100.0, QStringLiteral("mp3"));
    const Track c = cachedTrack(QStringLiteral("/b/c.mp3"), 100.0, QStringLiteral("mp3"));
    const auto plan = ExportPlanBuilder::build({chapter(QStringLiteral("Long"), {a, b, c}, 30.0, 220.0)});
    ASSERT_EQ(plan.chapters.size(), 1u);
    const ChapterInput& ch = plan.chapters.front();
    EXPECT_EQ(ch.files, (QList<QUrl>{a.url, b.url, c.url}));
    EXPECT_FALSE(ch.timeRange);
    EXPECT_FALSE(ch.wholeFileCandidate);
    ASSERT_TRUE(ch.segmentRanges);
    ASSERT_TRUE(ch.segmentFullTrack);
    EXPECT_EQ(*ch.segmentRanges,
              (std::vector<MediaTimeRange>{{30.0, 70.0}, {0.0, 100.0}, {0.0, 50.0}}));
    EXPECT_EQ(*ch.segmentFullTrack, (std::vector<bool>{false, true, false}));
    EXPECT_EQ(plan.uniqueURLs, (QList<QUrl>{a.url, b.url, c.url}));
}

TEST(ExportPlanBuilderTest, ACrossFileChapterForgivesUpToOneSecondAtAFileEnd)
{
    const Track a = cachedTrack(QStringLiteral("/b/a.m4b"), 100.0);
    const Track b = cachedTrack(QStringLiteral("/b/b.m4b"), 100.0);
    // Measured 0.6 s short of the two files together: both are still whole.
    auto plan = ExportPlanBuilder::build({chapter(QStringLiteral("x"), {a, b}, 0.0, 199.4)});
    EXPECT_EQ(*plan.chapters.front().segmentFullTrack, (std::vector<bool>{true, true}));
    // 1.5 s short is a real cut.
    plan = ExportPlanBuilder::build({chapter(QStringLiteral("x"), {a, b}, 0.0, 198.5)});
    EXPECT_EQ(*plan.chapters.front().segmentFullTrack, (std::vector<bool>{true, false}));
}

TEST(ExportPlanBuilderTest, AnOffsetBeyondTheFirstFileCarriesIntoTheNext)
{
    const Track a = cachedTrack(QStringLiteral("/b/a.m4b"), 100.0);
    const Track b = cachedTrack(QStringLiteral("/b/b.m4b"), 100.0);
    const auto plan = ExportPlanBuilder::build({chapter(QStringLiteral("x"), {a, b}, 120.0, 50.0)});
    ASSERT_EQ(plan.chapters.size(), 1u);
    EXPECT_EQ(plan.chapters.front().files, QList<QUrl>{b.url});
    EXPECT_EQ(plan.chapters.front().timeRange, (MediaTimeRange{20.0, 50.0}));
    EXPECT_EQ(plan.uniqueURLs, QList<QUrl>{b.url});
}

TEST(ExportPlanBuilderTest, FilesListedButNotReachedAreLeftOut)
{
    const Track a = cachedTrack(QStringLiteral("/b/a.m4b"), 100.0);
    const Track b = cachedTrack(QStringLiteral("/b/b.m4b"), 100.0);
    // Ends 5 ms past the first file: the second file is not pulled in.
    auto plan = ExportPlanBuilder::build({chapter(QStringLiteral("x"), {a, b}, 40.0, 60.005)});
    ASSERT_EQ(plan.chapters.front().files, QList<QUrl>{a.url});
    EXPECT_EQ(plan.chapters.front().timeRange, (MediaTimeRange{40.0, 60.0}));
    plan = ExportPlanBuilder::build({chapter(QStringLiteral("x"), {a, b}, 0.0, 30.0)});
    EXPECT_EQ(plan.chapters.front().files, QList<QUrl>{a.url});
    EXPECT_EQ(plan.uniqueURLs, QList<QUrl>{a.url});
}

TEST(ExportPlanBuilderTest, BookmarksWithoutAudioAreSkippedAndTheMapKeepsTheOthers)
{
    LogCapture log;
    const Track a = cachedTrack(QStringLiteral("/b/a.m4b"), 100.0);
    const Track b = cachedTrack(QStringLiteral("/b/b.m4b"), 100.0);
    const auto plan = ExportPlanBuilder::build({chapter(QStringLiteral("empty"), {}, 0, 10),
                                                chapter(QStringLiteral("A"), {a}, 0, 100),
                                                chapter(QStringLiteral("zero"), {a}, 50, 0),
                                                chapter(QStringLiteral("past the end"), {a}, 150, 10),
                                                chapter(QStringLiteral("B"), {b}, 0, 100)});
    ASSERT_EQ(plan.chapters.size(), 2u);
    EXPECT_EQ(plan.chapterToBookmarkMap, (std::vector<int>{1, 4}));
    EXPECT_EQ(plan.chapters[0].title, "A");
    EXPECT_EQ(plan.chapters[1].title, "B");
    EXPECT_EQ(log.count(QStringLiteral("takes no audio")), 3);
    EXPECT_TRUE(log.contains(QStringLiteral("[Export] Plan: chapters=2 bookmarks=5 uniqueURLs=2")));

    EXPECT_TRUE(ExportPlanBuilder::build({}).isEmpty());
    EXPECT_TRUE(ExportPlanBuilder::build({}).uniqueURLs.isEmpty());
}

TEST(ExportPlanBuilderTest, ReorderedChaptersListFilesInFirstUseOrder)
{
    const Track a = cachedTrack(QStringLiteral("/b/a.m4b"), 10.0);
    const Track b = cachedTrack(QStringLiteral("/b/b.m4b"), 10.0);
    const Track c = cachedTrack(QStringLiteral("/b/c.m4b"), 10.0);
    const auto plan = ExportPlanBuilder::build(chapterPerTrack({c, a, b, a}));
    EXPECT_EQ(plan.uniqueURLs, (QList<QUrl>{c.url, a.url, b.url}));
    EXPECT_EQ(plan.chapters.size(), 4u);
    EXPECT_EQ(plan.chapters[3].files, QList<QUrl>{a.url});
}

TEST(ExportPlanBuilderTest, UnknownLengthsComeFromTheBookOrTakeWhatIsLeft)
{
    LogCapture log;
    Track a = cachedTrack(QStringLiteral("/b/a.m4b"), 0.0);
    const Track b = cachedTrack(QStringLiteral("/b/b.m4b"), 100.0);
    // The book's own copy of the track knows its length.
    const Track known = a.withDuration(80.0);
    auto plan = ExportPlanBuilder::build({chapter(QStringLiteral("x"), {a, b}, 0.0, 130.0)}, {known, b});
    ASSERT_TRUE(plan.chapters.front().segmentRanges);
    EXPECT_EQ(*plan.chapters.front().segmentRanges, (std::vector<MediaTimeRange>{{0.0, 80.0}, {0.0, 50.0}}));
    EXPECT_EQ(*plan.chapters.front().segmentFullTrack, (std::vector<bool>{true, false}));

    // Nobody knows it: the file takes the whole chapter and is never "whole".
    plan = ExportPlanBuilder::build({chapter(QStringLiteral("x"), {a, b}, 0.0, 130.0)});
    EXPECT_EQ(plan.chapters.front().files, QList<QUrl>{a.url});
    EXPECT_EQ(plan.chapters.front().timeRange, (MediaTimeRange{0.0, 130.0}));
    EXPECT_FALSE(plan.chapters.front().wholeFileCandidate);
    EXPECT_TRUE(log.contains(QStringLiteral("length of \"a.m4b\" is unknown")));
}

TEST(ExportPlanBuilderTest, PiecesOfABuiltChapterFollowItsRanges)
{
    const Track a = cachedTrack(QStringLiteral("/b/a.m4b"), 100.0);
    const Track b = cachedTrack(QStringLiteral("/b/b.m4b"), 100.0);
    const auto plan = ExportPlanBuilder::build(
        {chapter(QStringLiteral("x"), {a, b}, 60.0, 140.0), chapter(QStringLiteral("y"), {a}, 0, 100)});
    const auto multi = ExportPlanBuilder::pieces(plan.chapters[0]);
    ASSERT_EQ(multi.size(), 2u);
    EXPECT_EQ(multi[0].url, a.url);
    EXPECT_EQ(multi[0].range, (MediaTimeRange{60.0, 40.0}));
    EXPECT_FALSE(multi[0].wholeFile);
    EXPECT_TRUE(multi[1].wholeFile);
    const auto single = ExportPlanBuilder::pieces(plan.chapters[1]);
    ASSERT_EQ(single.size(), 1u);
    EXPECT_TRUE(single[0].wholeFile);

    // The plan survives its JSON form.
    EXPECT_EQ(ExportPlanBuilder::Plan::fromJson(plan.toJson()), plan);
}
