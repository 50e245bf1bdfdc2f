// The library in the window, on books made from real audio: folders added
// with their progress and results, covers in the grid and the list, search
// and order, removal to the trash with undo, and opening books, where a
// switch that can't happen (an operation running, a record that can't be
// read) is shown to the user.
#include "app/book/OpenBook.h"
#include "app/library/AddBooksDialog.h"
#include "app/library/LibraryBadge.h"
#include "app/library/LibraryController.h"
#include "app/library/LibraryFilterModel.h"
#include "app/library/LibraryModel.h"
#include "app/library/LibraryView.h"
#include "app/views/MainWindow.h"
#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"
#include "main/LibraryShelf.h"
#include "main/WindowDriver.h"

#include <QComboBox>
#include <QDir>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::Shelf;
using folivox::test::WindowDriver;
using Op = ActiveBookCoordinator::ExclusiveOperation;

namespace {

QStringList titlesOf(const std::vector<LibraryBookSummary>& books)
{
    QStringList out;
    for (const LibraryBookSummary& b : books)
        out << b.title;
    return out;
}

QStringList shownTitles(const LibraryView& view)
{
    QStringList out;
    for (int r = 0; r < view.filter()->rowCount(); ++r)
        out << view.filter()->index(r, 0).data().toString();
    return out;
}

} // namespace

TEST(LibraryWindow, AddedFoldersShowAsCoversAndAsAListSearchedAndOrdered)
{
    Shelf s;
    ASSERT_TRUE(s.ok);
    LibraryView* view = s.window.libraryView();
    AddBooksDialog* dialog = view->addDialog();
    ASSERT_EQ(dialog->resultList()->topLevelItemCount(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(dialog->resultList()->topLevelItem(i)->text(0), QStringLiteral("Added"));
    EXPECT_TRUE(dialog->statusLabel()->text().startsWith(QStringLiteral("3 added"))) << dialog->statusLabel()->text().toStdString();
    EXPECT_EQ(dialog->progressBar()->value(), dialog->progressBar()->maximum());
    dialog->closeButton()->click();

    // The view shows what the store holds, in title order by default.
    EXPECT_EQ(titlesOf(s.window.library().summaries()).size(), 3);
    EXPECT_EQ(shownTitles(*view), (QStringList{"Dune", "Emma", "Ulysses"}));
    EXPECT_EQ(view->countLabel()->text(), QStringLiteral("3 books"));

    // Covers: Dune's thumbnail comes from the decoder and is drawn on its
    // card; Ulysses has none.
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return !s.shown("Dune").data(LibraryModel::CoverRole).value<QPixmap>().isNull(); }, 10000));
    EXPECT_TRUE(s.shown("Ulysses").data(LibraryModel::CoverRole).value<QPixmap>().isNull());
    const QRect card = view->gridView()->visualRect(s.shown("Dune"));
    const QImage grid = view->gridView()->viewport()->grab().toImage();
    // The corner of the cover: the picture's blue (40, 90, 160).
    const QColor corner = grid.pixelColor(card.left() + 14, card.top() + 14);
    EXPECT_NEAR(corner.red(), 40, 12);
    EXPECT_NEAR(corner.green(), 90, 12);
    EXPECT_NEAR(corner.blue(), 160, 12);

    // Search: every word, in title, author or narrator.
    QTest::keyClicks(view->searchField(), QStringLiteral("ULY"));
    EXPECT_EQ(shownTitles(*view), QStringList{"Ulysses"});
    EXPECT_EQ(view->countLabel()->text(), QStringLiteral("1 of 3 books"));
    view->searchField()->clear();
    EXPECT_EQ(shownTitles(*view).size(), 3);

    // Order by length: Emma (1 s), Ulysses (2 s), Dune (3 s).
    view->orderBox()->setCurrentIndex(view->orderBox()->findText(QStringLiteral("Length")));
    EXPECT_EQ(shownTitles(*view), (QStringList{"Emma", "Ulysses", "Dune"}));

    // The list: the same books with their columns, and the same selection.
    view->selectBooks({s.id("Ulysses")});
    QTest::mouseClick(view->listButton(), Qt::LeftButton);
    EXPECT_EQ(view->layout(), LibraryView::Layout::list);
    QTableView* list = view->listView();
    ASSERT_TRUE(list->isVisible());
    EXPECT_EQ(list->model()->rowCount(), 3);
    const QModelIndex row = list->model()->index(1, LibraryModel::title);
    EXPECT_EQ(row.data().toString(), QStringLiteral("Ulysses"));
    EXPECT_EQ(list->model()->index(1, LibraryModel::length).data().toString(), QStringLiteral("1 min"));
    EXPECT_EQ(view->selectedBooks(), QList<QUuid>{s.id("Ulysses")});
    EXPECT_TRUE(view->queueButton()->isEnabled());
    EXPECT_TRUE(view->removeButton()->isEnabled());
}

