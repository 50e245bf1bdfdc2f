#pragma once

#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4MoovRewriter.h"

#include <QString>

#include <functional>

namespace folivox {

// Edits a file's `moov` as a box tree and puts the result back: through
// MP4MoovRewriter when there is room for a second copy around the old one (no
// media moves), else by writing the whole file anew with room behind the
// `moov` (MP4MoovCopyRewriter). Either way the file reads as the old or the
// new version at every instant. This is the route for tag, cover and chapter
// tools.
//
// The edit receives the parsed `moov` and returns whether it changed
// anything.
class MP4MoovEditor {
public:
    enum class Route { unchanged, fastPath, fullFile };

    struct Result {
        Route route = Route::unchanged;
        MP4MoovRewriter::Mode mode = MP4MoovRewriter::Mode::front; // for fastPath
    };

    using Edit = std::function<bool(MP4BoxTree::Node& moov)>;

    // Throws MP4MoovReader::Error when the file has no usable moov,
    // MP4FileError on I/O failures, MP4MoovRewriter::UnsupportedLayout when
    // neither route can place the moov, and SafeFileReplace's errors from the
    // whole-file put-back. Logs under "[MP4MoovEditor]".
    static Result edit(const QString& path, const Edit& edit);
};

} // namespace folivox
