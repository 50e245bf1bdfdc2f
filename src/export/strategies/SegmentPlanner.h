#pragma once

#include "core/chapters/ChapterInput.h"
#include "core/book/Track.h"
#include "process/FormatProbe.h"

#include <QHash>
#include <QList>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

namespace folivox {

// What the planner knows of one source file.
struct SourceFacts {
    double duration = 0.0; // seconds
    std::optional<QString> codec;
    std::optional<int> sampleRate;
    std::optional<int> channels;
    std::optional<int> bitrate; // bits per second

    static SourceFacts fromProbe(const FormatProbe& probe);

    // Two files whose audio can share one concat demuxer input.
    bool sameStreamFormat(const SourceFacts& other) const
    {
        return codec == other.codec && sampleRate == other.sampleRate && channels == other.channels;
    }
};

// One stretch of one source file that goes into a segment.
struct SegmentPiece {
    QString path;
    double start = 0.0;  // seconds into the file
    double length = 0.0; // seconds
    bool fullTrack = false;
    SourceFacts facts;
};

// One job of the parallel encode: it becomes one file, "segment_%03d.m4a".
struct PlannedSegment {
    enum class Kind {
        stretch,   // one stretch of one file: -ss/-t on the file
        concat,    // several whole files joined by the concat demuxer
        crossFile, // pieces cut to lossless FLAC first, then joined
    };

    int index = 0;        // 0-based position in the book
    int chapterIndex = 0; // 0-based
    QString chapterTitle;
    Kind kind = Kind::stretch;
    QList<SegmentPiece> pieces;
    // The segment's audio may be stream-copied instead of encoded.
    bool copy = false;
    double plannedDuration = 0.0;

    QStringList sourceFileNames() const;
    static QString kindName(Kind kind);
};

struct SegmentPlan {
    std::vector<PlannedSegment> segments;
    // For each chapter, the indexes of its segments in order.
    std::vector<std::vector<int>> chapterSegments;
    double totalDuration = 0.0;

    int chapterCount() const { return static_cast<int>(chapterSegments.size()); }
};

// Cuts a book's chapters into the segments of the parallel encode. A chapter
// is one stretch of one file, a run of whole files, or pieces that cross file
// boundaries with a cut at either end. A chapter made of many whole files is
// shared out into several groups when there are fewer chapters than parallel
// jobs, so that a book of one long chapter still uses every core; a group
// never mixes files of different stream formats, which the concat demuxer
// cannot join.
class SegmentPlanner {
public:
    // Whether a whole-file stretch with these facts may be stream-copied.
    using CopyPredicate = std::function<bool(const SegmentPiece& piece)>;

    struct Options {
        int parallelJobs = 1;
        // False keeps every chapter in one segment (one output file per
        // chapter): whole files of mixed formats then go the lossless way.
        bool allowGroups = true;
        CopyPredicate mayCopy;
        // The facts of a file the tracks did not describe; no value when
        // probing fails (the planner then falls back to the planned lengths).
        FormatProbeFunction probe;
    };

    // Track facts keyed by local file path.
    static QHash<QString, SourceFacts> factsFromTracks(const std::vector<Track>& tracks);

    // Throws FFmpegEncoderError::noInputFiles for a chapter without files.
    static SegmentPlan plan(const std::vector<ChapterInput>& chapters, const QHash<QString, SourceFacts>& facts,
                            const Options& options);

    // Tolerance (seconds) within which a stretch counts as its whole file.
    static constexpr double kWholeFileTolerance = 0.01;
};

} // namespace folivox
