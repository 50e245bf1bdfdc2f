#pragma once

#include "core/book/Bookmark.h"
#include "core/book/Track.h"

#include <vector>

namespace folivox {

// Turns ordered tracks into the chapters of the book. A track with embedded
// chapter marks gives one chapter per mark (a mark closer than 0.25 s to the
// one before it is collapsed into it); a track without marks gives one
// chapter for the whole file.
class ImportChapterBuilder {
public:
    static constexpr double kCollapseThreshold = 0.25;

    struct Layout {
        std::vector<Bookmark> chapters;
        int collapsedMarks = 0;     // marks dropped for standing too close to the previous one
        int filesWithoutMarks = 0;  // files that became one chapter each
        int videoFiles = 0;         // of those, files whose audio came from a video
    };

    static Layout build(const std::vector<Track>& tracks);
};

} // namespace folivox
