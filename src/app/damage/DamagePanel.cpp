#include "app/damage/DamagePanel.h"

#include "app/damage/TrackIntegrity.h"
#include "app/models/TimeText.h"
#include "app/views/Ui.h"
#include "core/book/Track.h"
#include "platform/L10n.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace folivox {

DamagePanel::DamagePanel(TrackIntegrity& integrity, QWidget* parent)
    : QWidget(parent)
    , integrity_(integrity)
    , summary_(new QLabel(this))
    , holes_(Ui::named(new QTableWidget(this), "app.damage.holes.name", "Holes in damaged files"))
    , repair_(Ui::named(new QPushButton(L10n::text("app.damage.repair", "Repair…"), this), "app.damage.repair.name",
                        "Make clean copies of the damaged files"))
{
    Ui::setAccessibleName(summary_, "app.damage.summary.name", "Damaged files");
    summary_->setWordWrap(true);
    repair_->setToolTip(L10n::text("app.damage.repair.tip",
                                   "Make a clean copy of each damaged file (its sound frames, without the holes); the "
                                   "files themselves are not changed"));
    holes_->setColumnCount(5);
    holes_->setHorizontalHeaderLabels({L10n::text("app.damage.column.file", "File"),
                                       L10n::text("app.damage.column.at", "Hole at"),
                                       L10n::text("app.damage.column.missing", "Missing"),
                                       L10n::text("app.damage.column.chapter", "Chapter"),
                                       L10n::text("app.damage.column.inChapter", "In chapter at")});
    holes_->verticalHeader()->hide();
    holes_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    holes_->setSelectionMode(QAbstractItemView::NoSelection);
    holes_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    for (int c = 1; c < 5; ++c)
        holes_->horizontalHeader()->setSectionResizeMode(c, QHeaderView::ResizeToContents);
    holes_->setSizeAdjustPolicy(QAbstractScrollArea::AdjustToContents);
    holes_->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);

    auto* top = new QHBoxLayout;
    auto* icon = new QLabel(this);
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(20, 20));
    top->addWidget(icon, 0, Qt::AlignTop);
    top->addWidget(summary_, 1);
    top->addWidget(repair_, 0, Qt::AlignTop);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->addLayout(top);
    layout->addWidget(holes_);

    connect(repair_, &QPushButton::clicked, &integrity_, [this] { integrity_.repairDamaged(); });
    connect(&integrity_, &TrackIntegrity::changed, this, &DamagePanel::refresh);
    refresh();
}

void DamagePanel::refresh()
{
    const std::vector<Track> damaged = integrity_.damagedTracks();
    setVisible(!damaged.empty());
    if (damaged.empty())
        return;
    int rows = 0;
    double lost = 0;
    holes_->setRowCount(0);
    for (const Track& t : damaged) {
        const QString name = QFileInfo(t.url.toLocalFile()).fileName();
        for (const TrackIntegrity::Hole& h : integrity_.holes(t)) {
            holes_->insertRow(rows);
            auto* file = new QTableWidgetItem(name);
            file->setToolTip(t.url.toLocalFile());
            holes_->setItem(rows, 0, file);
            holes_->setItem(rows, 1, new QTableWidgetItem(TimeText::format(h.fileTime, true)));
            holes_->setItem(rows, 2, new QTableWidgetItem(L10n::format(L10n::text("app.damage.seconds", "%@ s"),
                                                                       {QString::number(h.missingSeconds, 'f', 1)})));
            holes_->setItem(rows, 3, new QTableWidgetItem(h.chapter));
            holes_->setItem(rows, 4, new QTableWidgetItem(h.chapter.isEmpty() ? QString() : TimeText::format(h.chapterTime, true)));
            lost += h.missingSeconds;
            ++rows;
        }
    }
    // As tall as its rows, up to four; more scroll.
    const int shown = std::min(rows, 4);
    int height = holes_->horizontalHeader()->height() + 2 * holes_->frameWidth();
    for (int r = 0; r < shown; ++r)
        height += holes_->rowHeight(r);
    holes_->setFixedHeight(height);
    summary_->setText(integrity_.isRepairing()
                          ? L10n::text("app.damage.repairing", "Making clean copies of the damaged files…")
                          : L10n::format(L10n::text("app.damage.summary",
                                                    "%d damaged MP3 file(s) with %d hole(s): %@ s of audio missing. Players "
                                                    "skip the holes, so the book plays short and chapters after a hole start "
                                                    "early. Repair makes clean copies to build from."),
                                         {QString::number(damaged.size()), QString::number(rows), QString::number(lost, 'f', 1)}));
    repair_->setEnabled(!integrity_.isRepairing());
}

} // namespace folivox
