#pragma once

#include "core/book/Bookmark.h"
#include "core/book/Track.h"
#include "import/ImportAlert.h"
#include "import/ImportReport.h"
#include "import/TrackLoadOutcome.h"

#include <QList>
#include <QUrl>

#include <optional>
#include <vector>

namespace folivox {

// What one import did.
struct ImportResult {
    enum class Status {
        imported,        // tracks and chapters were added to the book
        nothingImported, // no file could be loaded (see outcome and report)
        refused,         // a rule refused the selection; the book is unchanged (see alert)
        busy,            // a library operation or another import was running; nothing was done
        cancelled,       // cancelled; the book is unchanged
    };

    Status status = Status::nothingImported;
    std::optional<ImportAlert> alert;     // for refused and busy
    std::vector<Track> tracks;            // the new tracks, in book order
    std::vector<Bookmark> chapters;       // the new chapters, in book order
    TrackLoadOutcome outcome;             // as loaded, before ordering
    std::vector<Track> detectedXHEAACFiles;
    std::vector<Track> detectedDRMFiles;
    QList<QUrl> droppedSidecarFiles;      // chapter files dropped with the audio
    QList<QUrl> videoFailures;            // videos whose audio could not be extracted
    bool addedToExistingBook = false;
    std::optional<ImportReport> report;   // repairs and skipped files, for the user
};

} // namespace folivox
