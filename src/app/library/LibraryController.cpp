#include "app/library/LibraryController.h"

#include "app/book/OpenBook.h"
#include "process/ManualCancellationToken.h"
#include "library/BookBuildInputs.h"
#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"
#include "platform/Error.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QTimer>

#include <algorithm>

namespace folivox {

namespace {
void log(const QString& line)
{
    Log::write(QStringLiteral("[App] ") + line);
}
} // namespace

LibraryController::LibraryController(OpenBook& book, const QString& root, QObject* parent)
    : QObject(parent)
    , book_(book)
    , root_(root)
{
    try {
        persistence_ = std::make_shared<LibraryPersistence>(root_);
        auto store = std::make_unique<LibraryStore>(persistence_);
        store->load(true);
        store_ = std::move(store);
    } catch (const Error& e) {
        unavailableReason_ = e.description();
        persistence_.reset();
        log(QStringLiteral("the library at %1 is not available: %2").arg(root_, e.description()));
        return;
    }
    coordinator_ = std::make_unique<ActiveBookCoordinator>(*store_, book_.session(), book_.importer());
    // The store changes on other threads too (autosave, adding); the views
    // hear of it once per turn of the event loop.
    store_->onSummariesChanged = [this] {
        if (changeQueued_.exchange(true))
            return;
        QMetaObject::invokeMethod(
            this,
            [this] {
                changeQueued_ = false;
                Q_EMIT summariesChanged();
            },
            Qt::QueuedConnection);
    };
    for (auto signal : {&OpenBook::tracksChanged, &OpenBook::chaptersChanged, &OpenBook::metadataChanged,
                        &OpenBook::settingsChanged})
        connect(&book_, signal, this, &LibraryController::scheduleEdit);
}

LibraryController::~LibraryController()
{
    cancelAdding();
    if (addThread_.joinable())
        addThread_.join();
    if (!store_)
        return;
    try {
        noteEdit();
    } catch (const Error& e) {
        log(QStringLiteral("the open book could not be saved: ") + e.description());
    }
    // The store writes what is pending and stops its autosave thread; what it
    // still tells goes to this object's queue, which is dropped with it.
    coordinator_.reset();
    store_.reset();
}

std::optional<int> LibraryController::newerLibraryVersion() const
{
    if (!persistence_ || !persistence_->indexIsNewer())
        return std::nullopt;
    return persistence_->newerLibraryVersion();
}

std::vector<LibraryBookSummary> LibraryController::summaries() const
{
    return store_ ? store_->summaries() : std::vector<LibraryBookSummary>{};
}

std::optional<LibraryBookSummary> LibraryController::summary(const QUuid& id) const
{
    return store_ ? store_->summary(id) : std::nullopt;
}

QString LibraryController::thumbnailPath(const QUuid& id) const
{
    if (!persistence_)
        return {};
    return persistence_->assetsFolder(id) + QStringLiteral("/thumb.jpg");
}

std::optional<QUuid> LibraryController::openBookID() const
{
    return coordinator_ ? coordinator_->currentBookID() : std::nullopt;
}

QString LibraryController::operationText(ActiveBookCoordinator::ExclusiveOperation operation)
{
    using Op = ActiveBookCoordinator::ExclusiveOperation;
    switch (operation) {
    case Op::adoptingBuild: return L10n::text("app.library.busy.adoptingBuild", "A finished build is being taken into the library.");
    case Op::addingBooks: return L10n::text("app.library.busy.addingBooks", "Books are being added to the library.");
    case Op::revertingToImport: return L10n::text("app.library.busy.revertingToImport", "A book is being reverted to its import.");
    case Op::mergingBooks: return L10n::text("app.library.busy.mergingBooks", "Books are being merged.");
    }
    return {};
}

// ---- the open book

void LibraryController::scheduleEdit()
{
    if (switching_ || editQueued_ || !coordinator_ || !coordinator_->currentBookID())
        return;
    editQueued_ = true;
    QTimer::singleShot(0, this, [this] { noteEdit(); });
}

void LibraryController::noteEdit()
{
    editQueued_ = false;
    if (switching_ || !coordinator_ || coordinator_->currentBookID() != book_.id())
        return;
    // Setting the settings notes the edit: a revision when anything the user
    // edits changed since the last save.
    coordinator_->setCurrentSettings(book_.settings());
}

ActiveBookCoordinator::SwitchResult LibraryController::open(const QUuid& id)
{
    if (!coordinator_)
        return ActiveBookCoordinator::SwitchResult::loadFailed(id, unavailableReason_);
    if (editQueued_)
        noteEdit();
    switching_ = true;
    const ActiveBookCoordinator::SwitchResult result = coordinator_->switchTo(id);
    if (result.kind == ActiveBookCoordinator::SwitchResult::Kind::switched) {
        if (const std::optional<BookStateDTO> state = coordinator_->currentState()) {
            book_.adoptLibraryBook(*state);
            // Whether its sources are all there, as found now.
            try {
                store_->refreshAttention(id, LibraryBookSummary::sourcesMissing(*state));
            } catch (const Error& e) {
                log(QStringLiteral("the library's index could not be saved: ") + e.description());
            }
        }
    }
    switching_ = false;
    editQueued_ = false;
    if (result.kind == ActiveBookCoordinator::SwitchResult::Kind::switched)
        Q_EMIT openBookChanged();
    return result;
}

bool LibraryController::closeOpenBook(const BookSession::TearDownReason& reason)
{
    if (!coordinator_ || !coordinator_->currentBookID())
        return true;
    if (editQueued_)
        noteEdit();
    switching_ = true;
    const bool closed = coordinator_->closeCurrentBook(reason);
    if (closed)
        book_.resetIdentity();
    switching_ = false;
    editQueued_ = false;
    if (closed)
        Q_EMIT openBookChanged();
    return closed;
}

QString LibraryController::keepOpenBook()
{
    if (!store_)
        return unavailableReason_;
    if (openBookID() || book_.isEmpty())
        return {};
    const BookStateDTO state = book_.state();
    try {
        store_->saveNow(state);
    } catch (const Error& e) {
        return e.description();
    }
    const ActiveBookCoordinator::SwitchResult r = open(state.id);
    if (r.kind == ActiveBookCoordinator::SwitchResult::Kind::busy)
        return operationText(*r.operation);
    if (r.kind == ActiveBookCoordinator::SwitchResult::Kind::loadFailed)
        return r.detail;
    log(QStringLiteral("the open book was kept in the library as %1").arg(LibraryPersistence::folderName(state.id)));
    return {};
}

void LibraryController::saveOpenBook()
{
    if (!coordinator_)
        return;
    if (editQueued_)
        noteEdit();
    try {
        coordinator_->saveOpenBook();
    } catch (const Error& e) {
        log(QStringLiteral("the open book could not be saved: ") + e.description());
    }
}

void LibraryController::recordBuild(const QUuid& id, int revision, const ExportSettings& settings, const QStringList& files)
{
    if (!store_)
        return;
    BookBuildInputs inputs;
    inputs.bookID = id;
    inputs.revision = revision;
    inputs.settings = settings;
    // The chapters built are those of the revision built, if the book is
    // still at it (an edit during the build leaves them out of the record).
    try {
        const BookStateDTO state = store_->loadState(id);
        if (state.revision == revision)
            inputs.bookmarks = state.bookmarks;
    } catch (const Error& e) {
        log(QStringLiteral("the built book %1 could not be read: %2").arg(LibraryPersistence::folderName(id), e.description()));
    }
    recordBuild(id, revision, inputs.record(files));
}

void LibraryController::recordBuild(const QUuid& id, int revision, const BuildRecord& record)
{
    if (!store_)
        return;
    try {
        if (coordinator_ && coordinator_->currentBookID() == id) {
            if (editQueued_)
                noteEdit();
            coordinator_->recordBuild(ActiveBookCoordinator::BuildStartToken{id, revision}, record);
            book_.setLastBuild(coordinator_->currentLastBuild());
        } else {
            store_->recordBuild(id, record);
        }
    } catch (const Error& e) {
        log(QStringLiteral("the build of %1 could not be recorded: %2").arg(LibraryPersistence::folderName(id), e.description()));
    }
}

// ---- adding

bool LibraryController::addFolders(const QStringList& paths)
{
    if (!store_ || adding_ || paths.isEmpty())
        return false;
    if (!coordinator_->beginExclusive(ActiveBookCoordinator::ExclusiveOperation::addingBooks))
        return false;
    if (addThread_.joinable())
        addThread_.join();
    adding_ = true;
    addToken_ = std::make_shared<ManualCancellationToken>();
    Q_EMIT addStarted();
    log(QStringLiteral("adding %1 folder(s) to the library").arg(paths.size()));
    auto token = addToken_;
    addThread_ = std::thread([this, paths, token] {
        LibraryAdder adder(*store_);
        adder.onOutcome = [this](const LibraryAdder::Outcome& outcome) {
            QMetaObject::invokeMethod(this, [this, outcome] { Q_EMIT addOutcome(outcome); }, Qt::QueuedConnection);
        };
        adder.onProgress = [this](int done, int total, const QString& current) {
            QMetaObject::invokeMethod(
                this, [this, done, total, current] { Q_EMIT addProgress(done, total, current); }, Qt::QueuedConnection);
        };
        try {
            adder.add(paths, *token);
        } catch (const Error& e) {
            LibraryAdder::Outcome failed;
            failed.kind = LibraryAdder::Outcome::Kind::refused;
            failed.source = paths.join(QStringLiteral(", "));
            failed.reason = e.description();
            QMetaObject::invokeMethod(this, [this, failed] { Q_EMIT addOutcome(failed); }, Qt::QueuedConnection);
        }
        const bool cancelled = token->isCancelled();
        QMetaObject::invokeMethod(this, [this, cancelled] { finishAdd(cancelled); }, Qt::QueuedConnection);
    });
    return true;
}

void LibraryController::cancelAdding()
{
    if (adding_ && addToken_)
        addToken_->cancel();
}

void LibraryController::finishAdd(bool cancelled)
{
    if (addThread_.joinable())
        addThread_.join();
    adding_ = false;
    addToken_.reset();
    coordinator_->endExclusive();
    log(cancelled ? QStringLiteral("adding books cancelled") : QStringLiteral("adding books finished"));
    Q_EMIT addFinished(cancelled);
}

// ---- removing

std::vector<RemovedBook> LibraryController::remove(const QList<QUuid>& ids)
{
    if (!store_ || ids.isEmpty())
        return {};
    if (const auto open = openBookID(); open && ids.contains(*open))
        closeOpenBook(BookSession::TearDownReason::newBook());
    std::vector<RemovedBook> removed;
    try {
        removed = store_->remove(ids);
    } catch (const Error& e) {
        log(QStringLiteral("removing books failed: ") + e.description());
    }
    std::vector<RemovedBook> undoable;
    std::copy_if(removed.begin(), removed.end(), std::back_inserter(undoable), [](const RemovedBook& r) { return r.restorable; });
    if (!undoable.empty()) {
        removals_.push_back(undoable);
        Q_EMIT removalsChanged();
    }
    return removed;
}

QString LibraryController::undoRemoveText() const
{
    if (removals_.empty())
        return {};
    const std::vector<RemovedBook>& last = removals_.back();
    if (last.size() == 1) {
        const QString title = last.front().summary.title;
        return title.isEmpty() ? L10n::text("app.library.untitled", "Untitled") : QStringLiteral("“%1”").arg(title);
    }
    return L10n::format(L10n::text("app.library.books", "%d books"), {QString::number(last.size())});
}

int LibraryController::undoRemove()
{
    if (removals_.empty())
        return 0;
    const std::vector<RemovedBook> batch = removals_.back();
    removals_.pop_back();
    int restored = 0;
    // Each place was taken after the ones removed before it: put them back
    // in the opposite order.
    for (auto it = batch.rbegin(); it != batch.rend(); ++it) {
        try {
            store_->restore(*it);
            ++restored;
        } catch (const Error& e) {
            log(QStringLiteral("a removed book could not be put back: ") + e.description());
        }
    }
    Q_EMIT removalsChanged();
    return restored;
}

} // namespace folivox
