#include "core/book/BookmarksStore.h"

namespace folivox {

void BookmarksStore::setBookmarks(std::vector<Bookmark> bookmarks)
{
    bookmarks_ = std::move(bookmarks);
    if (onChange)
        onChange();
}

void BookmarksStore::removeAll()
{
    setBookmarks({});
}

} // namespace folivox
