#pragma once

#include "container/mp4/MP4MoovReader.h"

#include <QByteArray>
#include <QString>

#include <cstdint>

namespace folivox {

// Puts an edited `moov` back when there is no dead space around the old one
// to hold a new copy (a `moov` ahead of the media with nothing free behind
// it): the whole file is written anew beside itself, with the new `moov`, a
// `free` box of room behind it for later edits and every chunk offset behind
// the old `moov` moved, and then takes the file's place in one rename. The
// file reads as the old version until the rename and as the new one after.
//
// The new file is made without a name (O_TMPFILE) where the file system
// allows, so a process killed while copying leaves nothing behind; it gets a
// hidden name beside the book only for the rename.
class MP4MoovCopyRewriter {
public:
    // Room left behind a moov of moovSize bytes: one more copy of it and a
    // quarter (at least 64 KiB) to grow, so the next edits fit in place.
    static std::uint64_t roomFor(std::uint64_t moovSize);

    struct Result {
        std::uint64_t room = 0; // size of the free box behind the new moov
        std::uint64_t fileSize = 0;
    };

    // buffer holds the edited moov and the old one's place. media, when
    // given, is appended at the end of the copy; the moov's chunk offsets at
    // or above mediaBase (the file's size when the edit began) point into it
    // as if it started there. Throws MP4MoovRewriter::UnsupportedLayout when
    // the file changed or a chunk offset would overflow (nothing written),
    // MP4FileError, or SafeFileReplace's errors.
    static Result rewrite(const MP4MoovReader::MoovBuffer& buffer, const QString& path, const QByteArray& media = {},
                          std::uint64_t mediaBase = 0);
};

} // namespace folivox
