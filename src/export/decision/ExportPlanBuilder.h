#pragma once

#include "core/book/Bookmark.h"
#include "core/chapters/ChapterInput.h"
#include "core/book/Track.h"

#include <QJsonObject>
#include <QList>
#include <QUrl>

#include <optional>
#include <vector>

namespace folivox {

// Turns the book's chapters into what the strategies build from: one
// ChapterInput per chapter that holds audio, the source files in the order
// they are first used, and which bookmark each chapter came from.
//
// A bookmark covers its `tracks` starting at `startOffset` in the first one
// for `duration` seconds, running on into the following tracks of its list.
// An offset that lies beyond the first file carries over into the next.
//
// Three tolerances (seconds) absorb the rounding of times measured by
// different readers:
//   - kStartTolerance (0.01): a stretch that starts this close to 0 starts at
//     the file's beginning; a stretch shorter than this is not taken at all
//     (a chapter that ends on a file boundary does not pull in the next file).
//     The chapter-order check of the decision uses it as well.
//   - kEndTolerance (0.1): a chapter inside one file that ends this close to
//     the file's end runs to the end; it is also the largest gap or overlap
//     allowed where one chapter hands a file on to the next (a few AAC frames).
//   - kCrossFileTolerance (1.0): for a chapter that runs over several files,
//     a stretch that ends this close to its file's end runs to the end. Such
//     a chapter's length was measured against the sum of its files, and each
//     file's own length carries encoder priming and frame padding, so the
//     error grows with every file.
class ExportPlanBuilder {
public:
    static constexpr double kStartTolerance = 0.01;
    static constexpr double kEndTolerance = 0.1;
    static constexpr double kCrossFileTolerance = 1.0;

    struct Plan {
        std::vector<ChapterInput> chapters;
        QList<QUrl> uniqueURLs;                // in order of first use
        std::vector<int> chapterToBookmarkMap; // for each chapter, its bookmark's index

        bool isEmpty() const { return chapters.empty(); }

        QJsonObject toJson() const;
        static Plan fromJson(const QJsonObject& json);

        bool operator==(const Plan&) const = default;
    };

    // One stretch of one file that a chapter takes.
    struct Piece {
        QUrl url;
        MediaTimeRange range;
        std::optional<double> fileDuration; // no value when the file's length is unknown
        bool wholeFile = false;             // starts at the beginning and runs to the end
    };

    // Bookmarks that take no audio (no tracks, no length, or an offset past
    // all their files) get no chapter; chapterToBookmarkMap keeps the link for
    // the others. `tracks` (the book's tracks) supplies a file's length when
    // a bookmark's copy of the track has none.
    static Plan build(const std::vector<Bookmark>& bookmarks, const std::vector<Track>& tracks = {});

    // The stretches one bookmark takes, in playing order. A file of unknown
    // length takes all the time that is left, and later files get nothing.
    static std::vector<Piece> pieces(const Bookmark& bookmark, const std::vector<Track>& tracks = {});

    // The stretches of a built chapter, with `wholeFile` as the plan marked
    // it (`wholeFileCandidate` or `segmentFullTrack`); fileDuration is left
    // empty.
    static std::vector<Piece> pieces(const ChapterInput& chapter);

    // The track's length when it is known: its own duration, else that of the
    // book's track with the same id, else with the same URL.
    static std::optional<double> knownDuration(const Track& track, const std::vector<Track>& tracks);
};

} // namespace folivox
