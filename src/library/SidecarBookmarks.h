#pragma once

#include "core/Bookmark.h"
#include "core/NormalizedChapter.h"
#include "core/Track.h"

#include <QList>

#include <vector>

namespace folivox {

// Turns the chapters of a chapter file (times on the whole book's clock)
// into bookmarks over the book's tracks, as a build applies a chapter file:
// each chapter runs to the next one's start (or its own end, or the end of
// the audio), starts in the track its start time falls in and covers every
// track up to its end. Chapters of no length or beyond the audio are left out.
class SidecarBookmarks {
public:
    static std::vector<Bookmark> fromChapters(const std::vector<Track>& tracks, const QList<NormalizedChapter>& chapters);
};

} // namespace folivox
