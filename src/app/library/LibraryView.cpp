#include "app/library/LibraryView.h"

#include "app/library/AddBooksDialog.h"
#include "app/library/BadgeColumnDelegate.h"
#include "app/library/LibraryController.h"
#include "app/library/LibraryFilterModel.h"
#include "app/library/LibraryGridDelegate.h"
#include "app/library/LibraryModel.h"
#include "app/library/ThumbnailCache.h"
#include "app/views/Ui.h"
#include "library/files/LibraryLocation.h"
#include "platform/L10n.h"

#include <QAbstractButton>
#include <QAction>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QTableView>
#include <QToolButton>
#include <QVBoxLayout>

namespace folivox {

LibraryView::LibraryView(LibraryController& library, QWidget* parent)
    : QWidget(parent)
    , library_(library)
    , thumbnails_(new ThumbnailCache(this))
    , model_(new LibraryModel(library, *thumbnails_, this))
    , filter_(new LibraryFilterModel(this))
    , stack_(new QStackedWidget(this))
    , grid_(Ui::named(new QListView(this), "app.library.grid.name", "Books as covers"))
    , list_(Ui::named(new QTableView(this), "app.library.list.name", "Books as a list"))
    , search_(Ui::named(new QLineEdit(this), "app.library.search.name", "Search the library"))
    , order_(Ui::named(new QComboBox(this), "app.library.order.name", "Order of the books"))
    , gridButton_(Ui::named(new QToolButton(this), "app.library.gridButton.name", "Show the books as covers"))
    , listButton_(Ui::named(new QToolButton(this), "app.library.listButton.name", "Show the books as a list"))
    , add_(Ui::named(new QPushButton(L10n::text("app.library.add", "Add Folders…"), this), "app.library.add.name",
                     "Add folders of audio to the library"))
    , open_(Ui::named(new QPushButton(L10n::text("app.library.open", "Open"), this), "app.library.open.name",
                      "Open the selected book"))
    , queue_(Ui::named(new QPushButton(L10n::text("app.library.queue", "Add to Queue"), this), "app.library.queue.name",
                       "Add the selected books to the build queue"))
    , remove_(Ui::named(new QPushButton(L10n::text("app.library.remove", "Remove"), this), "app.library.remove.name",
                        "Move the selected books to the library's trash"))
    , count_(new QLabel(this))
    , notice_(new QLabel(this))
{
    setAcceptDrops(true);
    filter_->setSourceModel(model_);

    search_->setPlaceholderText(L10n::text("app.library.search", "Search title, author or narrator"));
    search_->setClearButtonEnabled(true);
    // The clear button Qt puts in the field reads as what it does.
    for (QAbstractButton* clear : search_->findChildren<QAbstractButton*>())
        Ui::setAccessibleName(clear, "app.library.search.clear.name", "Clear the search");
    for (auto o : {LibraryFilterModel::Order::title, LibraryFilterModel::Order::author, LibraryFilterModel::Order::recentlyAdded,
                   LibraryFilterModel::Order::recentlyEdited, LibraryFilterModel::Order::length})
        order_->addItem(LibraryFilterModel::orderName(o), static_cast<int>(o));
    gridButton_->setText(L10n::text("app.library.grid", "Covers"));
    listButton_->setText(L10n::text("app.library.list", "List"));
    for (QToolButton* b : {gridButton_, listButton_}) {
        b->setCheckable(true);
        b->setAutoExclusive(true);
        b->setToolButtonStyle(Qt::ToolButtonTextOnly);
    }
    gridButton_->setChecked(true);
    queue_->setToolTip(L10n::text("app.library.queue.tip", "Queue the selected books to be built one after the other"));
    remove_->setToolTip(L10n::text("app.library.remove.tip", "Move the selected books to the trash (Delete); Undo brings them back"));

    auto* top = new QHBoxLayout;
    top->addWidget(Ui::heading(L10n::text("app.library.heading", "Library"), this));
    top->addSpacing(12);
    top->addWidget(add_);
    top->addWidget(open_);
    top->addWidget(queue_);
    top->addWidget(remove_);
    top->addStretch();
    top->addWidget(search_, 2);
    auto* orderLabel = new QLabel(L10n::text("app.library.orderLabel", "Order:"), this);
    orderLabel->setBuddy(order_);
    top->addWidget(orderLabel);
    top->addWidget(order_);
    top->addWidget(gridButton_);
    top->addWidget(listButton_);

    // The grid: fixed cards, laid out in batches, so a large library shows at once.
    grid_->setModel(filter_);
    grid_->setItemDelegate(new LibraryGridDelegate(grid_));
    grid_->setViewMode(QListView::IconMode);
    grid_->setResizeMode(QListView::Adjust);
    grid_->setMovement(QListView::Static);
    grid_->setUniformItemSizes(true);
    grid_->setGridSize(LibraryGridDelegate::cardSize());
    grid_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    grid_->setSpacing(0);
    grid_->setWordWrap(true);
    grid_->setMouseTracking(true);
    grid_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);

