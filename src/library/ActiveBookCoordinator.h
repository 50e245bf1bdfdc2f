#pragma once

#include "core/book/BookSession.h"
#include "core/book/BookStateDTO.h"
#include "core/book/BuildRecord.h"
#include "core/settings/ExportSettings.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>

namespace folivox {

class BookMetadataStore;
class BookmarksStore;
class BookmarksUndoManager;
class ChapterViewModel;
class ImportCoordinator;
class LibraryStore;

// Ties the open book to its record in the library: which book is open, at
// which revision, and whether an operation that rewrites book records is
// running (then imports are refused and switching answers busy).
//
// Switching to another book, in order: busy or alreadyActive are answered
// at once; the open book is saved and its pending save written; the new
// book's record is read (if that fails the open book stays open and the
// answer is loadFailed); the open book is torn down (reason switching); the
// stores and the importer are filled from the record.
//
// Edits: noteEdit() takes the open book's state from the stores; if what the
// user edits changed since the last save (lastFingerprint), the revision
// goes up by one and editedAt is now; the state then goes to autosave.
class ActiveBookCoordinator {
public:
    enum class ExclusiveOperation { adoptingBuild, addingBooks, revertingToImport, mergingBooks };

    struct SwitchResult {
        enum class Kind { busy, loadFailed, switched, alreadyActive };
        Kind kind = Kind::switched;
        std::optional<ExclusiveOperation> operation; // busy
        std::optional<QUuid> bookID;                 // loadFailed
        QString detail;                              // loadFailed: why

        static SwitchResult busy(ExclusiveOperation op) { return {Kind::busy, op, std::nullopt, {}}; }
        static SwitchResult loadFailed(const QUuid& id, QString why) { return {Kind::loadFailed, std::nullopt, id, std::move(why)}; }
        static SwitchResult switched() { return {Kind::switched, std::nullopt, std::nullopt, {}}; }
        static SwitchResult alreadyActive() { return {Kind::alreadyActive, std::nullopt, std::nullopt, {}}; }
    };

    struct BuildStartToken {
        QUuid bookID;
        int revision = 0;
        bool operator==(const BuildStartToken&) const = default;
    };

    ActiveBookCoordinator(LibraryStore& store, BookSession& session, std::weak_ptr<ImportCoordinator> importer);

    LibraryStore& store;
    BookmarksStore& bookmarks;
    BookMetadataStore& book;
    ChapterViewModel& chapters;
    BookmarksUndoManager& undoManager;
    std::weak_ptr<ImportCoordinator> importer;
    std::function<void()> onStopPlayback;
    std::function<void()> onCloseBookWindows;
    std::function<bool()> isSingleExportActive;
    std::function<void()> onClearChapterSelection;

    // The open book.
    std::optional<QUuid> currentBookID() const { return currentBookID_; }
    int currentRevision() const { return currentRevision_; }
    int currentBuiltRevision() const { return currentBuiltRevision_; }
    QDateTime currentCreatedAt() const { return currentCreatedAt_; }
    QDateTime currentEditedAt() const { return currentEditedAt_; }
    const std::optional<ExportSettings>& currentSettings() const { return currentSettings_; }
    const std::optional<BuildRecord>& currentLastBuild() const { return currentLastBuild_; }
    const QList<QUrl>& accessedURLs() const { return accessedURLs_; }
    // Setting the open book's export settings counts as an edit, unless the
    // next update is to be absorbed (settings loaded with a book, not changed
    // by the user).
    void setCurrentSettings(const ExportSettings& settings);
    bool absorbNextSettingsUpdate = false;

    SwitchResult switchTo(const QUuid& id);
    // Closes the open book: it is saved and written, the stores are torn
    // down for `reason`, and no book is open afterwards. Refused (false)
    // while an exclusive operation runs.
    bool closeCurrentBook(const BookSession::TearDownReason& reason);

    // Exclusive operations. begin fails (false) while another one runs.
    std::optional<ExclusiveOperation> exclusiveOperation() const { return exclusiveOperation_; }
    bool beginExclusive(ExclusiveOperation operation);
    void endExclusive();
    bool isExclusiveOperationRunning() const { return exclusiveOperation_.has_value(); }

    // The open book as one state.
    std::optional<BookStateDTO> currentState() const;
    // Records an edit of the open book (see above).
    void noteEdit();
    // Saves the open book and writes it to disk now.
    void saveOpenBook();

    // The book and revision a build starts from; none when no book is open.
    std::optional<BuildStartToken> buildStartToken() const;
    // Records a finished build on the book it was of. The open book learns
    // its built revision only if it is still that book.
    void recordBuild(const BuildStartToken& token, const BuildRecord& record);

    static QString operationName(ExclusiveOperation operation);

private:
    void adopt(const BookStateDTO& state);

    BookSession& session_;
    std::optional<QUuid> currentBookID_;
    int currentRevision_ = 0;
    int currentBuiltRevision_ = 0;
    QDateTime currentCreatedAt_;
    QDateTime currentEditedAt_;
    std::optional<ExportSettings> currentSettings_;
    std::optional<BuildRecord> currentLastBuild_;
    std::optional<ExclusiveOperation> exclusiveOperation_;
    QList<QUrl> accessedURLs_;
    QList<QUrl> currentSources_;
    std::vector<Track> currentTracks_; // when there is no importer to hold them
    quint64 lastFingerprint_ = 0;
};

} // namespace folivox
