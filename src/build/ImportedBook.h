#pragma once

#include "core/book/BookMetadata.h"
#include "core/book/Bookmark.h"
#include "core/book/Track.h"

#include <QJsonObject>

#include <vector>

namespace folivox {

// A book whose audio was imported earlier (a library book, a queued job):
// its tracks in order, its chapters and its tags. A build of it skips the
// import, the chapter files and the tag merge.
struct ImportedBook {
    std::vector<Track> tracks;
    std::vector<Bookmark> bookmarks;
    BookMetadata metadata;

    QJsonObject toJson() const;
    // Throws DecodingError naming the key that does not decode.
    static ImportedBook fromJson(const QJsonObject& json);
};

} // namespace folivox
