#include "app/library/AddBooksDialog.h"

#include "app/library/LibraryController.h"
#include "app/library/LibraryModel.h"
#include "app/views/Ui.h"
#include "platform/L10n.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace folivox {

AddBooksDialog::AddBooksDialog(LibraryController& library, QWidget* parent)
    : QDialog(parent)
    , library_(library)
    , status_(new QLabel(L10n::text("app.library.add.looking", "Looking for books…"), this))
    , progress_(Ui::named(new QProgressBar(this), "app.library.add.progress.name", "Progress of adding books"))
    , results_(Ui::named(new QTreeWidget(this), "app.library.add.results.name", "Books found"))
{
    setWindowTitle(L10n::text("app.library.add.title", "Add Books to the Library"));
    status_->setWordWrap(true);
    progress_->setRange(0, 0);
    results_->setColumnCount(4);
    results_->setHeaderLabels({L10n::text("app.library.add.column.result", "Result"),
                               L10n::text("app.library.add.column.title", "Book"),
                               L10n::text("app.library.add.column.details", "Details"),
                               L10n::text("app.library.add.column.source", "Folder or file")});
    results_->setRootIsDecorated(false);
    results_->setAlternatingRowColors(true);
    results_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    results_->header()->setSectionResizeMode(1, QHeaderView::Interactive);
    results_->header()->setStretchLastSection(true);
    results_->setColumnWidth(1, 220);
    results_->setColumnWidth(2, 260);

    auto* buttons = new QDialogButtonBox(this);
    cancel_ = Ui::named(buttons->addButton(L10n::text("app.library.add.cancel", "Stop"), QDialogButtonBox::RejectRole),
                        "app.library.add.cancel.name", "Stop adding books");
    close_ = Ui::named(buttons->addButton(L10n::text("app.library.add.close", "Close"), QDialogButtonBox::AcceptRole),
                       "app.library.add.close.name", "Close this window");
    close_->setEnabled(false);
    connect(cancel_, &QPushButton::clicked, this, [this] {
        cancel_->setEnabled(false);
        status_->setText(L10n::text("app.library.add.stopping", "Stopping after the book being read…"));
        library_.cancelAdding();
    });
    connect(close_, &QPushButton::clicked, this, &QDialog::accept);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(status_);
    layout->addWidget(progress_);
    layout->addWidget(results_, 1);
    layout->addWidget(buttons);
    resize(820, 440);

    connect(&library_, &LibraryController::addProgress, this, [this](int done, int total, const QString& current) {
        progress_->setRange(0, std::max(total, 1));
        progress_->setValue(done);
        status_->setText(current.isEmpty()
                             ? L10n::format(L10n::text("app.library.add.count", "%d of %d books"),
                                            {QString::number(done), QString::number(total)})
                             : L10n::format(L10n::text("app.library.add.reading", "Reading “%@” — %d of %d books"),
                                            {QFileInfo(current).fileName(), QString::number(done + 1), QString::number(total)}));
    });
    connect(&library_, &LibraryController::addOutcome, this, &AddBooksDialog::addOutcome);
    connect(&library_, &LibraryController::addFinished, this, &AddBooksDialog::finish);
}

void AddBooksDialog::addOutcome(const LibraryAdder::Outcome& o)
{
    QString result;
    QString details;
    switch (o.kind) {
    case LibraryAdder::Outcome::Kind::added:
        ++added_;
        result = L10n::text("app.library.add.added", "Added");
        details = L10n::format(L10n::text("app.library.add.addedDetails", "%d tracks, %@"),
                               {QString::number(o.tracks), LibraryModel::durationText(o.duration)});
        break;
    case LibraryAdder::Outcome::Kind::skipped:
        ++skipped_;
        result = L10n::text("app.library.add.skipped", "Already there");
        details = o.reason;
        break;
    case LibraryAdder::Outcome::Kind::refused:
        ++refused_;
        result = L10n::text("app.library.add.refused", "Not added");
        details = o.reason;
        break;
    }
    auto* item = new QTreeWidgetItem(results_, {result, o.title, details, o.source});
    item->setToolTip(2, details);
    item->setToolTip(3, o.source);
    if (o.kind == LibraryAdder::Outcome::Kind::refused)
        item->setForeground(0, QColor(190, 40, 40));
    results_->scrollToItem(item);
}

void AddBooksDialog::finish(bool cancelled)
{
    finished_ = true;
    progress_->setRange(0, 1);
    progress_->setValue(1);
    const QString counts = L10n::format(L10n::text("app.library.add.summary", "%d added, %d already in the library, %d not added."),
                                        {QString::number(added_), QString::number(skipped_), QString::number(refused_)});
    status_->setText(cancelled ? L10n::text("app.library.add.stopped", "Stopped. ") + counts : counts);
    cancel_->setEnabled(false);
    close_->setEnabled(true);
    close_->setDefault(true);
}

} // namespace folivox
