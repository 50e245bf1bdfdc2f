#pragma once

#include <QString>

namespace folivox {

class CancellationToken;

// Puts a finished file in the user's place, so that at every instant the
// path holds either the user's old file, whole, or the new book, whole —
// also across a kill -9 or a power cut. It never writes over a user's file
// in place:
//   - on the same volume, one rename (atomic);
//   - from another volume (the work folder on a different disk), a copy into
//     ".folivox-incoming-<UUID>" beside the target, made durable, then a
//     rename. The copy is locked by its writer while it exists, so a run
//     after a crash knows it for debris (sweepAbandoned);
//   - when the folder refuses the new name, nothing is changed and the build
//     fails (the driver checks this before any audio work; this is the last
//     guard).
// A symlink at the target is replaced as a directory entry; the file it
// points to is never written. The old file's permission bits carry over.
class OutputPlacement {
public:
    // Moves `finished` to `target`. Throws ExportError::cancelled when the
    // token is cancelled during a copy (nothing changed then), and
    // ExportError (validationFailed, naming the target's folder) or
    // GenericError when the target can't be replaced; the old file is then
    // untouched.
    static void put(const QString& finished, const QString& target, const CancellationToken& token);

    // Removes the write probes and incoming copies in `folder` whose writer
    // is gone. Returns how many files were removed.
    static int sweepAbandoned(const QString& folder);

    static constexpr const char* incomingPrefix = ".folivox-incoming-";
};

} // namespace folivox
