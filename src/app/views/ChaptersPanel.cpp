#include "app/views/ChaptersPanel.h"

#include "app/book/OpenBook.h"
#include "app/models/ChapterTableModel.h"
#include "app/views/Ui.h"
#include "platform/L10n.h"

#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

namespace folivox {

ChaptersPanel::ChaptersPanel(OpenBook& book, QWidget* parent)
    : QWidget(parent)
    , book_(book)
    , model_(new ChapterTableModel(book, this))
    , view_(Ui::named(new QTableView(this), "app.chapters.list", "Chapters"))
    , layout_(Ui::named(new QComboBox(this), "app.chapters.layout", "Chapter layout"))
    , chapterFile_(Ui::named(new QPushButton(L10n::text("app.chapters.file", "Chapter File…"), this),
                             "app.chapters.file.name", "Apply a chapter file"))
    , batchRename_(Ui::named(new QPushButton(L10n::text("app.chapters.batchRename", "Batch Rename…"), this),
                             "app.chapters.batchRename.name", "Batch rename chapters"))
    , source_(new QLabel(this))
    , offerBar_(new QFrame(this))
    , offerText_(new QLabel(offerBar_))
    , applyOffer_(Ui::named(new QPushButton(L10n::text("app.chapters.offer.apply", "Use These Chapters"), offerBar_),
                            "app.chapters.offer.apply.name", "Use the chapter file found"))
    , dismissOffer_(Ui::named(new QPushButton(L10n::text("app.chapters.offer.dismiss", "Ignore"), offerBar_),
                              "app.chapters.offer.dismiss.name", "Ignore the chapter file found"))
{
    auto* top = new QHBoxLayout;
    top->addWidget(Ui::heading(L10n::text("app.chapters.heading", "Chapters"), this));
    top->addStretch();
    layout_->addItem(L10n::text("app.chapters.layout.choose", "Lay out…"));
    layout_->addItem(L10n::text("app.chapters.layout.marks", "From the files' marks"));
    layout_->addItem(L10n::text("app.chapters.layout.perFile", "One per file"));
    layout_->setToolTip(L10n::text("app.chapters.layout.tip", "Replace the chapters with a layout from the audio files"));
    top->addWidget(layout_);
    chapterFile_->setToolTip(L10n::text("app.chapters.file.tip", "Apply a cue sheet or another chapter file"));
    top->addWidget(chapterFile_);
    batchRename_->setToolTip(L10n::text("app.chapters.batchRename.tip", "Clean up all chapter titles at once (Ctrl+R)"));
    top->addWidget(batchRename_);

    offerBar_->setFrameShape(QFrame::StyledPanel);
    offerBar_->setAutoFillBackground(true);
    auto* offerLayout = new QHBoxLayout(offerBar_);
    offerText_->setWordWrap(true);
    offerLayout->addWidget(offerText_, 1);
    offerLayout->addWidget(applyOffer_);
    offerLayout->addWidget(dismissOffer_);

    source_->setWordWrap(true);
    source_->setForegroundRole(QPalette::PlaceholderText);
    Ui::setAccessibleName(source_, "app.chapters.source.name", "Where the chapters come from");

    view_->setModel(model_);
    view_->setSelectionBehavior(QAbstractItemView::SelectRows);
    view_->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed
                           | QAbstractItemView::AnyKeyPressed);
    view_->verticalHeader()->hide();
    view_->setAlternatingRowColors(true);
    view_->horizontalHeader()->setSectionResizeMode(ChapterTableModel::title, QHeaderView::Stretch);
    view_->horizontalHeader()->setSectionResizeMode(ChapterTableModel::number, QHeaderView::ResizeToContents);
    view_->horizontalHeader()->setSectionResizeMode(ChapterTableModel::start, QHeaderView::ResizeToContents);
    view_->horizontalHeader()->setSectionResizeMode(ChapterTableModel::duration, QHeaderView::ResizeToContents);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(top);
    layout->addWidget(offerBar_);
    layout->addWidget(source_);
    layout->addWidget(view_, 1);

    connect(layout_, &QComboBox::activated, this, [this](int i) {
        if (i == 1)
            book_.layOutChapters(OpenBook::Layout::fromMarks);
        else if (i == 2)
            book_.layOutChapters(OpenBook::Layout::perFile);
        layout_->setCurrentIndex(0);
    });
    connect(chapterFile_, &QPushButton::clicked, this, &ChaptersPanel::chapterFileRequested);
    connect(batchRename_, &QPushButton::clicked, this, &ChaptersPanel::batchRenameRequested);
    connect(applyOffer_, &QPushButton::clicked, this, [this] {
        if (book_.offer())
            book_.applyChapterFile(*book_.offer());
    });
    connect(dismissOffer_, &QPushButton::clicked, this, [this] { book_.dismissOffer(); });
    connect(view_, &QTableView::doubleClicked, this, [this](const QModelIndex& i) {
        if (i.column() == ChapterTableModel::number)
            Q_EMIT playChapterRequested(i.row());
    });
    connect(&book_, &OpenBook::offerChanged, this, &ChaptersPanel::refreshOffer);
    const auto refresh = [this] {
        source_->setText(book_.chapterSource());
        const bool on = !book_.isEmpty() && !book_.isImporting();
        layout_->setEnabled(on);
        chapterFile_->setEnabled(on);
        batchRename_->setEnabled(on && !book_.chapters().empty());
    };
    connect(&book_, &OpenBook::chaptersChanged, this, refresh);
    connect(&book_, &OpenBook::tracksChanged, this, refresh);
    connect(&book_, &OpenBook::importStarted, this, refresh);
    connect(&book_, &OpenBook::importFinished, this, refresh);
    refresh();
    refreshOffer();
}

void ChaptersPanel::refreshOffer()
{
    const auto& offer = book_.offer();
    offerBar_->setVisible(offer.has_value());
    if (offer)
        offerText_->setText(L10n::format(L10n::text("app.chapters.offer.text", "Found a chapter file beside the audio: %@"),
                                         {offer->summary()}));
}

} // namespace folivox
