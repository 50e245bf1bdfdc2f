#pragma once

#include "core/book/Bookmark.h"
#include "core/book/Track.h"

#include <vector>

namespace folivox {

// The ways the window lays chapters over the book's tracks.
class ChapterLayouts {
public:
    // One chapter per file, titled after the track.
    static std::vector<Bookmark> perFile(const std::vector<Track>& tracks);
    // The marks embedded in the files (a file without marks is one chapter),
    // as an import lays them out.
    static std::vector<Bookmark> fromMarks(const std::vector<Track>& tracks);

    // The chapters after the tracks were reordered or some removed. Chapters
    // that each lie within one track follow their track, keeping their
    // titles; a chapter of a removed track goes with it. Chapters that cross
    // tracks (a chapter file's) cannot follow a reorder, so the book falls
    // back to the marks in the files.
    static std::vector<Bookmark> afterTrackChange(const std::vector<Bookmark>& chapters,
                                                  const std::vector<Track>& tracks);
};

} // namespace folivox
