#pragma once

#include <QString>
#include <QUuid>

#include <functional>
#include <optional>

namespace folivox {

class BookMetadataStore;
class BookmarksStore;
class BookmarksUndoManager;
class ChapterViewModel;

// The lifetime of the open book. The stores that hold the open book are
// long-lived and reused from book to book; closing one book means emptying
// them in a fixed order, which tearDown() does, logging each step by its
// name ("[BookSession] tearDown(switching): cancelImport", ...).
//
// What the session must not know about (the importer, the player, windows,
// caches, the selection) it reaches through the Hooks, so this class depends
// on nothing above the book records.
class BookSession {
public:
    struct Hooks {
        std::function<void()> cancelImport;
        std::function<void()> resetImportState;
        std::function<void()> stopPlayer;
        std::function<void()> closeEditorWindows;
        std::function<void()> clearSnapshots;
        std::function<void()> clearSidecarCache;
        std::function<void()> clearSelection;
    };

    // The named steps of a tear-down. The order of declaration is not the
    // order of a tear-down (see tearDown).
    enum class Step {
        cancelImport,
        resetImportState,
        stopPlayer,
        closeEditorWindows,
        clearChapters,
        clearUndo,
        clearSnapshots,
        clearSidecarCache,
        clearSelection,
    };

    struct TearDownReason {
        enum class Kind { switching, newBook, allChaptersDeleted, debugReset };
        Kind kind = Kind::newBook;
        std::optional<QUuid> bookID; // with switching: the book that comes next

        static TearDownReason switching(std::optional<QUuid> next = std::nullopt) { return {Kind::switching, next}; }
        static TearDownReason newBook() { return {Kind::newBook, std::nullopt}; }
        static TearDownReason allChaptersDeleted() { return {Kind::allChaptersDeleted, std::nullopt}; }
        static TearDownReason debugReset() { return {Kind::debugReset, std::nullopt}; }
    };

    BookSession(BookmarksStore& bookmarks, ChapterViewModel& chapters, BookMetadataStore& book,
                BookmarksUndoManager& undoManager, Hooks hooks);

    BookmarksStore& bookmarks;
    ChapterViewModel& chapters;
    BookMetadataStore& book;
    BookmarksUndoManager& undoManager;
    const Hooks hooks;

    // Empties the open book, whatever the reason, in this order:
    // cancelImport, clearChapters (through the undoable clear-all command),
    // stopPlayer, closeEditorWindows, clearSidecarCache, resetImportState,
    // clearUndo, clearSnapshots, clearSelection, then the tags are reset.
    // A hook that is not set is skipped, but its step is still logged; the
    // call returns when every step has run.
    void tearDown(const TearDownReason& reason);

    static QString stepName(Step step);
    static QString reasonName(const TearDownReason& reason);
};

} // namespace folivox
