#pragma once

#include "core/book/BookMetadata.h"
#include "core/book/Bookmark.h"
#include "core/settings/ExportSettings.h"
#include "core/book/Track.h"
#include "process/CancellationToken.h"
#include "export/engine/DestinationWritability.h"
#include "export/decision/ExportDecision.h"
#include "export/engine/ExportError.h"
#include "export/engine/ExportFailureContext.h"
#include "export/decision/ExportPlanBuilder.h"
#include "export/engine/ExportProgress.h"
#include "process/FormatProbe.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace folivox {

// One chapter of a finished build, as it lies in the output.
struct ExportedChapter {
    QString title;
    double start = 0.0;    // seconds from the start of its file
    double duration = 0.0; // seconds
    // The file that holds it (a part or a per-chapter file); the output
    // itself when empty.
    QString file;
    // The index of the plan chapter it was built from (not written to JSON).
    int planChapter = -1;

    QJsonObject toJson() const;
};

// What a successful build made.
struct ExportOutcome {
    // The file, or the folder of a multi-file build.
    QString outputPath;
    // Every file written: one for a single book, the parts of a split build,
    // one per chapter for a multi-file build.
    QStringList outputFiles;
    std::vector<ExportedChapter> chapters;
    ExportDecision::Strategy strategy = ExportDecision::Strategy::transcode;
    QStringList reasons;
    // Seconds spent, by stage name, in order.
    std::vector<std::pair<QString, double>> timings;

    QJsonObject toJson() const;
};

// The one result a build delivers: an outcome, or an error (with the failed
// job's context when a job failed).
struct ExportResult {
    std::optional<ExportOutcome> outcome;
    std::optional<ExportError> error;
    std::optional<ExportFailureContext> failureContext;
    // The build's diagnostic log.
    QString logFile;

    bool succeeded() const { return outcome.has_value(); }
    bool cancelled() const { return error && error->kind() == ExportError::Kind::cancelled; }

    static ExportResult success(ExportOutcome outcome);
    static ExportResult failure(ExportError error, std::optional<ExportFailureContext> context = std::nullopt);
};

using ExportCompletion = std::function<void(const ExportResult&)>;

// Everything one strategy run works from. Made by the driver after the
// decision, with the effective settings.
struct ExportContext {
    // One book tag, as the build's log lists it.
    struct MetadataItem {
        QString key;
        QString value;
    };

    std::vector<Bookmark> bookmarks;
    BookMetadata metadata;
    // The final file, or the folder of a multi-file build.
    QString outputURL;
    ExportSettings settings;
    ExportPlanBuilder::Plan plan;
    std::vector<MetadataItem> metadataItems;
    std::vector<Track> allTracks;
    std::shared_ptr<const CancellationToken> cancelToken;
    // Identities (ExportPrologue::identity) of the book's own source files,
    // which no step may write over or delete.
    QSet<QString> protectedSourceIdentities;
    ExportProgressHandler progressHandler;

    // How the destination may be written (the driver's write probe). A build
    // only starts with `folder`: the other results are refused.
    DestinationWritability::Result destinationAccess = DestinationWritability::Result::folder;
    // Reads the format of a source the tracks do not describe.
    FormatProbeFunction formatProbe;
    // Parallel jobs asked for by the user (-j); none uses the setting or the machine.
    std::optional<int> parallelJobs;

    const CancellationToken& token() const { return cancelToken ? *cancelToken : CancellationToken::never(); }
    bool isCancelled() const { return cancelToken && cancelToken->isCancelled(); }
    // Throws ExportError::cancelled when the token is cancelled.
    void throwIfCancelled() const;

    // The tag items of a book, in the order the log lists them.
    static std::vector<MetadataItem> makeMetadataItems(const BookMetadata& metadata);
};

} // namespace folivox
