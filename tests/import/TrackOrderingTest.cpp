#include "import/TrackOrdering.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

Track track(const QString& path, const QString& title = {})
{
    Track t;
    t.url = QUrl::fromLocalFile(path);
    t.title = title.isEmpty() ? QFileInfo(path).completeBaseName() : title;
    t.duration = 1;
    return t;
}

QStringList names(const std::vector<Track>& tracks, bool withFolder = false)
{
    QStringList out;
    for (const Track& t : tracks) {
        const QFileInfo i(t.url.toLocalFile());
        out << (withFolder ? i.dir().dirName() + u'/' + i.fileName() : i.fileName());
    }
    return out;
}

} // namespace

TEST(TrackOrderingTest, NumbersInNamesOrderByValue)
{
    const std::vector<Track> in{track("/b/10.mp3"), track("/b/2.mp3"), track("/b/1.mp3")};
    EXPECT_EQ(names(TrackOrdering::sorted(in)), (QStringList{"1.mp3", "2.mp3", "10.mp3"}));
    // Without a leading number the collator still orders by value.
    const std::vector<Track> words{track("/b/Side 10 end.mp3"), track("/b/Side 9 end.mp3"),
                                   track("/b/Side 1 end.mp3")};
    EXPECT_EQ(names(TrackOrdering::sorted(words)),
              (QStringList{"Side 1 end.mp3", "Side 9 end.mp3", "Side 10 end.mp3"}));
    // Reverse order turns it round.
    EXPECT_EQ(names(TrackOrdering::sorted(in, TrackOrdering::SortOrder::reverse)),
              (QStringList{"10.mp3", "2.mp3", "1.mp3"}));
}

TEST(TrackOrderingTest, FolderComesFirstThenDiscThenTrack)
{
    // Untagged: the folder decides before the track number in the name.
    const std::vector<Track> in{track("/book/CD2/01.mp3"), track("/book/CD1/02.mp3")};
    EXPECT_EQ(names(TrackOrdering::sorted(in), true), (QStringList{"CD1/02.mp3", "CD2/01.mp3"}));

    // Same folder: a disc tag of 2 stands after a disc tag of 1, whatever the names.
    Track a = track("/book/a-01.mp3");
    a.discNumber = 2;
    Track b = track("/book/z-99.mp3");
    b.discNumber = 1;
    EXPECT_EQ(names(TrackOrdering::sorted({a, b})), (QStringList{"z-99.mp3", "a-01.mp3"}));

    // Track tags beat names.
    Track x = track("/book/first.mp3");
    x.trackNumber = 2;
    Track y = track("/book/second.mp3");
    y.trackNumber = 1;
    EXPECT_EQ(names(TrackOrdering::sorted({x, y})), (QStringList{"second.mp3", "first.mp3"}));

    // A disc in the file name.
    EXPECT_EQ(names(TrackOrdering::sorted({track("/b/Disc 2 - 01.mp3"), track("/b/Disc 1 - 05.mp3")})),
              (QStringList{"Disc 1 - 05.mp3", "Disc 2 - 01.mp3"}));
}

TEST(TrackOrderingTest, SeriesAndSeriesIndexOrderBeforeDisc)
{
    Track a = track("/s/a.mp3");
    a.seriesName = QStringLiteral("Saga");
    a.seriesIndex = SeriesIndex::parse(QStringLiteral("10"));
    Track b = track("/s/b.mp3");
    b.seriesName = QStringLiteral("Saga");
    b.seriesIndex = SeriesIndex::parse(QStringLiteral("2.5"));
    Track c = track("/s/c.mp3");
    c.seriesName = QStringLiteral("Saga");  // no index: after every numbered one
    Track d = track("/s/d.mp3");            // no series: empty name sorts first
    EXPECT_EQ(names(TrackOrdering::sorted({a, b, c, d})), (QStringList{"d.mp3", "b.mp3", "a.mp3", "c.mp3"}));
}

TEST(TrackOrderingTest, TiesKeepInputOrder)
{
    // Same folder, name and everything else: only the input order tells them apart.
    Track a = track("/t/same.mp3", "A");
    Track b = track("/t/same.mp3", "B");
    Track c = track("/t/same.mp3", "C");
    auto out = TrackOrdering::sorted({b, c, a});
    EXPECT_EQ(out[0].title, "B");
    EXPECT_EQ(out[1].title, "C");
    EXPECT_EQ(out[2].title, "A");
}

