#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace folivox {

class InPlaceUpdateViewModel;

// Above the build bar, for a book that has been built: Update in Place
// when the book can take it, the reasons when it can't, the phase and
// progress of a run with its Cancel, and how the run ended for as long as
// its outcome is held. Shows what the view model publishes, nothing more.
class InPlaceUpdateBar : public QWidget {
    Q_OBJECT
public:
    InPlaceUpdateBar(InPlaceUpdateViewModel& model, QWidget* parent = nullptr);

    // Another write of the book's files runs (a build): no update now.
    void setBlocked(bool blocked);

    QPushButton* updateButton() const { return update_; }
    QPushButton* cancelButton() const { return cancel_; }
    QLabel* statusLabel() const { return status_; }
    QProgressBar* progressBar() const { return progress_; }

Q_SIGNALS:
    // Update in Place was pressed (the window starts the run).
    void updateRequested();

private:
    void refresh();

    InPlaceUpdateViewModel& model_;
    QPushButton* update_;
    QLabel* status_;
    QProgressBar* progress_;
    QPushButton* cancel_;
    bool blocked_ = false;
};

} // namespace folivox
