#pragma once

#include <QString>

namespace folivox {

// Where an MP4 file says its audio lives. A track's data reference (`dref`)
// either marks its media as in this file (the self-contained flag) or points
// at another file by URL or alias, as editing programs save a "reference
// movie". Such a file opens and reports a length, but its audio can't be read
// from it alone.
class MP4MediaReferences {
public:
    struct Facts {
        bool moovRead = false;
        // An audio track keeps its media in another file.
        bool externalAudio = false;
        // The samples are listed in movie fragments after the moov (`mvex`),
        // not in the moov's own sample tables.
        bool fragmented = false;
    };

    // Reads the file's first moov. A file that is not MP4, or whose moov
    // can't be read, gives moovRead false (other checks judge those).
    static Facts read(const QString& path);
};

} // namespace folivox
