#pragma once

#include "container/mp4/MP4BoxTree.h"
#include "tools/ChapterListFile.h"

#include <QByteArray>
#include <QList>

namespace folivox {

// Nero chapters: a `chpl` box in moov/udta. Version 1, four reserved bytes, a
// one-byte count, then for each chapter its start in 100-nanosecond units
// (64 bits), a one-byte title length and the UTF-8 title. No durations. The
// format holds at most 255 chapters of at most 255 title bytes each.
class NeroChapterWriter {
public:
    static constexpr int maxChapters = 255;
    static constexpr qsizetype maxTitleBytes = 255;

    // The body of a `chpl` box for the first 255 chapters, titles cut to 255
    // bytes on a character boundary.
    static QByteArray payload(const QList<ChapterEntry>& chapters);
    // Reads a `chpl` body (version 0 without and version 1 with the reserved
    // word). Stops at the first entry that runs past the end.
    static QList<ChapterEntry> parse(const QByteArray& payload);

    // Replaces moov/udta/chpl.
    static void write(MP4BoxTree::Node& moov, const QList<ChapterEntry>& chapters);
    // Removes moov/udta/chpl, and `udta` when that leaves it empty. Returns
    // whether there was one.
    static bool remove(MP4BoxTree::Node& moov);
    static QList<ChapterEntry> read(const MP4BoxTree::Node& moov);
};

} // namespace folivox