    list_->setModel(filter_);
    list_->setItemDelegateForColumn(LibraryModel::state, new BadgeColumnDelegate(list_));
    list_->setSelectionModel(grid_->selectionModel());
    list_->setSelectionBehavior(QAbstractItemView::SelectRows);
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list_->verticalHeader()->hide();
    list_->verticalHeader()->setDefaultSectionSize(LibraryModel::kListCover + 6);
    list_->setIconSize(QSize(LibraryModel::kListCover, LibraryModel::kListCover));
    list_->setAlternatingRowColors(true);
    list_->setShowGrid(false);
    list_->setWordWrap(false);
    list_->horizontalHeader()->setSectionResizeMode(LibraryModel::title, QHeaderView::Stretch);
    list_->horizontalHeader()->setSectionResizeMode(LibraryModel::author, QHeaderView::Interactive);
    list_->horizontalHeader()->setSectionResizeMode(LibraryModel::narrator, QHeaderView::Interactive);
    list_->horizontalHeader()->resizeSection(LibraryModel::author, 180);
    list_->horizontalHeader()->resizeSection(LibraryModel::narrator, 160);
    list_->horizontalHeader()->resizeSection(LibraryModel::length, 90);
    list_->horizontalHeader()->resizeSection(LibraryModel::state, 200);
    list_->horizontalHeader()->setSortIndicatorShown(false);
    list_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);

    stack_->addWidget(grid_);
    stack_->addWidget(list_);

    messageBar_ = Ui::banner(this, QColor(255, 236, 200), messageLabel_);
    Ui::setAccessibleName(messageLabel_, "app.library.message.name", "Library message");
    auto* dismiss = Ui::named(new QPushButton(L10n::text("app.library.message.dismiss", "Dismiss"), messageBar_),
                              "app.library.message.dismiss.name", "Dismiss the message");
    messageBar_->layout()->addWidget(dismiss);
    connect(dismiss, &QPushButton::clicked, this, [this] { showMessage(QString()); });
    messageBar_->hide();

    undoBar_ = Ui::banner(this, QColor(225, 235, 250), undoLabel_);
    undo_ = Ui::named(new QPushButton(L10n::text("app.library.undo", "Undo"), undoBar_), "app.library.undo.name",
                      "Put the removed books back");
    undoBar_->layout()->addWidget(undo_);
    connect(undo_, &QPushButton::clicked, this, &LibraryView::undoRemove);
    undoBar_->hide();

    notice_->setWordWrap(true);
    notice_->hide();
    count_->setForegroundRole(QPalette::PlaceholderText);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 4);
    layout->addLayout(top);
    layout->addWidget(notice_);
    layout->addWidget(messageBar_);
    layout->addWidget(undoBar_);
    layout->addWidget(stack_, 1);
    layout->addWidget(count_);

    connect(search_, &QLineEdit::textChanged, this, [this](const QString& t) {
        filter_->setSearch(t);
        refreshState();
    });
    connect(order_, &QComboBox::currentIndexChanged, this, [this](int i) {
        filter_->setOrder(static_cast<LibraryFilterModel::Order>(order_->itemData(i).toInt()));
    });
    connect(gridButton_, &QToolButton::toggled, this, [this](bool on) {
        if (on)
            setLayout(Layout::grid);
    });
    connect(listButton_, &QToolButton::toggled, this, [this](bool on) {
        if (on)
            setLayout(Layout::list);
    });
    connect(add_, &QPushButton::clicked, this, &LibraryView::chooseFoldersToAdd);
    connect(open_, &QPushButton::clicked, this, [this] {
        const QList<QUuid> ids = selectedBooks();
        if (ids.size() == 1)
            Q_EMIT openRequested(ids.first());
    });
    connect(queue_, &QPushButton::clicked, this, [this] {
        const QList<QUuid> ids = selectedBooks();
        if (!ids.isEmpty())
            Q_EMIT addToQueueRequested(ids);
    });
    connect(remove_, &QPushButton::clicked, this, &LibraryView::removeSelected);
    // The same actions on a book's context menu.
    auto* openAction = new QAction(open_->text(), this);
    auto* queueAction = new QAction(queue_->text(), this);
    auto* removeAction = new QAction(remove_->text(), this);
    connect(openAction, &QAction::triggered, open_, &QPushButton::click);
    connect(queueAction, &QAction::triggered, queue_, &QPushButton::click);
    connect(removeAction, &QAction::triggered, remove_, &QPushButton::click);
    connect(this, &LibraryView::selectionStateChanged, this, [=, this] {
        openAction->setEnabled(open_->isEnabled());
        queueAction->setEnabled(queue_->isEnabled());
        removeAction->setEnabled(remove_->isEnabled());
    });
    for (QAbstractItemView* v : {static_cast<QAbstractItemView*>(grid_), static_cast<QAbstractItemView*>(list_)}) {
        connect(v, &QAbstractItemView::activated, this, &LibraryView::activated);
        auto* del = new QShortcut(QKeySequence::Delete, v, nullptr, nullptr, Qt::WidgetShortcut);
        connect(del, &QShortcut::activated, this, &LibraryView::removeSelected);
        v->setContextMenuPolicy(Qt::ActionsContextMenu);
        v->addActions({openAction, queueAction, removeAction});
    }
    auto* find = new QShortcut(QKeySequence::Find, this);
    connect(find, &QShortcut::activated, search_, [this] {
        search_->setFocus();
        search_->selectAll();
    });
    connect(grid_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &LibraryView::refreshState);
    connect(&library_, &LibraryController::summariesChanged, this, &LibraryView::refreshState);
    connect(&library_, &LibraryController::removalsChanged, this, &LibraryView::refreshState);
    connect(&library_, &LibraryController::addStarted, this, &LibraryView::refreshState);
    connect(&library_, &LibraryController::addFinished, this, &LibraryView::refreshState);
    connect(filter_, &QAbstractItemModel::rowsInserted, this, &LibraryView::refreshState);
    connect(filter_, &QAbstractItemModel::rowsRemoved, this, &LibraryView::refreshState);
    connect(filter_, &QAbstractItemModel::modelReset, this, &LibraryView::refreshState);

    if (!library_.isAvailable()) {
        notice_->setText(L10n::format(L10n::text("app.library.unavailable", "The library can't be opened: %@"),
                                      {library_.unavailableReason()}));
        notice_->show();
    } else if (const auto newer = library_.newerLibraryVersion()) {
        notice_->setText(L10n::format(L10n::text("app.library.newer",
                                                 "This library was saved by a newer version of Folivox (version %d). "
                                                 "It is shown as it is, and nothing in it is changed."),
                                      {QString::number(*newer)}));
        notice_->show();
    }
    refreshState();
}

