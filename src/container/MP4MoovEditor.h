#pragma once

#include "container/MP4BoxTree.h"
#include "container/MP4MoovRewriter.h"

#include <QString>

#include <functional>

namespace folivox {

// Edits a file's `moov` as a box tree and puts the result back: through
// MP4MoovRewriter when it can (no media moves), else by rewriting the whole
// file with the chunk offsets behind the `moov` shifted (files up to 2048 MB).
// This is the route for tag, cover and chapter tools.
//
// The edit receives the parsed `moov` and returns whether it changed
// anything. Chunk offsets it writes itself (for example of a new trak whose
// samples were appended to the file beforehand) are in the coordinates of the
// file as it was before the edit.
class MP4MoovEditor {
public:
    enum class Route { unchanged, fastPath, fullFile, skippedTooLarge };

    struct Result {
        Route route = Route::unchanged;
        MP4MoovRewriter::Mode mode = MP4MoovRewriter::Mode::last; // for fastPath
    };

    using Edit = std::function<bool(MP4BoxTree::Node& moov)>;

    static constexpr std::uint64_t fullFileLimit = 2147483649;

    // Throws MP4MoovReader::Error when the file has no usable moov,
    // MP4FileError on I/O failures, and SafeFileReplace's errors from the
    // full-file put-back. Logs under "[MP4MoovEditor]".
    static Result edit(const QString& path, const Edit& edit);
};

} // namespace folivox
