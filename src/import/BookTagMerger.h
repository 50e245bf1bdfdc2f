#pragma once

#include "core/book/BookMetadata.h"
#include "core/book/BookMetadataPatch.h"
#include "core/book/Track.h"

#include <QString>

#include <vector>

namespace folivox {

// The book's tags for a build: what the user gave first, then what the
// tracks' own tags agree on (album as title, album artist or artist as
// author, ...), then the fallback title (the folder's or first file's name).
class BookTagMerger {
public:
    static BookMetadata merge(const BookMetadataPatch& given, const std::vector<Track>& tracks, const QString& fallbackTitle);
};

} // namespace folivox