LibraryView::~LibraryView() = default;

void LibraryView::setQueue(QueueController* queue)
{
    model_->setQueue(queue);
    refreshState();
}

AddBooksDialog* LibraryView::addDialog() const
{
    return qobject_cast<AddBooksDialog*>(addDialog_);
}

LibraryView::Layout LibraryView::layout() const
{
    return stack_->currentWidget() == list_ ? Layout::list : Layout::grid;
}

void LibraryView::setLayout(Layout layout)
{
    stack_->setCurrentWidget(layout == Layout::grid ? static_cast<QWidget*>(grid_) : list_);
    (layout == Layout::grid ? gridButton_ : listButton_)->setChecked(true);
}

QList<QUuid> LibraryView::selectedBooks() const
{
    QList<QUuid> ids;
    // The list selects whole rows, the grid the first column: one per book.
    for (const QModelIndex& i : grid_->selectionModel()->selectedIndexes())
        if (i.column() == 0)
            ids << i.data(LibraryModel::IdRole).toUuid();
    return ids;
}

void LibraryView::selectBooks(const QList<QUuid>& ids)
{
    QItemSelection selection;
    for (const QUuid& id : ids) {
        const QModelIndex source = model_->indexOf(id);
        const QModelIndex i = filter_->mapFromSource(source);
        if (i.isValid())
            selection.select(i, i.siblingAtColumn(LibraryModel::columnCount_ - 1));
    }
    grid_->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    if (!selection.isEmpty()) {
        grid_->selectionModel()->setCurrentIndex(selection.indexes().first(), QItemSelectionModel::NoUpdate);
        grid_->scrollTo(selection.indexes().first());
    }
}

