// Chapter times on the book's clock: moving a boundary between two chapters
// rebuilds both over the tracks they cross.
#include "app/book/ChapterLayouts.h"
#include "app/book/ChapterTimeline.h"
#include "app/models/TimeText.h"
#include "app/playback/PlaybackTimeline.h"
#include "main/WindowDriver.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {

Track track(const QString& name, double seconds)
{
    Track t;
    t.url = QUrl::fromLocalFile(QStringLiteral("/books/") + name);
    t.title = name;
    t.duration = seconds;
    return t;
}

// Three files of 10, 20 and 30 seconds, one chapter each.
struct Book {
    std::vector<Track> tracks{track(QStringLiteral("a.mp3"), 10), track(QStringLiteral("b.mp3"), 20),
                              track(QStringLiteral("c.mp3"), 30)};
    std::vector<Bookmark> chapters = ChapterLayouts::perFile(tracks);
};

} // namespace

TEST(ChapterTimeline, MovingAStartAcrossATrackBoundaryRebuildsBothChapters)
{
    Book b;
    const ChapterTimeline timeline(b.tracks);
    EXPECT_DOUBLE_EQ(timeline.totalDuration(), 60.0);
    EXPECT_DOUBLE_EQ(timeline.start(b.chapters[2]), 30.0);

    // The third chapter now starts 5 s into the second file.
    const auto moved = timeline.movingStart(b.chapters, 2, 15.0);
    ASSERT_TRUE(moved.has_value());
    const Bookmark& second = (*moved)[1];
    const Bookmark& third = (*moved)[2];
    EXPECT_DOUBLE_EQ(second.duration, 5.0);
    ASSERT_EQ(second.tracks.size(), 1u);
    EXPECT_EQ(third.tracks.size(), 2u);
    EXPECT_EQ(third.tracks.front().id, b.tracks[1].id);
    EXPECT_DOUBLE_EQ(third.startOffset, 5.0);
    EXPECT_DOUBLE_EQ(third.duration, 45.0);
    EXPECT_EQ(third.id, b.chapters[2].id);
    EXPECT_EQ(third.title, b.chapters[2].title);
    EXPECT_DOUBLE_EQ(timeline.start(third), 15.0);

    // A boundary exactly on a track's start does not drag the track before in.
    const auto onEdge = timeline.movingStart(b.chapters, 2, 30.0);
    ASSERT_TRUE(onEdge.has_value());
    EXPECT_EQ((*onEdge)[1].tracks.size(), 1u);
}

TEST(ChapterTimeline, ImpossibleMovesAreRefused)
{
    Book b;
    const ChapterTimeline timeline(b.tracks);
    EXPECT_FALSE(timeline.movingStart(b.chapters, 0, 1.0).has_value());  // the first starts at 0
    EXPECT_FALSE(timeline.movingStart(b.chapters, 1, 0.2).has_value());  // the one before would vanish
    EXPECT_FALSE(timeline.movingStart(b.chapters, 1, 29.9).has_value()); // this one would vanish
    EXPECT_FALSE(timeline.movingStart(b.chapters, 3, 40).has_value());
    EXPECT_FALSE(timeline.settingDuration(b.chapters, 2, 10).has_value()); // the last runs to the end
    const auto longer = timeline.settingDuration(b.chapters, 0, 12.5);
    ASSERT_TRUE(longer.has_value());
    EXPECT_DOUBLE_EQ((*longer)[0].duration, 12.5);
    EXPECT_DOUBLE_EQ((*longer)[1].duration, 17.5);
}

TEST(ChapterLayouts, ChaptersFollowTheirTracksUnlessTheyCrossTracks)
{
    Book b;
    b.chapters[0].title = QStringLiteral("Kept");
    const std::vector<Track> reordered{b.tracks[2], b.tracks[0]};
    const auto after = ChapterLayouts::afterTrackChange(b.chapters, reordered);
    ASSERT_EQ(after.size(), 2u);
    EXPECT_EQ(after[0].tracks.front().id, b.tracks[2].id);
    EXPECT_EQ(after[1].title, QStringLiteral("Kept"));

    // A chapter over two tracks cannot follow: the files' own layout returns.
    const auto crossing = *ChapterTimeline(b.tracks).movingStart(b.chapters, 2, 15.0);
    const auto relaid = ChapterLayouts::afterTrackChange(crossing, reordered);
    ASSERT_EQ(relaid.size(), 2u);
    EXPECT_EQ(relaid[0].title, QStringLiteral("c.mp3"));
    EXPECT_NE(relaid[1].title, QStringLiteral("Kept"));
}

TEST(PlaybackTimeline, LocatesMomentsAndChapters)
{
    Book b;
    b.chapters = *ChapterTimeline(b.tracks).movingStart(b.chapters, 2, 15.0);
    const PlaybackTimeline timeline(b.tracks, b.chapters);
    const auto at = timeline.locate(12.0);
    EXPECT_EQ(at.track, 1u);
    EXPECT_DOUBLE_EQ(at.offset, 2.0);
    EXPECT_EQ(timeline.locate(99).track, 2u); // clamped to the end
    EXPECT_DOUBLE_EQ(timeline.locate(99).offset, 30.0);
    EXPECT_EQ(timeline.chapterAt(14.9), std::optional<size_t>(1));
    EXPECT_EQ(timeline.chapterAt(15.0), std::optional<size_t>(2));
    EXPECT_EQ(timeline.nextChapter(3.0), std::optional<size_t>(1));
    EXPECT_EQ(timeline.nextChapter(20.0), std::nullopt);
    // "Previous" a moment into a chapter goes to its start, later to its own start.
    EXPECT_EQ(timeline.previousChapter(16.0), std::optional<size_t>(1));
    EXPECT_EQ(timeline.previousChapter(25.0), std::optional<size_t>(2));
    EXPECT_EQ(timeline.previousChapter(1.0), std::optional<size_t>(0));
    EXPECT_TRUE(PlaybackTimeline().isEmpty());
    EXPECT_EQ(PlaybackTimeline().chapterAt(0), std::nullopt);
}

TEST(TimeText, FormatsAndReadsTimes)
{
    EXPECT_EQ(TimeText::format(75.25), QStringLiteral("1:15.250"));
    EXPECT_EQ(TimeText::format(3725.0, false), QStringLiteral("1:02:05"));
    EXPECT_EQ(TimeText::parse(QStringLiteral("1:15.250")), std::optional<double>(75.25));
    EXPECT_EQ(TimeText::parse(QStringLiteral("1:02:05")), std::optional<double>(3725.0));
    EXPECT_EQ(TimeText::parse(QStringLiteral(" 83,5 ")), std::optional<double>(83.5));
    EXPECT_EQ(TimeText::parse(QStringLiteral("1:75")), std::nullopt);
    EXPECT_EQ(TimeText::parse(QStringLiteral("soon")), std::nullopt);
    EXPECT_EQ(TimeText::parse(TimeText::format(4000.125)), std::optional<double>(4000.125));
}
