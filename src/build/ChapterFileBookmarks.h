#pragma once

#include "core/Bookmark.h"
#include "core/NormalizedChapter.h"
#include "core/Track.h"

#include <QList>

#include <vector>

namespace folivox {

// Chapters of a chapter file, on the book's timeline (milliseconds from the
// start of the first track), as bookmarks over the tracks: each starts in the
// track that holds its start and runs on into the following tracks.
class ChapterFileBookmarks {
public:
    static std::vector<Bookmark> make(const std::vector<Track>& tracks, const QList<NormalizedChapter>& chapters);
};

} // namespace folivox