TEST(TrackOrderingTest, NamePatterns)
{
    EXPECT_EQ(TrackOrdering::discNumberInName("CD 3"), 3);
    EXPECT_EQ(TrackOrdering::discNumberInName("cd12"), 12);
    EXPECT_EQ(TrackOrdering::discNumberInName("The Book (Disk 4)"), 4);
    EXPECT_EQ(TrackOrdering::discNumberInName("Диск 2"), 2);
    EXPECT_EQ(TrackOrdering::discNumberInName("ЧАСТЬ 5"), 5);
    EXPECT_EQ(TrackOrdering::discNumberInName("Книга 1"), 1);
    EXPECT_EQ(TrackOrdering::discNumberInName("Том 7"), 7);
    EXPECT_FALSE(TrackOrdering::discNumberInName("Chapter 3"));

    EXPECT_EQ(TrackOrdering::trackNumberInName("07 - Storm.mp3"), 7);
    EXPECT_EQ(TrackOrdering::trackNumberInName("12.mp3"), 12);
    EXPECT_EQ(TrackOrdering::trackNumberInName("  3) intro.mp3"), 3);
    EXPECT_EQ(TrackOrdering::trackNumberInName("Book Track 14.mp3"), 14);
    EXPECT_EQ(TrackOrdering::trackNumberInName("book_trk05.mp3"), 5);
    EXPECT_EQ(TrackOrdering::trackNumberInName("Story Pt 2.mp3"), 2);
    EXPECT_FALSE(TrackOrdering::trackNumberInName("12345 files.mp3"));  // more than four digits lead
    EXPECT_FALSE(TrackOrdering::trackNumberInName("intro.mp3"));

    // Title carries the number when the name does not.
    const auto k = TrackOrdering::key(track("/x/intro.mp3", QStringLiteral("03 - The Storm")));
    EXPECT_EQ(k.track, 3);
    const auto none = TrackOrdering::key(track("/x/intro.mp3", QStringLiteral("The Storm")));
    EXPECT_EQ(none.track, std::numeric_limits<qint64>::max());
    EXPECT_EQ(none.disc, std::numeric_limits<qint64>::max());
    EXPECT_EQ(TrackOrdering::key(track("/x/CD2/Part/intro.mp3")).disc, 2);  // a folder further up
}

TEST(TrackOrderingTest, SortModes)
{
    Track a = track("/m/b-file.mp3", QStringLiteral("Zulu"));
    a.trackNumber = 1;
    Track b = track("/m/a-file.mp3", QStringLiteral("alpha"));
    b.trackNumber = 3;
    Track c = track("/m/c-file.mp3", QStringLiteral("Mike"));
    c.trackNumber = 2;
    const std::vector<Track> in{a, b, c};
    EXPECT_EQ(names(TrackOrdering::sorted(in, TrackSortMode::filename)),
              (QStringList{"a-file.mp3", "b-file.mp3", "c-file.mp3"}));
    EXPECT_EQ(names(TrackOrdering::sorted(in, TrackSortMode::trackNumber)),
              (QStringList{"b-file.mp3", "c-file.mp3", "a-file.mp3"}));
    EXPECT_EQ(names(TrackOrdering::sorted(in, TrackSortMode::title)),
              (QStringList{"a-file.mp3", "c-file.mp3", "b-file.mp3"}));
    EXPECT_EQ(names(TrackOrdering::sorted(in, TrackSortMode::auto_)),
              (QStringList{"b-file.mp3", "c-file.mp3", "a-file.mp3"}));

    QTemporaryDir dir;
    for (const char* n : {"new.mp3", "old.mp3", "mid.mp3"}) {
        QFile f(dir.filePath(n));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    }
    const QDateTime base = QDateTime::currentDateTimeUtc().addDays(-1);
    auto touch = [&](const char* n, int minutes) {
        QFile f(dir.filePath(n));
        ASSERT_TRUE(f.open(QIODevice::ReadWrite));
        ASSERT_TRUE(f.setFileTime(base.addSecs(minutes * 60), QFileDevice::FileModificationTime));
    };
    touch("new.mp3", 30);
    touch("old.mp3", 1);
    touch("mid.mp3", 10);
    const std::vector<Track> files{track(dir.filePath("new.mp3")), track(dir.filePath("old.mp3")),
                                   track(dir.filePath("mid.mp3"))};
    EXPECT_EQ(names(TrackOrdering::sorted(files, TrackSortMode::dateModified)),
              (QStringList{"old.mp3", "mid.mp3", "new.mp3"}));
}
