#pragma once

#include "core/book/Bookmark.h"
#include "core/book/Track.h"
#include "sidecars/apply/FittedSidecarChapters.h"
#include "sidecars/parsers/SidecarParseResult.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <vector>

namespace folivox {

// Turns a parsed chapter file into the chapters that are applied to the
// audio. Every caller that applies or reports on a chapter file (the build,
// `folivox chapters --audio`, discovery's choice) goes through here, so all
// of them agree on what a file comes to.
//
// The rows are validated as their format asks (strict for plain text, lenient
// for the rest: sorted, negative and duplicate starts dropped with a warning,
// rows past the audio's end dropped, the first moved to 0). Then each chapter
// is given its end: the next chapter's start, and for the last the end of the
// audio, so that the chapters cover the audio exactly once, with no gap and no
// overlap. A chapter's own end time in the file does not cut the book short.
// Stateless.
class SidecarChapterFitter {
public:
    // totalDurationMs: the length of all the audio; 0 or less when unknown.
    static FittedSidecarChapters fit(const SidecarParseResult& parsed, std::int64_t totalDurationMs);

    // The audio's length in whole milliseconds, as fit() takes it.
    static std::int64_t totalDurationMs(const std::vector<Track>& tracks);

    // The fitted chapters laid over the tracks (in book order) as bookmarks:
    // each covers the tracks its stretch touches, starting startOffset into
    // the first. The durations add up to the tracks' total length.
    static std::vector<Bookmark> bookmarks(const std::vector<Track>& tracks, const QList<NormalizedChapter>& chapters);

    // The warnings worth a user's attention (severity warning and error), one
    // line each, naming the file and the line: "book.cue, line 7: ...". When
    // any row was left out, a last line says how to get it applied.
    static QStringList notices(const FittedSidecarChapters& fitted, const QString& fileName);
};

} // namespace folivox
