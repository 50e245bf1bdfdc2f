#include "import/ImportChapterBuilder.h"
#include "import/ImportReport.h"
#include "platform/L10n.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {

Track trackWithMarks(const QString& name, double duration, const std::vector<std::pair<double, QString>>& marks)
{
    Track t;
    t.url = QUrl::fromLocalFile("/book/" + name);
    t.title = name;
    t.duration = duration;
    for (const auto& [time, title] : marks) {
        ChapterMarker m;
        m.time = time;
        m.title = title;
        t.chapters.push_back(m);
    }
    return t;
}

} // namespace

TEST(ImportChapterBuilderTest, MarksBecomeChaptersAndCloseOnesCollapse)
{
    const Track t = trackWithMarks("book.m4b", 100, {{0.0, "One"}, {0.1, "Too close"}, {60.0, "Two"}});
    const auto layout = ImportChapterBuilder::build({t});
    ASSERT_EQ(layout.chapters.size(), 2u);
    EXPECT_EQ(layout.collapsedMarks, 1);
    EXPECT_EQ(layout.filesWithoutMarks, 0);
    EXPECT_EQ(layout.chapters[0].title, "One");
    EXPECT_DOUBLE_EQ(layout.chapters[0].startOffset, 0);
    EXPECT_DOUBLE_EQ(layout.chapters[0].duration, 60);
    EXPECT_EQ(layout.chapters[1].title, "Two");
    EXPECT_DOUBLE_EQ(layout.chapters[1].startOffset, 60);
    EXPECT_DOUBLE_EQ(layout.chapters[1].duration, 40);
    EXPECT_EQ(layout.chapters[1].tracks.size(), 1u);
    EXPECT_EQ(layout.chapters[1].tracks[0].url, t.url);
    EXPECT_FALSE(layout.chapters[0].isSidecarChapter);

    // Exactly 0.25 s apart is not "closer than" and stays; a chain of close
    // marks is measured from the last kept one.
    const auto chain = ImportChapterBuilder::build(
        {trackWithMarks("c.m4b", 10, {{0, "A"}, {0.25, "B"}, {0.4, "C"}, {0.6, "D"}})});
    ASSERT_EQ(chain.chapters.size(), 3u);
    EXPECT_EQ(chain.chapters[1].title, "B");
    EXPECT_EQ(chain.chapters[2].title, "D");
    EXPECT_EQ(chain.collapsedMarks, 1);
}

TEST(ImportChapterBuilderTest, FilesWithoutMarksGiveOneChapterEach)
{
    Track a = trackWithMarks("01.mp3", 12.5, {});
    a.title = QStringLiteral("Opening");
    Track b = trackWithMarks("02.mp3", 7, {});
    b.fromVideo = true;
    const Track c = trackWithMarks("03.m4b", 30, {{5, "Late start"}, {20, "Later"}});
    const auto layout = ImportChapterBuilder::build({a, b, c});
    ASSERT_EQ(layout.chapters.size(), 4u);
    EXPECT_EQ(layout.filesWithoutMarks, 2);
    EXPECT_EQ(layout.videoFiles, 1);
    EXPECT_EQ(layout.chapters[0].title, "Opening");
    EXPECT_DOUBLE_EQ(layout.chapters[0].duration, 12.5);
    EXPECT_DOUBLE_EQ(layout.chapters[1].duration, 7);
    // The lead-in before a file's first mark belongs to its first chapter.
    EXPECT_EQ(layout.chapters[2].title, "Late start");
    EXPECT_DOUBLE_EQ(layout.chapters[2].startOffset, 0);
    EXPECT_DOUBLE_EQ(layout.chapters[2].duration, 20);
    EXPECT_DOUBLE_EQ(layout.chapters[3].startOffset, 20);
    EXPECT_DOUBLE_EQ(layout.chapters[3].duration, 10);
}

TEST(ImportReportTest, TextsForRepairsFailuresAndBoth)
{
    using R = TrackLoadOutcome::FailureReason;
    TrackLoadOutcome clean;
    clean.tracks.push_back(Track{});
    EXPECT_FALSE(ImportReport::from(clean));

    TrackLoadOutcome repaired;
    repaired.repairedOriginalURLs = {QUrl::fromLocalFile("/a/bad one.mp3")};
    auto r = ImportReport::from(repaired);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->title, "Folivox recovered damaged files");
    EXPECT_EQ(r->message,
              "1 file(s) were automatically repaired during import and added to your book:\n\n• bad one.mp3");

    TrackLoadOutcome failed;
    failed.unreadableFiles = {{QUrl::fromLocalFile("/a/empty.mp3"), R::zeroDuration},
                              {QUrl::fromLocalFile("/a/notes.txt.mp3"), R::noAudioFound}};
    r = ImportReport::from(failed);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->title, "Some files couldn't be imported");
    EXPECT_EQ(r->message, "2 file(s) couldn't be read and were skipped:\n\n"
                          "• empty.mp3 — no readable audio (file is truncated or empty)\n"
                          "• notes.txt.mp3 — no audio found at the start of the file — it may be damaged, "
                          "incompletely downloaded, or not an audio file");

    TrackLoadOutcome both = failed;
    both.repairedOriginalURLs = repaired.repairedOriginalURLs;
    r = ImportReport::from(both);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->title, "Import finished with warnings");
    EXPECT_TRUE(r->message.startsWith("Folivox repaired 1 damaged file(s) automatically. Another 2 file(s) couldn't "
                                      "be read and were skipped.\n\nRepaired:\n• bad one.mp3\n\nSkipped:\n• empty.mp3"));
}

TEST(ImportReportTest, LongListsStop)
{
    TrackLoadOutcome many;
    for (int i = 0; i < ImportReport::kListLimit + 3; ++i)
        many.unreadableFiles.push_back({QUrl::fromLocalFile(QStringLiteral("/a/%1.mp3").arg(i)),
                                        TrackLoadOutcome::FailureReason::other});
    const auto r = ImportReport::from(many);
    ASSERT_TRUE(r);
    EXPECT_TRUE(r->message.startsWith("13 file(s) couldn't be read"));
    EXPECT_TRUE(r->message.endsWith("\n• 9.mp3 — file couldn't be opened — unsupported format or container is "
                                    "corrupt\n• … and 3 more"));
    EXPECT_FALSE(r->message.contains("10.mp3"));

    EXPECT_EQ(ImportReport::fill("%2$@ then %1$d", {"7", "x"}), "x then 7");
    EXPECT_EQ(ImportReport::fill("%d and %@", {"1", "y"}), "1 and y");
}
