#pragma once

#include <QWidget>

class QLabel;
class QPushButton;
class QTableWidget;

namespace folivox {

class TrackIntegrity;

// Under the tracks, when some MP3 of the book is damaged: each hole of each
// damaged file, where it is in the file, the seconds it costs, and the
// chapter it falls in (and where in it); Repair makes clean copies of the
// damaged files. Hidden while nothing is damaged.
class DamagePanel : public QWidget {
    Q_OBJECT
public:
    explicit DamagePanel(TrackIntegrity& integrity, QWidget* parent = nullptr);

    QLabel* summaryLabel() const { return summary_; }
    QTableWidget* holeList() const { return holes_; }
    QPushButton* repairButton() const { return repair_; }

private:
    void refresh();

    TrackIntegrity& integrity_;
    QLabel* summary_;
    QTableWidget* holes_;
    QPushButton* repair_;
};

} // namespace folivox
