#include "container/mp3/MP3ChapterDamageMap.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {

Track track(const QString& path, double duration)
{
    Track t;
    t.url = QUrl::fromLocalFile(path);
    t.duration = duration;
    return t;
}

Bookmark chapter(std::vector<Track> tracks, double start, double duration)
{
    Bookmark b;
    b.tracks = std::move(tracks);
    b.startOffset = start;
    b.duration = duration;
    return b;
}

MP3IntegrityReport report(std::vector<std::pair<double, double>> holes)
{
    MP3IntegrityReport r;
    for (const auto& [start, missing] : holes)
        r.holes.push_back({0, 100, start, missing});
    return r;
}

} // namespace

TEST(MP3ChapterDamageMapTest, HolesLandOnFilesStretchesAndChaptersAcrossFiles)
{
    // a.mp3 (600 s) has holes at 100 s (2 s) and 300 s of play (3 s): on its
    // original time line the second starts at 302 s. b.mp3 (400 s) has one at
    // 50 s (1.5 s).
    const Track a = track("/book/a.mp3", 600);
    const Track b = track("/book/b.mp3", 400);
    const auto lookup = [](const QUrl& url) -> std::optional<MP3IntegrityReport> {
        if (url.toLocalFile() == "/book/a.mp3")
            return report({{100, 2}, {300, 3}});
        if (url.toLocalFile() == "/book/b.mp3")
            return report({{50, 1.5}});
        return std::nullopt;
    };
    EXPECT_DOUBLE_EQ(MP3ChapterDamageMap::originalTime(*lookup(a.url), 1), 302);

    // One chapter per file.
    auto holes = MP3ChapterDamageMap::holesOfChapter(chapter({a}, 0, 600), lookup);
    ASSERT_EQ(holes.size(), 2u);
    EXPECT_EQ(holes[0], (ChapterDamageHole{a.url, 100, 100, 2}));
    EXPECT_EQ(holes[1], (ChapterDamageHole{a.url, 300, 302, 3}));

    // Stretches of one file: 0-250 gets the first hole, 250-600 the second,
    // counted from its own start.
    holes = MP3ChapterDamageMap::holesOfChapter(chapter({a}, 0, 250), lookup);
    ASSERT_EQ(holes.size(), 1u);
    EXPECT_DOUBLE_EQ(holes[0].chapterTime, 100);
    holes = MP3ChapterDamageMap::holesOfChapter(chapter({a}, 250, 350), lookup);
    ASSERT_EQ(holes.size(), 1u);
    EXPECT_DOUBLE_EQ(holes[0].chapterTime, 52);
    EXPECT_DOUBLE_EQ(holes[0].fileTime, 300);
    // A hole exactly at a stretch's start belongs to that stretch only.
    holes = MP3ChapterDamageMap::holesOfChapter(chapter({a}, 302, 10), lookup);
    ASSERT_EQ(holes.size(), 1u);
    EXPECT_DOUBLE_EQ(holes[0].chapterTime, 0);
    EXPECT_TRUE(MP3ChapterDamageMap::holesOfChapter(chapter({a}, 0, 302), lookup).size() == 1u);

    // A chapter from 500 s in a.mp3 across into b.mp3 for 200 s: 100 s of a,
    // then b's hole at 50 s lands at 150 s of the chapter.
    holes = MP3ChapterDamageMap::holesOfChapter(chapter({a, b}, 500, 200), lookup);
    ASSERT_EQ(holes.size(), 1u);
    EXPECT_EQ(holes[0], (ChapterDamageHole{b.url, 50, 150, 1.5}));
    // Ending before b's hole leaves it out.
    EXPECT_TRUE(MP3ChapterDamageMap::holesOfChapter(chapter({a, b}, 500, 140), lookup).empty());
    // Files without a report add nothing.
    EXPECT_TRUE(MP3ChapterDamageMap::holesOfChapter(chapter({track("/book/c.mp3", 10)}, 0, 10), lookup).empty());
}
