#pragma once

#include <QWidget>

class QComboBox;
class QPushButton;
class QTableView;

namespace folivox {

class DamagePanel;
class OpenBook;
class TrackIntegrity;
class TrackTableModel;

// The book's tracks: the list (drag a row to reorder it), a sort mode,
// and removing the selected tracks. A double click plays a track. Damaged
// MP3s are marked in the list, with their holes below it.
class TracksPanel : public QWidget {
    Q_OBJECT
public:
    explicit TracksPanel(OpenBook& book, QWidget* parent = nullptr);

    QTableView* view() const { return view_; }
    QComboBox* sortBox() const { return sort_; }
    QPushButton* removeButton() const { return remove_; }
    void removeSelected();
    // Shows each MP3's check in the list, and the holes of damaged ones below it.
    void setIntegrity(TrackIntegrity* integrity);
    DamagePanel* damagePanel() const { return damage_; }
    TrackTableModel* model() const { return model_; }

Q_SIGNALS:
    void playTrackRequested(int row);

private:
    OpenBook& book_;
    TrackTableModel* model_;
    QTableView* view_;
    QComboBox* sort_;
    QPushButton* remove_;
    DamagePanel* damage_ = nullptr;
};

} // namespace folivox
