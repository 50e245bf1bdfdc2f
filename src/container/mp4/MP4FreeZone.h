#pragma once

#include "container/mp4/MP4BoxHeader.h"

#include <QList>

#include <cstdint>
#include <functional>
#include <optional>

namespace folivox {

class MP4File;

// The dead space around a file's `moov`: the unbroken run of `free`/`skip`
// boxes right ahead of it and right behind it. The moov rewriter puts a new
// `moov` only inside this run, or behind it at the end of the file when the
// run reaches the end, because only there can one header write take readers
// from the old box to the new one.
//
// Ahead of the moov the run may also take in media boxes that the new moov
// no longer uses (the samples of a chapter track being replaced): the old
// version still reads them, so nothing is written into them, but the switch
// may cover them.
//
// Two leftovers of an edit stopped while the file was growing count as dead
// space too, but only at the end of the file: a box whose header is all zeros
// (size 0, type 0: the zeros of a file extended and not yet labelled) and a
// `free` box whose stated size passes the end of the file.
struct MP4FreeZone {
    std::uint64_t start = 0; // first byte of the run (the moov's offset when nothing dead precedes it)
    // End of the part ahead of the moov that may be written before the
    // switch: the first retired media box, else the moov.
    std::uint64_t writableLeadEnd = 0;
    std::uint64_t end = 0;   // one past its last byte
    std::uint64_t moovOffset = 0;
    std::uint64_t moovSize = 0;
    std::uint64_t fileSize = 0;
    // The run ends at the end of the file and every box up to it parsed.
    bool reachesEnd = false;
    // The writable space ahead of the moov is one `free` box with an 8-byte
    // header stating exactly its size (nothing to merge before using it).
    bool leadIsOneFreeBox = true;
    // The same for the space behind the moov.
    bool tailIsOneFreeBox = true;
    // The moov's stored size is 0 (it runs to the end of the file).
    bool moovOpenEnded = false;
    // Every top-level box, in order, as far as they parse.
    QList<MP4BoxHeader> topLevel;

    // Walks the top level of file. Returns nothing when no box starts at
    // moovOffset, or the box there is not a `moov` of moovSize bytes.
    // retired, when given, tells which top-level boxes ahead of the moov are
    // media no longer used. The run ahead takes in no box that starts more
    // than maxLead bytes ahead of the moov (a free box of gigabytes that one
    // 8-byte header could not cover then stays out of it).
    static std::optional<MP4FreeZone> find(const MP4File& file, std::uint64_t moovOffset, std::uint64_t moovSize,
                                           const std::function<bool(const MP4BoxHeader&)>& retired = {},
                                           std::uint64_t maxLead = UINT64_MAX);

    // The top-level boxes of file as the zone sees them (the leftovers above
    // reported as `free` boxes reaching the end), and whether the walk
    // reached the end cleanly.
    static QList<MP4BoxHeader> walk(const MP4File& file, std::uint64_t fileSize, bool* clean = nullptr);

    static bool isDead(const MP4BoxHeader& box);
};

} // namespace folivox
