#pragma once

#include "container/mp3/ChapterDamageHole.h"
#include "container/mp3/MP3IntegrityReport.h"
#include "core/book/Bookmark.h"

#include <QUrl>

#include <functional>
#include <optional>
#include <vector>

namespace folivox {

// Places the holes of scanned MP3s on a book's chapters.
//
// A chapter (a Bookmark) plays its tracks in order: the first from
// startOffset, the others from their start, each to its end, until the
// chapter's duration is used up. That covers the three shapes a book takes:
// one file per chapter, several chapters in stretches of one file, and
// chapters that run across files.
//
// Chapter marks, track durations and start offsets describe a file as it was
// before the damage (they come from tags, chapter files and the encoder's own
// header, all written for the whole file). A hole is taken to stand in for
// missingSeconds of that audio, so on that time line hole k of a file starts
// at its startTime plus the missingSeconds of the holes before it. A hole
// belongs to the one chapter whose stretch of the file holds that start.
class MP3ChapterDamageMap {
public:
    using ReportLookup = std::function<std::optional<MP3IntegrityReport>(const QUrl& file)>;

    // The holes that land in the chapter, in playing order.
    static std::vector<ChapterDamageHole> holesOfChapter(const Bookmark& chapter, const ReportLookup& reports);

    // The start of hole `index` of a report on the file's original time line.
    static double originalTime(const MP3IntegrityReport& report, std::size_t index);
};

} // namespace folivox
