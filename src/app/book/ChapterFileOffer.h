#pragma once

#include "core/book/Bookmark.h"
#include "core/book/Track.h"
#include "sidecars/discovery/SidecarMatchResult.h"

#include <QString>

#include <optional>
#include <vector>

namespace folivox {

// A chapter file fitted to the open book: how well it matches the audio, why,
// and the chapters it would give. Made for a file the user chose or dropped,
// and for the best file that discovery found beside the audio.
struct ChapterFileOffer {
    SidecarMatchResult match;
    std::vector<Bookmark> chapters; // over the book's tracks
    QStringList warnings;           // the parser's and the validation's, for the user

    // Reads, parses, validates and scores one chapter file against the
    // tracks. No value, with `error` set to a message naming the file, when
    // it cannot be read or holds no usable chapters.
    static std::optional<ChapterFileOffer> evaluate(const QString& path, const std::vector<Track>& tracks,
                                                    QString& error);
    // The best chapter file beside the tracks, if one parsed and validated.
    static std::optional<ChapterFileOffer> discover(const std::vector<Track>& tracks);

    QString fileName() const;
    // "high", "medium", ... as the user reads it.
    QString confidenceText() const;
    // What the match rests on: "same name as the audio, length fits the audio".
    QString evidenceText() const;
    // One line: "Book.cue (Cue sheet, 12 chapters): high confidence, score 80
    // — same name as the audio, ...".
    QString summary() const;
    // Whether the window applies it without asking: a high-confidence match.
    bool appliesByItself() const { return match.confidence == SidecarMatchConfidence::high; }
};

} // namespace folivox
