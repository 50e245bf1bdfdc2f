#pragma once

#include "core/book/BookMetadata.h"
#include "core/book/Bookmark.h"
#include "core/settings/ExportSettings.h"
#include "core/book/Track.h"
#include "process/CancellationToken.h"
#include "process/EncoderCatalog.h"
#include "export/engine/ExportContext.h"
#include "export/strategies/ExportStrategy.h"
#include "process/FormatProbe.h"
#include "export/metadata/MetadataWritingService.h"

#include <QSet>
#include <QString>

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace folivox {

class FFmpegAudioEncoder;
class FFmpegWrapper;
class ManualCancellationToken;

// The driver of a build: turns one request ("build this book") into one
// finished file or folder. It runs the stages in a fixed order on its own
// serial worker thread, holds the machine awake, writes the build's
// diagnostic log, takes the decision, runs one strategy (twice in the one
// case of a corrupted source), cleans up after a failure without ever
// removing a file that existed before the build, and delivers exactly one
// result on the main thread.
class DefaultExportService {
public:
    struct Dependencies {
        // The tool layer; a default FFmpegWrapper when null.
        std::shared_ptr<const FFmpegWrapper> ffmpeg;
        // Tags, cover and chapters; may be null (audio only, logged).
        std::shared_ptr<MetadataWritingService> metadataService;
        // Reads a source's format (backed by the import inspectors): the
        // cache freshness pass, the decision and the segment planner use it.
        FormatProbeFunction formatProbe;
        // The encoders to use; the installed ffmpeg's when empty.
        std::optional<EncoderCatalog> catalog;
    };

    struct Request {
        std::vector<Bookmark> bookmarks;
        BookMetadata metadata;
        // The output file, or the output folder of an M4A/MP3 build.
        QString outputPath;
        ExportSettings settings;
        std::vector<Track> allTracks;
        // The book's own files, which no step may write over or delete
        // (ExportPrologue); taken from the tracks when empty.
        QSet<QString> protectedSourceIdentities;
        // Parallel jobs (-j); none uses the setting or the machine.
        std::optional<int> parallelJobs;
        // Encode even where the audio could be copied.
        bool reencode = false;
        // The build's diagnostic log; by default "logs/export-<time>.log" in
        // the application-support folder.
        std::optional<QString> logFile;
    };

    // Makes the strategy for a decision; `retry` is the one transcode run
    // after a corrupted source. Replaceable for tests.
    using StrategyFactory = std::function<std::unique_ptr<ExportStrategy>(ExportDecision::Strategy strategy, bool retry)>;

    DefaultExportService();
    explicit DefaultExportService(Dependencies dependencies);
    // Waits for the build that is running, if any.
    ~DefaultExportService();
    DefaultExportService(const DefaultExportService&) = delete;
    DefaultExportService& operator=(const DefaultExportService&) = delete;

    // Starts a build and returns at once. Progress and the completion are
    // delivered on the thread of the QCoreApplication (queued), or on the
    // worker when there is none. The completion is called exactly once.
    void exportBook(Request request, std::shared_ptr<const CancellationToken> token, ExportProgressHandler progress,
                    ExportCompletion completion);

    // exportBook(), then runs the calling thread's event loop until the
    // completion has arrived. For the command line and tests; call it on
    // the application's thread.
    ExportResult exportAndWait(Request request, std::shared_ptr<const CancellationToken> token,
                               ExportProgressHandler progress = {});

    // Cancels the running build (its child processes stop through the token).
    void cancel();

    void setStrategyFactory(StrategyFactory factory);
    std::unique_ptr<ExportStrategy> makeStrategy(ExportDecision::Strategy strategy, bool retry) const;

    // The clean-up of a failed or cancelled build: nothing at the output,
    // nothing to do; a directory is never removed; a file that stood there
    // before the build is left in place; a book source is never removed;
    // otherwise the partial file goes. Returns true when a file was removed.
    static bool cleanUp(const QString& outputPath, bool destinationPreExisted,
                        const QSet<QString>& protectedSourceIdentities = {});

    // The default log file of a build started now.
    static QString defaultLogFile();

private:
    struct Job;
    void workerLoop();
    void drive(Job& job);
    void deliver(Job& job, ExportResult result);
    void post(std::function<void()> f) const;
    std::shared_ptr<const FFmpegAudioEncoder> encoder() const;

    Dependencies dependencies_;
    StrategyFactory strategyFactory_;
    mutable std::mutex encoderMutex_;
    mutable std::shared_ptr<const FFmpegAudioEncoder> encoder_;

    std::mutex queueMutex_;
    std::condition_variable queueChanged_;
    std::deque<std::shared_ptr<Job>> queue_;
    bool stopping_ = false;
    std::shared_ptr<ManualCancellationToken> currentCancel_;
    std::thread worker_;
};

} // namespace folivox
