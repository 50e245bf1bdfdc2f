#include "core/book/BookSession.h"

#include "core/book/BookMetadataStore.h"
#include "core/book/BookmarksStore.h"
#include "core/book/BookmarksUndoManager.h"
#include "core/chapters/ChapterViewModel.h"
#include "platform/Log.h"

namespace folivox {

BookSession::BookSession(BookmarksStore& bookmarksStore, ChapterViewModel& chapterModel, BookMetadataStore& bookStore,
                         BookmarksUndoManager& undo, Hooks sessionHooks)
    : bookmarks(bookmarksStore)
    , chapters(chapterModel)
    , book(bookStore)
    , undoManager(undo)
    , hooks(std::move(sessionHooks))
{
}

QString BookSession::stepName(Step step)
{
    switch (step) {
    case Step::cancelImport: return QStringLiteral("cancelImport");
    case Step::resetImportState: return QStringLiteral("resetImportState");
    case Step::stopPlayer: return QStringLiteral("stopPlayer");
    case Step::closeEditorWindows: return QStringLiteral("closeEditorWindows");
    case Step::clearChapters: return QStringLiteral("clearChapters");
    case Step::clearUndo: return QStringLiteral("clearUndo");
    case Step::clearSnapshots: return QStringLiteral("clearSnapshots");
    case Step::clearSidecarCache: return QStringLiteral("clearSidecarCache");
    case Step::clearSelection: return QStringLiteral("clearSelection");
    }
    return {};
}

QString BookSession::reasonName(const TearDownReason& reason)
{
    switch (reason.kind) {
    case TearDownReason::Kind::switching:
        return reason.bookID ? QStringLiteral("switching to ") + reason.bookID->toString(QUuid::WithoutBraces).toUpper()
                             : QStringLiteral("switching");
    case TearDownReason::Kind::newBook: return QStringLiteral("newBook");
    case TearDownReason::Kind::allChaptersDeleted: return QStringLiteral("allChaptersDeleted");
    case TearDownReason::Kind::debugReset: return QStringLiteral("debugReset");
    }
    return {};
}

void BookSession::tearDown(const TearDownReason& reason)
{
    const QString prefix = QStringLiteral("[BookSession] tearDown(") + reasonName(reason) + QStringLiteral("): ");
    const auto run = [&prefix](Step step, const std::function<void()>& action) {
        Log::write(prefix + stepName(step));
        if (action)
            action();
    };
    run(Step::cancelImport, hooks.cancelImport);
    run(Step::clearChapters, [this] { undoManager.perform(BookmarksUndoManager::clearAllCommand(bookmarks)); });
    run(Step::stopPlayer, hooks.stopPlayer);
    run(Step::closeEditorWindows, hooks.closeEditorWindows);
    run(Step::clearSidecarCache, hooks.clearSidecarCache);
    run(Step::resetImportState, hooks.resetImportState);
    run(Step::clearUndo, [this] { undoManager.removeAll(); });
    run(Step::clearSnapshots, hooks.clearSnapshots);
    run(Step::clearSelection, [this] {
        if (hooks.clearSelection)
            hooks.clearSelection();
        else
            chapters.clearSelection();
    });
    Log::write(prefix + QStringLiteral("resetMetadata"));
    book.reset();
}

} // namespace folivox
