#include "library/ActiveBookCoordinator.h"

#include "core/book/BookMetadataStore.h"
#include "core/book/BookSession.h"
#include "core/book/BookmarksStore.h"
#include "core/book/BookmarksUndoManager.h"
#include "core/chapters/ChapterViewModel.h"
#include "import/ImportCoordinator.h"
#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"
#include "platform/Error.h"
#include "platform/Log.h"

namespace folivox {

namespace {
void log(const QString& line)
{
    Log::write(QStringLiteral("[Library] ") + line);
}
} // namespace

ActiveBookCoordinator::ActiveBookCoordinator(LibraryStore& libraryStore, BookSession& session,
                                             std::weak_ptr<ImportCoordinator> bookImporter)
    : store(libraryStore)
    , bookmarks(session.bookmarks)
    , book(session.book)
    , chapters(session.chapters)
    , undoManager(session.undoManager)
    , importer(std::move(bookImporter))
    , session_(session)
{
    if (auto i = this->importer.lock())
        i->isExclusiveOperationRunning = [this] { return isExclusiveOperationRunning(); };
}

QString ActiveBookCoordinator::operationName(ExclusiveOperation operation)
{
    switch (operation) {
    case ExclusiveOperation::adoptingBuild: return QStringLiteral("adoptingBuild");
    case ExclusiveOperation::addingBooks: return QStringLiteral("addingBooks");
    case ExclusiveOperation::revertingToImport: return QStringLiteral("revertingToImport");
    case ExclusiveOperation::mergingBooks: return QStringLiteral("mergingBooks");
    }
    return {};
}

bool ActiveBookCoordinator::beginExclusive(ExclusiveOperation operation)
{
    if (exclusiveOperation_)
        return false;
    exclusiveOperation_ = operation;
    log(QStringLiteral("exclusive operation started: ") + operationName(operation));
    return true;
}

void ActiveBookCoordinator::endExclusive()
{
    if (exclusiveOperation_)
        log(QStringLiteral("exclusive operation ended: ") + operationName(*exclusiveOperation_));
    exclusiveOperation_.reset();
}

std::optional<BookStateDTO> ActiveBookCoordinator::currentState() const
{
    if (!currentBookID_)
        return std::nullopt;
    BookStateDTO s;
    s.id = *currentBookID_;
    s.revision = currentRevision_;
    s.createdAt = currentCreatedAt_;
    s.editedAt = currentEditedAt_;
    s.sources = currentSources_;
    const auto i = importer.lock();
    s.tracks = i ? i->bookTracks() : currentTracks_;
    s.bookmarks = bookmarks.bookmarks();
    s.metadata = book.metadata();
    s.settings = currentSettings_.value_or(ExportSettings());
    s.lastBuild = currentLastBuild_;
    return s;
}

void ActiveBookCoordinator::noteEdit()
{
    std::optional<BookStateDTO> s = currentState();
    if (!s)
        return;
    const quint64 fingerprint = s->contentFingerprint();
    if (fingerprint == lastFingerprint_)
        return;
    lastFingerprint_ = fingerprint;
    ++currentRevision_;
    currentEditedAt_ = QDateTime::currentDateTimeUtc();
    s->revision = currentRevision_;
    s->editedAt = currentEditedAt_;
    store.save(*s);
}

void ActiveBookCoordinator::setCurrentSettings(const ExportSettings& settings)
{
    currentSettings_ = settings;
    if (absorbNextSettingsUpdate) {
        absorbNextSettingsUpdate = false;
        if (auto s = currentState())
            lastFingerprint_ = s->contentFingerprint();
        return;
    }
    noteEdit();
}

void ActiveBookCoordinator::saveOpenBook()
{
    if (!currentBookID_)
        return;
    noteEdit();
    store.flush(*currentBookID_);
}

void ActiveBookCoordinator::adopt(const BookStateDTO& state)
{
    currentBookID_ = state.id;
    currentRevision_ = state.revision;
    currentBuiltRevision_ = state.lastBuild ? state.lastBuild->revision : 0;
    currentCreatedAt_ = state.createdAt;
    currentEditedAt_ = state.editedAt;
    currentSettings_ = state.settings;
    currentLastBuild_ = state.lastBuild;
    currentSources_ = state.sources;
    accessedURLs_ = state.sources; // scoped access is a no-op off macOS; the folders in use are remembered
    currentTracks_ = state.tracks;
    if (auto i = importer.lock())
        i->setBook(state.tracks, state.bookmarks);
    bookmarks.setBookmarks(state.bookmarks);
    book.setMetadata(state.metadata);
    lastFingerprint_ = state.contentFingerprint();
    store.setActiveBookID(state.id);
}

ActiveBookCoordinator::SwitchResult ActiveBookCoordinator::switchTo(const QUuid& id)
{
    if (exclusiveOperation_) {
        log(QStringLiteral("switch to %1 refused: %2 is running").arg(LibraryPersistence::folderName(id),
                                                                      operationName(*exclusiveOperation_)));
        return SwitchResult::busy(*exclusiveOperation_);
    }
    if (currentBookID_ == id)
        return SwitchResult::alreadyActive();

    // The open book is on disk before anything else happens.
    if (currentBookID_) {
        try {
            saveOpenBook();
        } catch (const Error& e) {
            log(QStringLiteral("saving the open book before a switch failed: ") + e.description());
        }
    }
    BookStateDTO next;
    try {
        next = store.loadState(id);
    } catch (const Error& e) {
        log(QStringLiteral("switch to %1 failed: %2").arg(LibraryPersistence::folderName(id), e.description()));
        return SwitchResult::loadFailed(id, e.description());
    }

    session_.tearDown(BookSession::TearDownReason::switching(id));
    adopt(next);
    log(QStringLiteral("switched to %1 (revision %2)").arg(LibraryPersistence::folderName(id)).arg(currentRevision_));
    return SwitchResult::switched();
}

bool ActiveBookCoordinator::closeCurrentBook(const BookSession::TearDownReason& reason)
{
    if (exclusiveOperation_) {
        log(QStringLiteral("closing the open book refused: %1 is running").arg(operationName(*exclusiveOperation_)));
        return false;
    }
    if (currentBookID_) {
        try {
            saveOpenBook();
        } catch (const Error& e) {
            log(QStringLiteral("saving the open book before closing it failed: ") + e.description());
        }
    }
    // The tear-down empties the stores; the record is no longer the open
    // book's, so nothing it changes reaches the library.
    const std::optional<QUuid> closed = currentBookID_;
    currentBookID_.reset();
    currentRevision_ = 0;
    currentBuiltRevision_ = 0;
    currentSettings_.reset();
    currentLastBuild_.reset();
    currentSources_.clear();
    accessedURLs_.clear();
    currentTracks_.clear();
    lastFingerprint_ = 0;
    store.setActiveBookID(std::nullopt);
    session_.tearDown(reason);
    if (closed)
        log(QStringLiteral("closed %1").arg(LibraryPersistence::folderName(*closed)));
    return true;
}

std::optional<ActiveBookCoordinator::BuildStartToken> ActiveBookCoordinator::buildStartToken() const
{
    if (!currentBookID_)
        return std::nullopt;
    return BuildStartToken{*currentBookID_, currentRevision_};
}

void ActiveBookCoordinator::recordBuild(const BuildStartToken& token, const BuildRecord& record)
{
    BuildRecord r = record;
    r.revision = token.revision;
    if (currentBookID_ == token.bookID) {
        // The open book may have unsaved edits; they go to disk with the record.
        saveOpenBook();
        currentLastBuild_ = r;
        currentBuiltRevision_ = r.revision;
    }
    store.recordBuild(token.bookID, r);
}

} // namespace folivox
