#pragma once

#include "core/book/Bookmark.h"

#include <functional>
#include <vector>

namespace folivox {

// The chapters of the open book. Every change replaces the list and is
// announced to the observer, which is how the open book knows it has
// unsaved edits. Used on one thread (the main thread).
class BookmarksStore {
public:
    const std::vector<Bookmark>& bookmarks() const { return bookmarks_; }
    bool isEmpty() const { return bookmarks_.empty(); }

    void setBookmarks(std::vector<Bookmark> bookmarks);
    // Empties the list (the undo commands' clear-all calls this).
    void removeAll();

    // Called after every change.
    std::function<void()> onChange;

private:
    std::vector<Bookmark> bookmarks_;
};

} // namespace folivox
