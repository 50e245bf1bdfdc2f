#pragma once

#include "core/book/BookMetadata.h"
#include "core/chapters/ChapterInfo.h"
#include "process/CancellationToken.h"
#include "inplace/InPlaceUpdateMode.h"

#include <QList>
#include <QString>

#include <functional>

namespace folivox {

// Progress of an update: a phase key ("inplace.progress.creating.backup",
// "inplace.progress.writing.metadata", "inplace.progress.writing.chapters",
// "inplace.progress.writing.cover", "inplace.progress.completed") and the
// fraction of the whole run done.
using InPlaceProgress = std::function<void(const QString& phaseKey, double fraction)>;

// What an update changes beyond the tags.
struct InPlaceUpdateOptions {
    // Take the cover out (metadata.coverImageData is then ignored).
    bool removeCover = false;
    // Called with the session folder once every backup exists, before the
    // first write: the caller needs it to roll back when the run fails.
    std::function<void(const QString& session)> backupCreated;
};

// Writes a book's tags, cover and chapter titles into its finished files.
// Only the fields of `metadata` that hold a value are written (an empty
// title keeps the file's); `chapters` (same times, new titles) are written
// into a single M4B or M4A, and give nothing for other files.
class InPlaceUpdateService {
public:
    virtual ~InPlaceUpdateService() = default;

    // Returns the backup session folder. Throws InPlaceUpdateError, or
    // ExportError::cancelled when the token stopped a per-chapter run.
    virtual QString updateMetadata(const BookMetadata& metadata, const QList<ChapterInfo>& chapters,
                                   const InPlaceUpdateMode& mode, const CancellationToken& token,
                                   const InPlaceProgress& progress, const InPlaceUpdateOptions& options = {}) = 0;
};

} // namespace folivox