void LibraryView::showMessage(const QString& text)
{
    messageLabel_->setText(text);
    messageBar_->setVisible(!text.isEmpty());
}

QString LibraryView::message() const
{
    return messageBar_->isVisible() ? messageLabel_->text() : QString();
}

void LibraryView::activated(const QModelIndex& index)
{
    if (index.isValid())
        Q_EMIT openRequested(index.data(LibraryModel::IdRole).toUuid());
}

void LibraryView::chooseFoldersToAdd()
{
    auto* dialog = new QFileDialog(this, L10n::text("app.library.add.dialog", "Add Folders to the Library"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    connect(dialog, &QFileDialog::filesSelected, this, &LibraryView::addFolders);
    dialog->open();
}

void LibraryView::addFolders(const QStringList& paths)
{
    if (paths.isEmpty() || !library_.isAvailable())
        return;
    if (library_.isAdding()) {
        showMessage(L10n::text("app.library.add.running", "Books are being added already; add these when it has finished."));
        return;
    }
    if (!library_.addFolders(paths)) {
        const auto op = library_.coordinator() ? library_.coordinator()->exclusiveOperation() : std::nullopt;
        showMessage(op ? L10n::format(L10n::text("app.library.add.busy", "Books can't be added now. %@ Try again when it has finished."),
                                      {LibraryController::operationText(*op)})
                       : L10n::text("app.library.add.failed", "Books can't be added now."));
        return;
    }
    auto* dialog = new AddBooksDialog(library_, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    addDialog_ = dialog;
    connect(dialog, &QObject::destroyed, this, [this] { addDialog_ = nullptr; });
    dialog->show();
}

void LibraryView::removeSelected()
{
    const QList<QUuid> ids = selectedBooks();
    if (ids.isEmpty())
        return;
    library_.remove(ids);
    refreshState();
}

void LibraryView::undoRemove()
{
    const int restored = library_.undoRemove();
    if (restored == 0)
        showMessage(L10n::text("app.library.undo.failed", "The removed books could not be put back; they are in the library's trash."));
    refreshState();
}

void LibraryView::refreshState()
{
    const bool available = library_.isAvailable() && !library_.newerLibraryVersion();
    const int selected = int(selectedBooks().size());
    add_->setEnabled(available && !library_.isAdding());
    open_->setEnabled(available && selected == 1);
    queue_->setEnabled(available && selected > 0);
    remove_->setEnabled(available && selected > 0);
    Q_EMIT selectionStateChanged();
    const int total = model_->rowCount();
    const int shown = filter_->rowCount();
    count_->setText(shown == total ? L10n::format(L10n::text("app.library.count", "%d books"), {QString::number(total)})
                                   : L10n::format(L10n::text("app.library.countShown", "%d of %d books"),
                                                  {QString::number(shown), QString::number(total)}));
    if (library_.canUndoRemove()) {
        undoLabel_->setText(L10n::format(L10n::text("app.library.removed", "Moved %@ to the library's trash."),
                                         {library_.undoRemoveText()}));
        undoBar_->show();
    } else {
        undoBar_->hide();
    }
}

void LibraryView::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->hasUrls() && library_.isAvailable())
        event->acceptProposedAction();
}

void LibraryView::dropEvent(QDropEvent* event)
{
    QStringList paths;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile())
            paths << QFileInfo(url.toLocalFile()).absoluteFilePath();
    if (paths.isEmpty())
        return;
    event->acceptProposedAction();
    addFolders(paths);
}

} // namespace folivox
