// Whether the open book can be written into its built files in place: the
// book's chapters of now against those its last build recorded, on the same
// clock, so that sources whose probed lengths differ from the built file's
// marks by milliseconds don't count as moved chapters.
#include "app/book/OpenBook.h"
#include "app/inplace/InPlaceUpdateViewModel.h"
#include "library/BookBuildInputs.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using State = InPlaceUpdateViewModel::State;

namespace {

// Six chapters of 150.022 s (an MP3's probed length), one file each, and a
// built M4B: with the chapters built recorded, or without (older records).
BookStateDTO builtBook(const QString& dir, bool chaptersRecorded)
{
    BookStateDTO s = BookStateDTO::makeNew();
    for (int i = 1; i <= 6; ++i) {
        Track t;
        t.url = QUrl::fromLocalFile(QDir(dir).filePath(QStringLiteral("%1.mp3").arg(i)));
        QFile f(t.url.toLocalFile());
        f.open(QIODevice::WriteOnly);
        t.title = QStringLiteral("Part %1").arg(i);
        t.duration = 150.022;
        s.tracks.push_back(t);
        Bookmark b;
        b.title = t.title;
        b.tracks = {t};
        b.duration = t.duration;
        s.bookmarks.push_back(b);
    }
    s.metadata.title = QStringLiteral("Long Book");
    const QString output = QDir(dir).filePath(QStringLiteral("Long Book.m4b"));
    QFile f(output);
    f.open(QIODevice::WriteOnly);
    f.write("not read when the chapters are recorded");
    f.close();
    BuildRecord record = BookBuildInputs::from(s).record({output});
    if (!chaptersRecorded)
        record.chapters.clear();
    s.lastBuild = record;
    return s;
}

} // namespace

TEST(InPlaceUpdateViewModel, ChaptersAreComparedWithThoseTheBuildRecordedAndATitleIsNoReason)
{
    QTemporaryDir dir;
    OpenBook book;
    InPlaceUpdateViewModel model(book);
    EXPECT_EQ(model.state(), State::notBuilt);

    book.restore(builtBook(dir.path(), true));
    ASSERT_EQ(model.state(), State::eligible);
    ASSERT_TRUE(model.cachedEligibility()->mode);
    EXPECT_EQ(model.cachedEligibility()->mode->kind, InPlaceUpdateMode::Kind::singleFile);

    // A new title is what an update is for.
    ASSERT_TRUE(book.renameChapter(5, QStringLiteral("Epilogue")));
    EXPECT_EQ(model.state(), State::eligible);

    // The last chapter's start moved by 0.1 s still passes; by 0.11 s it doesn't.
    std::vector<Bookmark> moved = book.chapters();
    moved[4].duration += 0.1;
    moved[5].duration -= 0.1;
    BookStateDTO s = book.state();
    s.bookmarks = moved;
    book.restore(s);
    EXPECT_EQ(model.state(), State::eligible);
    s.bookmarks[4].duration += 0.01;
    s.bookmarks[5].duration -= 0.01;
    book.restore(s);
    EXPECT_EQ(model.state(), State::ineligible);
    EXPECT_EQ(model.ineligibilityReasons(), QList<IneligibilityReason>{IneligibilityReason::chapterBoundariesChanged});

    // Reordered files, and one chapter fewer.
    book.restore(builtBook(dir.path(), true));
    ASSERT_EQ(model.state(), State::eligible);
    book.moveTrack(0, 1);
    EXPECT_EQ(model.ineligibilityReasons(), QList<IneligibilityReason>{IneligibilityReason::chaptersReordered});
    book.undo();
    EXPECT_EQ(model.state(), State::eligible);
    book.removeTracks({5});
    EXPECT_EQ(model.ineligibilityReasons(), QList<IneligibilityReason>{IneligibilityReason::chaptersAddedOrRemoved});

    // The built file gone: not offered, and said why.
    book.restore(builtBook(dir.path(), true));
    QFile::remove(QDir(dir.path()).filePath(QStringLiteral("Long Book.m4b")));
    book.setLastBuild(std::nullopt);
    EXPECT_EQ(model.state(), State::notBuilt);
    book.restore(builtBook(dir.path(), true));
    QFile::remove(QDir(dir.path()).filePath(QStringLiteral("Long Book.m4b")));
    book.renameChapter(0, QStringLiteral("Prologue")); // a change: the check is made again
    EXPECT_EQ(model.ineligibilityReasons(), QList<IneligibilityReason>{IneligibilityReason::fileNotFound});
}

TEST(InPlaceUpdateViewModel, ARecordWithoutChaptersIsComparedWithTheFilesOwn)
{
    QTemporaryDir dir;
    OpenBook book;
    InPlaceUpdateViewModel model(book);
    // The "M4B" here has no chapters a reader finds: as good as none.
    book.restore(builtBook(dir.path(), false));
    EXPECT_EQ(model.state(), State::ineligible);
    EXPECT_EQ(model.ineligibilityReasons(), QList<IneligibilityReason>{IneligibilityReason::chaptersAddedOrRemoved});
}