TEST(LibraryWindow, ARemovedBookGoesToTheTrashAndUndoPutsItBackInItsPlace)
{
    Shelf s;
    ASSERT_TRUE(s.ok);
    s.closeAddDialog();
    LibraryView* view = s.window.libraryView();
    const std::vector<LibraryBookSummary> before = s.window.library().summaries();
    ASSERT_EQ(before.size(), 3u);
    const QUuid middle = before[1].id;
    LibraryPersistence* files = s.window.library().persistence();
    const QString folder = files->bookFolder(middle);
    ASSERT_TRUE(QFileInfo(folder).isDir());

    view->selectBooks({middle});
    QTest::mouseClick(view->removeButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return view->model()->rowCount() == 2; }, 5000));
    EXPECT_FALSE(QFileInfo::exists(folder));
    EXPECT_TRUE(QFileInfo(QDir(files->trashURL()).filePath(LibraryPersistence::folderName(middle))).isDir());
    ASSERT_TRUE(view->undoButton()->isVisible());
    EXPECT_EQ(view->undoLabel()->text(), QStringLiteral("Moved “%1” to the library's trash.").arg(before[1].title));
    EXPECT_FALSE(view->model()->indexOf(middle).isValid());

    QTest::mouseClick(view->undoButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return view->model()->rowCount() == 3; }, 5000));
    EXPECT_TRUE(QFileInfo(folder).isDir());
    EXPECT_EQ(titlesOf(s.window.library().summaries()), titlesOf(before));
    EXPECT_EQ(s.window.library().summaries()[1].id, middle);
    EXPECT_FALSE(view->undoButton()->isVisible());
    // The index on disk has it back too.
    EXPECT_EQ(titlesOf(files->readIndex().books), titlesOf(before));
}

