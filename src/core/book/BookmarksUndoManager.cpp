#include "core/book/BookmarksUndoManager.h"

#include "core/book/BookmarksStore.h"

namespace folivox {

void BookmarksUndoManager::perform(Command command)
{
    if (command.redo)
        command.redo();
    undoStack_.push_back(std::move(command));
    redoStack_.clear();
}

BookmarksUndoManager::Command BookmarksUndoManager::clearAllCommand(BookmarksStore& store)
{
    auto before = std::make_shared<std::vector<Bookmark>>(store.bookmarks());
    Command c;
    c.name = QStringLiteral("Delete All Chapters");
    c.redo = [&store] { store.removeAll(); };
    c.undo = [&store, before] { store.setBookmarks(*before); };
    return c;
}

void BookmarksUndoManager::undo()
{
    if (undoStack_.empty())
        return;
    Command c = std::move(undoStack_.back());
    undoStack_.pop_back();
    if (c.undo)
        c.undo();
    redoStack_.push_back(std::move(c));
}

void BookmarksUndoManager::redo()
{
    if (redoStack_.empty())
        return;
    Command c = std::move(redoStack_.back());
    redoStack_.pop_back();
    if (c.redo)
        c.redo();
    undoStack_.push_back(std::move(c));
}

void BookmarksUndoManager::removeAll()
{
    undoStack_.clear();
    redoStack_.clear();
}

} // namespace folivox
