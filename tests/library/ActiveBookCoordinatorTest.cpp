// Switching the open book between library books, exclusive operations, and
// builds recorded against the revision they started from.
#include "LibraryTestSupport.h"

#include "core/book/BookMetadataStore.h"
#include "core/book/BookSession.h"
#include "core/book/BookmarksStore.h"
#include "core/book/BookmarksUndoManager.h"
#include "core/chapters/ChapterViewModel.h"
#include "import/ImportCoordinator.h"
#include "library/ActiveBookCoordinator.h"
#include "library/BookBuildInputs.h"
#include "library/LibraryStore.h"
#include "platform/Log.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;
using Kind = ActiveBookCoordinator::SwitchResult::Kind;
using Op = ActiveBookCoordinator::ExclusiveOperation;

namespace {

class ActiveBookCoordinatorTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    std::shared_ptr<LibraryPersistence> persistence = std::make_shared<LibraryPersistence>(dir.filePath("Library"));
    LibraryStore store{persistence, std::chrono::hours(1)}; // autosave only when flushed
    BookmarksStore bookmarks;
    ChapterViewModel chapters;
    BookMetadataStore book;
    BookmarksUndoManager undo;
    std::shared_ptr<ImportCoordinator> importer = std::make_shared<ImportCoordinator>();
    QStringList hookCalls;
    BookSession session{bookmarks, chapters, book, undo,
                        BookSession::Hooks{[this] { hookCalls << "cancelImport"; },
                                           [this] {
                                               hookCalls << "resetImportState";
                                               importer->resetBook();
                                           },
                                           {}, {}, {}, {}, {}}};
    ActiveBookCoordinator coordinator{store, session, importer};
    BookStateDTO dune;
    BookStateDTO emma;

    void SetUp() override
    {
        store.load();
        dune = bookIn(dir.filePath("src"), QStringLiteral("Dune"), 2);
        emma = bookIn(dir.filePath("src"), QStringLiteral("Emma"), 3);
        store.saveNow(dune);
        store.saveNow(emma);
    }
};

} // namespace

TEST_F(ActiveBookCoordinatorTest, SwitchingGivesEachOfItsFourResults)
{
    EXPECT_EQ(coordinator.switchTo(dune.id).kind, Kind::switched);
    EXPECT_EQ(coordinator.currentBookID(), dune.id);
    EXPECT_EQ(store.activeBookID(), dune.id);
    EXPECT_EQ(book.metadata().title, QStringLiteral("Dune"));
    EXPECT_EQ(bookmarks.bookmarks(), dune.bookmarks);
    EXPECT_EQ(importer->bookTracks(), dune.tracks);

    EXPECT_EQ(coordinator.switchTo(dune.id).kind, Kind::alreadyActive);

    // A record that can't be read: the open book stays open.
    const QUuid missing = QUuid::createUuid();
    const auto failed = coordinator.switchTo(missing);
    EXPECT_EQ(failed.kind, Kind::loadFailed);
    EXPECT_EQ(failed.bookID, missing);
    EXPECT_EQ(coordinator.currentBookID(), dune.id);
    EXPECT_EQ(book.metadata().title, QStringLiteral("Dune"));

    ASSERT_TRUE(coordinator.beginExclusive(Op::mergingBooks));
    EXPECT_FALSE(coordinator.beginExclusive(Op::addingBooks));
    const auto busy = coordinator.switchTo(emma.id);
    EXPECT_EQ(busy.kind, Kind::busy);
    EXPECT_EQ(busy.operation, Op::mergingBooks);
    EXPECT_EQ(coordinator.currentBookID(), dune.id);
    coordinator.endExclusive();

    LogCapture log;
    hookCalls.clear();
    EXPECT_EQ(coordinator.switchTo(emma.id).kind, Kind::switched);
    EXPECT_EQ(hookCalls, (QStringList{"cancelImport", "resetImportState"}));
    EXPECT_TRUE(log.contains(QStringLiteral("[BookSession] tearDown(switching to ")));
    EXPECT_EQ(importer->bookTracks(), emma.tracks);
    EXPECT_EQ(bookmarks.bookmarks().size(), 3u);
    EXPECT_FALSE(undo.canUndo());
}

TEST_F(ActiveBookCoordinatorTest, AnExclusiveOperationRefusesAnImport)
{
    ASSERT_TRUE(coordinator.beginExclusive(Op::addingBooks));
    LogCapture log;
    const ImportResult r = importer->import({QUrl::fromLocalFile(dune.tracks[0].url.toLocalFile())});
    EXPECT_EQ(r.status, ImportResult::Status::busy);
    ASSERT_TRUE(r.alert);
    EXPECT_EQ(r.alert->messageKey, QStringLiteral("library.import.busy.message"));
    EXPECT_TRUE(log.contains(QStringLiteral("Import refused: an exclusive library operation is running")));
    coordinator.endExclusive();
    EXPECT_FALSE(coordinator.isExclusiveOperationRunning());
}

