#pragma once

#include <QWidget>

class QComboBox;
class QPushButton;
class QTableView;

namespace folivox {

class OpenBook;
class TrackTableModel;

// The book's tracks: the list (drag a row to reorder it), a sort mode,
// and removing the selected tracks. A double click plays a track.
class TracksPanel : public QWidget {
    Q_OBJECT
public:
    explicit TracksPanel(OpenBook& book, QWidget* parent = nullptr);

    QTableView* view() const { return view_; }
    QComboBox* sortBox() const { return sort_; }
    QPushButton* removeButton() const { return remove_; }
    void removeSelected();

Q_SIGNALS:
    void playTrackRequested(int row);

private:
    OpenBook& book_;
    TrackTableModel* model_;
    QTableView* view_;
    QComboBox* sort_;
    QPushButton* remove_;
};

} // namespace folivox
