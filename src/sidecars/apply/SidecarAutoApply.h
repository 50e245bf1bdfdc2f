#pragma once

#include "core/book/Bookmark.h"
#include "core/book/Track.h"

#include <QString>

#include <optional>
#include <vector>

namespace folivox {

// A chapter file found beside the audio, applied when discovery is sure it
// fits: the one step that a build and the library's adding both take when
// the user named no chapter file.
class SidecarAutoApply {
public:
    struct Outcome {
        // The chapters of the file, laid over the tracks; none when no file
        // was applied.
        std::optional<std::vector<Bookmark>> bookmarks;
        // The applied file's name.
        QString fileName;
        // One line for the user: what was found and why it is or isn't used.
        QString reason;
        // True when the reason is worth showing (a file was found).
        bool worthTelling = false;
    };

    static Outcome apply(const std::vector<Track>& tracks, bool noSidecar);
};

} // namespace folivox