TEST_F(ActiveBookCoordinatorTest, TheOpenBookIsSavedBeforeASwitchAndEditsRaiseTheRevision)
{
    ASSERT_EQ(coordinator.switchTo(dune.id).kind, Kind::switched);
    const int start = coordinator.currentRevision();
    coordinator.noteEdit(); // nothing changed
    EXPECT_EQ(coordinator.currentRevision(), start);

    std::vector<Bookmark> edited = bookmarks.bookmarks();
    edited[0].title = QStringLiteral("Prologue");
    bookmarks.setBookmarks(edited);
    coordinator.noteEdit();
    EXPECT_EQ(coordinator.currentRevision(), start + 1);
    EXPECT_TRUE(store.hasPendingSave(dune.id)); // the autosave waits an hour
    EXPECT_EQ(persistence->readBook(dune.id).state.revision, start);

    // A build starts from this revision; an edit during it does not count as built.
    const auto token = coordinator.buildStartToken();
    ASSERT_TRUE(token);
    EXPECT_EQ(token->revision, start + 1);
    BookMetadata m = book.metadata();
    m.narrator = QStringLiteral("Scott Brick");
    book.setMetadata(m);
    coordinator.noteEdit();

    ASSERT_EQ(coordinator.switchTo(emma.id).kind, Kind::switched);
    const BookStateDTO saved = persistence->readBook(dune.id).state;
    EXPECT_EQ(saved.revision, start + 2);
    EXPECT_EQ(saved.bookmarks[0].title, QStringLiteral("Prologue"));
    EXPECT_EQ(saved.metadata.narrator, QStringLiteral("Scott Brick"));

    const QString out = dir.filePath(QStringLiteral("Dune.m4b"));
    writeAll(out, "built");
    coordinator.recordBuild(*token, BookBuildInputs::from(saved).record({out}));
    const BookStateDTO afterBuild = store.loadState(dune.id);
    ASSERT_TRUE(afterBuild.lastBuild);
    EXPECT_EQ(afterBuild.lastBuild->revision, start + 1);
    EXPECT_TRUE(store.summary(dune.id)->changedSinceBuild());
    // The open book (Emma) learned nothing about Dune's build.
    EXPECT_FALSE(coordinator.currentLastBuild());

    // Settings loaded with a book are absorbed; a user's change is an edit.
    const int emmaRevision = coordinator.currentRevision();
    coordinator.absorbNextSettingsUpdate = true;
    coordinator.setCurrentSettings(ExportSettings());
    EXPECT_EQ(coordinator.currentRevision(), emmaRevision);
    ExportSettings changed;
    changed.cbrBitrateKbps = 64;
    coordinator.setCurrentSettings(changed);
    EXPECT_EQ(coordinator.currentRevision(), emmaRevision + 1);
}

TEST_F(ActiveBookCoordinatorTest, ClosingTheOpenBookSavesItAndLeavesNoBookOpen)
{
    ASSERT_EQ(coordinator.switchTo(dune.id).kind, Kind::switched);
    std::vector<Bookmark> edited = bookmarks.bookmarks();
    edited[1].title = QStringLiteral("Arrakis");
    bookmarks.setBookmarks(edited);
    coordinator.noteEdit();
    const int revision = coordinator.currentRevision();

    // Refused while an operation that rewrites records runs.
    ASSERT_TRUE(coordinator.beginExclusive(Op::mergingBooks));
    EXPECT_FALSE(coordinator.closeCurrentBook(BookSession::TearDownReason::newBook()));
    EXPECT_EQ(coordinator.currentBookID(), dune.id);
    coordinator.endExclusive();

    hookCalls.clear();
    ASSERT_TRUE(coordinator.closeCurrentBook(BookSession::TearDownReason::newBook()));
    EXPECT_EQ(hookCalls, (QStringList{"cancelImport", "resetImportState"}));
    EXPECT_FALSE(coordinator.currentBookID());
    EXPECT_FALSE(store.activeBookID());
    EXPECT_TRUE(bookmarks.bookmarks().empty());
    // Written at once, with the edit, not left to the autosave.
    EXPECT_FALSE(store.hasPendingSave(dune.id));
    const BookStateDTO saved = persistence->readBook(dune.id).state;
    EXPECT_EQ(saved.revision, revision);
    EXPECT_EQ(saved.bookmarks[1].title, QStringLiteral("Arrakis"));
    // With no book open, an edit of the empty stores reaches no record.
    coordinator.noteEdit();
    EXPECT_FALSE(store.hasPendingSave(dune.id));
    EXPECT_EQ(persistence->readBook(dune.id).state.bookmarks.size(), 2u);
}
