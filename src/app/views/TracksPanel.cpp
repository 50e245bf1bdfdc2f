#include "app/views/TracksPanel.h"

#include "app/book/OpenBook.h"
#include "app/damage/DamagePanel.h"
#include "app/models/TrackTableModel.h"
#include "app/views/Ui.h"
#include "platform/L10n.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

namespace folivox {

TracksPanel::TracksPanel(OpenBook& book, QWidget* parent)
    : QWidget(parent)
    , book_(book)
    , model_(new TrackTableModel(book, this))
    , view_(Ui::named(new QTableView(this), "app.tracks.list", "Tracks"))
    , sort_(Ui::named(new QComboBox(this), "app.tracks.sort", "Sort tracks"))
    , remove_(Ui::named(new QPushButton(L10n::text("app.tracks.remove", "Remove"), this), "app.tracks.remove.name",
                        "Remove selected tracks"))
{
    auto* top = new QHBoxLayout;
    top->addWidget(Ui::heading(L10n::text("app.tracks.heading", "Tracks"), this));
    top->addStretch();
    auto* sortLabel = new QLabel(L10n::text("app.tracks.sortLabel", "Sort:"), this);
    top->addWidget(sortLabel);
    sort_->addItem(L10n::text("app.tracks.sort.choose", "Choose…"));
    sort_->addItem(L10n::text("app.tracks.sort.auto", "Automatic"), QStringLiteral("auto"));
    sort_->addItem(L10n::text("app.tracks.sort.filename", "File name"), QStringLiteral("filename"));
    sort_->addItem(L10n::text("app.tracks.sort.trackNumber", "Track number"), QStringLiteral("trackNumber"));
    sort_->addItem(L10n::text("app.tracks.sort.title", "Title"), QStringLiteral("title"));
    sort_->addItem(L10n::text("app.tracks.sort.dateModified", "Date modified"), QStringLiteral("dateModified"));
    sortLabel->setBuddy(sort_);
    top->addWidget(sort_);
    remove_->setShortcut(QKeySequence::Delete);
    remove_->setToolTip(L10n::text("app.tracks.remove.tip", "Remove the selected tracks from the book (Delete)"));
    top->addWidget(remove_);

    view_->setModel(model_);
    view_->setSelectionBehavior(QAbstractItemView::SelectRows);
    view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    view_->setDragEnabled(true);
    view_->setAcceptDrops(true);
    view_->setDropIndicatorShown(true);
    view_->setDragDropMode(QAbstractItemView::InternalMove);
    view_->setDefaultDropAction(Qt::MoveAction);
    view_->verticalHeader()->hide();
    view_->setAlternatingRowColors(true);
    view_->horizontalHeader()->setSectionResizeMode(TrackTableModel::file, QHeaderView::Stretch);
    view_->horizontalHeader()->setSectionResizeMode(TrackTableModel::number, QHeaderView::ResizeToContents);
    view_->horizontalHeader()->setSectionResizeMode(TrackTableModel::format, QHeaderView::ResizeToContents);
    view_->horizontalHeader()->setSectionResizeMode(TrackTableModel::duration, QHeaderView::ResizeToContents);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(top);
    layout->addWidget(view_);

    connect(sort_, &QComboBox::activated, this, [this](int i) {
        const QString mode = sort_->itemData(i).toString();
        if (const auto m = trackSortModeFromString(mode))
            book_.sortTracks(*m);
        sort_->setCurrentIndex(0);
    });
    connect(remove_, &QPushButton::clicked, this, &TracksPanel::removeSelected);
    connect(view_, &QTableView::doubleClicked, this, [this](const QModelIndex& i) { Q_EMIT playTrackRequested(i.row()); });
    const auto enable = [this] {
        const bool on = !book_.isEmpty() && !book_.isImporting();
        sort_->setEnabled(on);
        remove_->setEnabled(on);
        view_->setDragEnabled(on);
    };
    connect(&book_, &OpenBook::tracksChanged, this, enable);
    connect(&book_, &OpenBook::importStarted, this, enable);
    connect(&book_, &OpenBook::importFinished, this, enable);
    enable();
}

void TracksPanel::setIntegrity(TrackIntegrity* integrity)
{
    model_->setIntegrity(integrity);
    view_->horizontalHeader()->setSectionResizeMode(TrackTableModel::integrity, QHeaderView::ResizeToContents);
    damage_ = new DamagePanel(*integrity, this);
    layout()->addWidget(damage_);
}

void TracksPanel::removeSelected()
{
    QList<int> rows;
    for (const QModelIndex& i : view_->selectionModel()->selectedRows())
        rows << i.row();
    book_.removeTracks(rows);
}

} // namespace folivox
