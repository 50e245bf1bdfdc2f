#pragma once

// A window over a private library (its own FOLIVOX_HOME) into which a shelf
// of three books made by ffmpeg is added through the library view, as a
// user drops folders on it.

#include "app/library/AddBooksDialog.h"
#include "app/library/LibraryController.h"
#include "app/library/LibraryFilterModel.h"
#include "app/library/LibraryModel.h"
#include "app/library/LibraryView.h"
#include "app/views/MainWindow.h"
#include "main/WindowDriver.h"

#include <QListView>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace folivox::test {

// The shelf: Dune (3 tracks, cover), Emma (1 track, cover), Ulysses (2
// tracks, no cover), each track `seconds` long (1 by default).
struct Shelf {
    PrivateHome home;
    QTemporaryDir dir;
    MainWindow window;
    bool ok = false;

    QUuid id(const QString& title)
    {
        for (const LibraryBookSummary& s : window.library().summaries())
            if (s.title == title)
                return s.id;
        return {};
    }

    QModelIndex shown(const QString& title)
    {
        LibraryView* v = window.libraryView();
        return v->filter()->mapFromSource(v->model()->indexOf(id(title)));
    }

    // Selects the book's card and presses Return, as a user opens a book
    // from the keyboard.
    void activate(const QString& title)
    {
        QListView* grid = window.libraryView()->gridView();
        window.libraryView()->selectBooks({id(title)});
        grid->setFocus();
        QTest::keyClick(grid, Qt::Key_Return);
    }

    // Closes the add dialog once the books are in.
    void closeAddDialog()
    {
        if (AddBooksDialog* d = window.libraryView()->addDialog())
            d->closeButton()->click();
    }

    explicit Shelf(double seconds = 1.0)
    {
        const QString shelf = dir.filePath(QStringLiteral("shelf"));
        if (!WindowDriver::makeBookFolder(shelf + QStringLiteral("/Dune"), 3, seconds, true)
            || !WindowDriver::makeBookFolder(shelf + QStringLiteral("/Emma"), 1, seconds, true)
            || !WindowDriver::makeBookFolder(shelf + QStringLiteral("/Ulysses"), 2, seconds, false))
            return;
        window.resize(1280, 820);
        window.show();
        window.showView(MainWindow::View::library);
        // Folders dropped on the library are added to it.
        if (!WindowDriver::drop(window.libraryView(), {shelf}))
            return;
        ok = WindowDriver::waitUntil([&] {
            return window.libraryView()->addDialog() && window.libraryView()->addDialog()->isFinished();
        }, 120000);
    }
};

} // namespace folivox::test
