#pragma once

#include "library/LibraryAdder.h"

#include <QDialog>

class QDialogButtonBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QTreeWidget;

namespace folivox {

class LibraryController;

// Adding folders to the library as it happens: how many books of how many,
// the one being read, and a line for each book (added, already there,
// refused and why). Cancel stops after the book being read; the books added
// so far stay.
class AddBooksDialog : public QDialog {
    Q_OBJECT
public:
    AddBooksDialog(LibraryController& library, QWidget* parent = nullptr);

    QProgressBar* progressBar() const { return progress_; }
    QLabel* statusLabel() const { return status_; }
    QTreeWidget* resultList() const { return results_; }
    QPushButton* cancelButton() const { return cancel_; }
    QPushButton* closeButton() const { return close_; }
    bool isFinished() const { return finished_; }

private:
    void addOutcome(const LibraryAdder::Outcome& outcome);
    void finish(bool cancelled);

    LibraryController& library_;
    QLabel* status_;
    QProgressBar* progress_;
    QTreeWidget* results_;
    QPushButton* cancel_;
    QPushButton* close_;
    int added_ = 0;
    int skipped_ = 0;
    int refused_ = 0;
    bool finished_ = false;
};

} // namespace folivox