TEST(LibraryWindow, OpeningABookSwitchesAndABusyOrFailedSwitchIsShown)
{
    Shelf s;
    ASSERT_TRUE(s.ok);
    s.closeAddDialog();
    const QUuid dune = s.id("Dune"), emma = s.id("Emma"), ulysses = s.id("Ulysses");

    s.activate("Dune");
    ASSERT_EQ(s.window.currentView(), MainWindow::View::book);
    EXPECT_EQ(s.window.library().openBookID(), dune);
    EXPECT_EQ(s.window.book().metadata().title, QStringLiteral("Dune"));
    EXPECT_EQ(s.window.book().tracks().size(), 3u);
    const QList<LibraryBadge> badges = s.shown("Dune").data(LibraryModel::BadgesRole).value<QList<LibraryBadge>>();
    ASSERT_FALSE(badges.isEmpty());
    EXPECT_EQ(badges.first().kind, LibraryBadge::Kind::open);

    // An edit of the open book is a new revision of its record.
    const int revision = s.window.library().coordinator()->currentRevision();
    ASSERT_TRUE(s.window.book().renameChapter(0, QStringLiteral("Opening")));
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return s.window.library().coordinator()->currentRevision() == revision + 1; }, 5000));

    // While books are being merged, a switch is refused and the user told.
    s.window.showView(MainWindow::View::library);
    ASSERT_TRUE(s.window.library().coordinator()->beginExclusive(Op::mergingBooks));
    s.activate("Emma");
    EXPECT_EQ(s.window.currentView(), MainWindow::View::library);
    EXPECT_EQ(s.window.library().openBookID(), dune);
    EXPECT_EQ(s.window.book().metadata().title, QStringLiteral("Dune"));
    EXPECT_EQ(s.window.libraryView()->message(),
              QStringLiteral("“Emma” can't be opened now. Books are being merged. Try again when it has finished."));
    s.window.library().coordinator()->endExclusive();

    // A record that can't be read: an alert, and the book is marked.
    const QString record = s.window.library().persistence()->bookFile(ulysses);
    {
        QFile f(record);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write("{ this is not a book");
    }
    s.activate("Ulysses");
    ASSERT_EQ(WindowDriver::alerts(s.window).size(), 1);
    EXPECT_TRUE(WindowDriver::alerts(s.window).first()->text().startsWith(QStringLiteral("“Ulysses” could not be read from the library:")))
        << WindowDriver::alerts(s.window).first()->text().toStdString();
    WindowDriver::dismissAlerts(s.window);
    EXPECT_EQ(s.window.library().openBookID(), dune);
    ASSERT_TRUE(s.window.library().summary(ulysses)->needsAttention);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return s.shown("Ulysses").data(Qt::DisplayRole).isValid()
                                                     && !s.shown("Ulysses").data(LibraryModel::AttentionRole).isNull(); }, 5000));
    const QModelIndex broken = s.shown("Ulysses");
    bool marked = false;
    for (const LibraryBadge& b : broken.data(LibraryModel::BadgesRole).value<QList<LibraryBadge>>())
        marked = marked || b.kind == LibraryBadge::Kind::needsAttention;
    EXPECT_TRUE(marked);
    EXPECT_TRUE(broken.data(Qt::ToolTipRole).toString().contains(record + QStringLiteral(".corrupt")))
        << broken.data(Qt::ToolTipRole).toString().toStdString();

    // Emma opens; Dune's edit is on disk, and a missing source marks Emma.
    const BookStateDTO emmaState = s.window.library().store()->loadState(emma);
    const QString source = emmaState.tracks.front().url.toLocalFile();
    ASSERT_TRUE(QFile::rename(source, source + QStringLiteral(".away")));
    s.activate("Emma");
    EXPECT_EQ(s.window.library().openBookID(), emma);
    EXPECT_EQ(s.window.book().metadata().title, QStringLiteral("Emma"));
    EXPECT_EQ(s.window.library().persistence()->readBook(dune).state.bookmarks[0].title, QStringLiteral("Opening"));
    ASSERT_TRUE(s.window.library().summary(emma)->needsAttention);
    // The view follows once the library's change has come through.
    EXPECT_TRUE(WindowDriver::waitUntil([&] { return s.shown("Emma").data(Qt::ToolTipRole).toString().contains(source); }, 5000))
        << s.shown("Emma").data(Qt::ToolTipRole).toString().toStdString();
}

TEST(LibraryWindow, ALibraryBookOpenAtQuitIsOpenAgainAtTheNextStart)
{
    folivox::test::PrivateHome home;
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("Persuasion"));
    ASSERT_TRUE(WindowDriver::makeBookFolder(folder, 2, 1.0, false));
    QUuid id;
    {
        MainWindow first;
        first.show();
        first.libraryView()->addFolders({folder});
        ASSERT_TRUE(WindowDriver::waitUntil([&] { return first.libraryView()->addDialog() && first.libraryView()->addDialog()->isFinished(); },
                                            60000));
        ASSERT_EQ(first.library().summaries().size(), 1u);
        id = first.library().summaries().front().id;
        ASSERT_EQ(first.switchToLibraryBook(id).kind, ActiveBookCoordinator::SwitchResult::Kind::switched);
        ASSERT_TRUE(first.book().renameChapter(1, QStringLiteral("The Letter")));
        ASSERT_TRUE(first.close());
    }
    MainWindow second;
    second.restoreWorkingState();
    EXPECT_EQ(second.library().openBookID(), id);
    ASSERT_EQ(second.book().chapters().size(), 2u);
    EXPECT_EQ(second.book().chapters()[1].title, QStringLiteral("The Letter"));
    EXPECT_EQ(second.book().id(), id);
}
