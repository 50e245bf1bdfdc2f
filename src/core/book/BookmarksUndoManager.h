#pragma once

#include <QString>

#include <functional>
#include <vector>

namespace folivox {

class BookmarksStore;

// The undo history of chapter edits: each command knows how to do and undo
// itself. Performing a command clears what could be redone.
class BookmarksUndoManager {
public:
    struct Command {
        QString name;
        std::function<void()> redo;
        std::function<void()> undo;
    };

    // Runs the command and records it.
    void perform(Command command);
    // The command that empties a store, undoable back to the chapters it held.
    static Command clearAllCommand(BookmarksStore& store);

    bool canUndo() const { return !undoStack_.empty(); }
    bool canRedo() const { return !redoStack_.empty(); }
    QString undoName() const { return canUndo() ? undoStack_.back().name : QString(); }
    void undo();
    void redo();
    // Forgets all history.
    void removeAll();

private:
    std::vector<Command> undoStack_;
    std::vector<Command> redoStack_;
};

} // namespace folivox
