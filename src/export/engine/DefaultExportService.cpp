#include "export/engine/DefaultExportService.h"

#include "export/engine/ExportFailureClassifier.h"

#include "process/AnyOfCancellationToken.h"
#include "export/engine/DestinationWritability.h"
#include "export/decision/ExportDecisionService.h"
#include "export/decision/ExportPlanBuilder.h"
#include "export/engine/ExportPrologue.h"
#include "export/strategies/FFmpegAudioEncoder.h"
#include "export/strategies/FFmpegEncoderError.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "export/strategies/MultiFileExportStrategy.h"
#include "export/engine/OutputLock.h"
#include "export/engine/OutputPlacement.h"
#include "export/strategies/PassthroughConcatStrategy.h"
#include "export/strategies/PassthroughEntireFileStrategy.h"
#include "export/decision/SettingsNormalizer.h"
#include "export/strategies/SplitTranscodeStrategy.h"
#include "export/strategies/TranscodeStrategy.h"
#include "platform/AppPaths.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "platform/SleepInhibitor.h"
#include "platform/WorkDirectory.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QMetaObject>
#include <QPointer>
#include <QThread>

#include <atomic>
#include <cxxabi.h>
#include <typeinfo>

namespace folivox {

namespace {

const QString kTag = QStringLiteral("[Export] ");

void log(const QString& message)
{
    Log::write(kTag + message);
}

QString boolText(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString typeName(const std::type_info& type)
{
    int status = 0;
    char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
    QString name = status == 0 && demangled ? QString::fromLatin1(demangled) : QString::fromLatin1(type.name());
    std::free(demangled);
    return name;
}

QString describe(const std::exception_ptr& error, QString* type = nullptr, Error::Cause* cause = nullptr)
{
    try {
        std::rethrow_exception(error);
    } catch (const Error& e) {
        if (type)
            *type = typeName(typeid(e));
        if (cause)
            *cause = e.cause();
        return e.description();
    } catch (const std::exception& e) {
        if (type)
            *type = typeName(typeid(e));
        return QString::fromUtf8(e.what());
    } catch (...) {
        if (type)
            *type = QStringLiteral("unknown");
        return QStringLiteral("Unknown error");
    }
}

std::optional<ExportFailureContext> failureContextOf(const std::exception_ptr& error)
{
    try {
        std::rethrow_exception(error);
    } catch (const FFmpegEncoderError& e) {
        return e.failureContext();
    } catch (...) {
        return std::nullopt;
    }
}

QString settingsLine(const ExportSettings& s)
{
    return QStringLiteral("codec=%1 format=%2 bitrate=%3 keepSourceBitrate=%4 channels=%5 sampleRate=%6 passthrough=%7 "
                          "split=%8 splitHours=%9 splitSizeMB=%10 snapToChapters=%11 cover=%12/%13")
        .arg(enumName(s.codec), enumName(s.outputFormat),
             s.cbrBitrateKbps ? QString::number(*s.cbrBitrateKbps) : QStringLiteral("none"),
             boolText(s.keepSourceBitrate), enumName(s.channels), enumName(s.sampleRate),
             enumName(s.passthroughPolicy), enumName(s.splitMode))
        .arg(s.splitHours)
        .arg(s.splitSizeMB)
        .arg(boolText(s.snapToChapters), enumName(s.coverSize), enumName(s.coverQuality));
}

// The folders where a build makes files beside its output.
QStringList foldersBesideOutput(const QString& outputPath)
{
    const QFileInfo info(outputPath);
    QStringList folders{info.absolutePath()};
    if (info.isDir())
        folders << info.absoluteFilePath();
    return folders;
}

} // namespace

struct DefaultExportService::Job {
    Request request;
    std::shared_ptr<const CancellationToken> token;
    ExportProgressHandler progress;
    ExportCompletion completion;
    QString logFile;
    std::atomic<bool> delivered{false};
};

DefaultExportService::DefaultExportService() : DefaultExportService(Dependencies{}) {}

DefaultExportService::DefaultExportService(Dependencies dependencies)
    : dependencies_(std::move(dependencies))
{
    if (!dependencies_.ffmpeg)
        dependencies_.ffmpeg = std::make_shared<FFmpegWrapper>();
    worker_ = std::thread([this] { workerLoop(); });
}

DefaultExportService::~DefaultExportService()
{
    {
        std::lock_guard lock(queueMutex_);
        stopping_ = true;
    }
    queueChanged_.notify_all();
    if (worker_.joinable())
        worker_.join();
}

void DefaultExportService::setStrategyFactory(StrategyFactory factory)
{
    strategyFactory_ = std::move(factory);
}

std::shared_ptr<const FFmpegAudioEncoder> DefaultExportService::encoder() const
{
    std::lock_guard lock(encoderMutex_);
    if (!encoder_) {
        encoder_ = std::make_shared<FFmpegAudioEncoder>(dependencies_.ffmpeg, dependencies_.catalog);
    }
    return encoder_;
}

std::unique_ptr<ExportStrategy> DefaultExportService::makeStrategy(ExportDecision::Strategy strategy, bool retry) const
{
    if (strategyFactory_) {
        if (auto made = strategyFactory_(strategy, retry))
            return made;
    }
    const auto& metadata = dependencies_.metadataService;
    if (retry) {
        TranscodeStrategy::Options options;
        options.allowSegmentCopy = false;
        return std::make_unique<TranscodeStrategy>(metadata, encoder(), options);
    }
    switch (strategy) {
    case ExportDecision::Strategy::passthroughEntireFile:
        return std::make_unique<PassthroughEntireFileStrategy>(metadata);
    case ExportDecision::Strategy::passthroughConcat:
        return std::make_unique<PassthroughConcatStrategy>(metadata, encoder());
    case ExportDecision::Strategy::splitTranscode:
        return std::make_unique<SplitTranscodeStrategy>(metadata, encoder());
    case ExportDecision::Strategy::multiFile:
        return std::make_unique<MultiFileExportStrategy>(metadata, encoder());
    case ExportDecision::Strategy::passthroughRange: // never chosen; encode if it ever were
    case ExportDecision::Strategy::transcode:
        break;
    }
    return std::make_unique<TranscodeStrategy>(metadata, encoder());
}

void DefaultExportService::exportBook(Request request, std::shared_ptr<const CancellationToken> token,
                                      ExportProgressHandler progress, ExportCompletion completion)
{
    auto job = std::make_shared<Job>();
    job->request = std::move(request);
    job->token = std::move(token);
    job->progress = std::move(progress);
    job->completion = std::move(completion);
    {
        std::lock_guard lock(queueMutex_);
        queue_.push_back(std::move(job));
    }
    queueChanged_.notify_all();
}

ExportResult DefaultExportService::exportAndWait(Request request, std::shared_ptr<const CancellationToken> token,
                                                 ExportProgressHandler progress)
{
    QEventLoop loop;
    std::optional<ExportResult> result;
    exportBook(std::move(request), std::move(token), std::move(progress), [&loop, &result](const ExportResult& r) {
        result = r;
        loop.quit();
    });
    if (QCoreApplication::instance() && QThread::currentThread() == QCoreApplication::instance()->thread()) {
        while (!result)
            loop.exec();
    } else {
        // No application loop to deliver on: the completion runs on the worker.
        while (!result)
            QThread::msleep(10);
    }
    return *result;
}

void DefaultExportService::cancel()
{
    std::lock_guard lock(queueMutex_);
    if (currentCancel_)
        currentCancel_->cancel();
}

void DefaultExportService::post(std::function<void()> f) const
{
    QCoreApplication* app = QCoreApplication::instance();
    if (app)
        QMetaObject::invokeMethod(app, std::move(f), Qt::QueuedConnection);
    else
        f();
}

void DefaultExportService::workerLoop()
{
    for (;;) {
        std::shared_ptr<Job> job;
        {
            std::unique_lock lock(queueMutex_);
            queueChanged_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
            if (queue_.empty())
                return;
            job = queue_.front();
            queue_.pop_front();
            currentCancel_ = std::make_shared<ManualCancellationToken>();
        }
        drive(*job);
        std::lock_guard lock(queueMutex_);
        currentCancel_.reset();
    }
}

void DefaultExportService::deliver(Job& job, ExportResult result)
{
    if (job.delivered.exchange(true)) {
        log(QStringLiteral("completion already delivered — a second result was dropped"));
        return;
    }
    result.logFile = job.logFile;
    ExportCompletion completion = job.completion;
    post([completion, result = std::move(result)]() {
        if (completion)
            completion(result);
    });
}

QString DefaultExportService::defaultLogFile()
{
    const QString dir = QDir(AppPaths::appSupportDir()).filePath(QStringLiteral("logs"));
    QDir().mkpath(dir);
    return QDir(dir).filePath(QStringLiteral("export-")
                              + QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"))
                              + QStringLiteral(".log"));
}

bool DefaultExportService::cleanUp(const QString& outputPath, bool destinationPreExisted,
                                   const QSet<QString>& protectedSourceIdentities)
{
    const QFileInfo info(outputPath);
    const QString name = info.fileName();
    if (outputPath.isEmpty() || !info.exists())
        return false;
    if (info.isDir()) {
        log(QStringLiteral("cleanup: destination is a DIRECTORY (") + name
            + QStringLiteral(") — left untouched; partial parts may remain, the folder belongs to the user"));
        return false;
    }
    if (destinationPreExisted) {
        log(QStringLiteral("cleanup: destination '") + name
            + QStringLiteral("' existed before this export — left in place; a cancelled or failed export must not take "
                             "away a file the user already had"));
        return false;
    }
    if (ExportPrologue::isProtected(outputPath, protectedSourceIdentities)) {
        log(QStringLiteral("cleanup: destination '") + name + QStringLiteral("' is a source of the book — left in place"));
        return false;
    }
    if (!QFile::remove(outputPath)) {
        log(QStringLiteral("cleanup: could not remove the partial file '") + name + u'\'');
        return false;
    }
    log(QStringLiteral("cleanup: removed the partial file '") + name + u'\'');
    return true;
}

void DefaultExportService::drive(Job& job)
{
    QElapsedTimer wall;
    wall.start();
    Request& request = job.request;
    std::shared_ptr<ManualCancellationToken> serviceCancel;
    {
        std::lock_guard lock(queueMutex_);
        serviceCancel = currentCancel_;
    }
    std::vector<std::shared_ptr<const CancellationToken>> tokens{serviceCancel};
    if (job.token)
        tokens.push_back(job.token);
    const auto token = std::make_shared<AnyOfCancellationToken>(tokens);

    const QString logFile = request.logFile.value_or(defaultLogFile());
    job.logFile = logFile;
    if (!Log::setFile(logFile))
        log(QStringLiteral("could not open the build log ") + logFile);

    // 1. Keep the machine awake for the whole build.
    SleepInhibitor inhibitor(L10n::text("export.sleep.assertion.reason", "Folivox is building an audiobook"));

    // 2. The diagnostic session.
    log(QStringLiteral("========== EXPORT STARTED =========="));
    log(QStringLiteral("Output file: ") + request.outputPath);
    log(QStringLiteral("Sleep prevention: ") + (inhibitor.isHeld() ? QStringLiteral("held") : QStringLiteral("not available")));

    // One build at a time per output: a second one is refused before it
    // touches anything, and must not run the clean-up (the file at the
    // output belongs to the build that holds the lock).
    OutputLock outputLock;
    try {
        outputLock = OutputLock::acquire(request.outputPath);
    } catch (const ExportError& e) {
        log(QStringLiteral("EXPORT ERROR (ExportError): ") + e.caseName());
        log(QStringLiteral("Error description: ") + e.description());
        log(QStringLiteral("========== EXPORT REFUSED =========="));
        log(QStringLiteral("Build log: ") + logFile);
        Log::setFile({});
        deliver(job, ExportResult::failure(e));
        return;
    }
    // What earlier builds that were killed left behind: work folders, write
    // probes and incoming copies whose owners are gone.
    WorkDirectory::sweepAbandoned();
    OutputLock::sweepAbandoned();
    for (const QString& folder : foldersBesideOutput(request.outputPath))
        OutputPlacement::sweepAbandoned(folder);

    // 3. Whether the output stood there before: a failed build never removes such a file.
    const bool destinationPreExisted = QFileInfo::exists(request.outputPath);
    log(QStringLiteral("destinationPreExisted=") + boolText(destinationPreExisted));
    QSet<QString> protectedIds = request.protectedSourceIdentities;
    if (protectedIds.isEmpty())
        protectedIds = ExportPrologue::make(request.bookmarks, request.metadata, request.settings, request.allTracks)
                           .protectedSourceIdentities;

    auto progress = [this, &job](const ExportProgress& p) {
        if (!job.progress)
            return;
        ExportProgressHandler handler = job.progress;
        post([handler, p]() { handler(p); });
    };
    auto finishFailed = [&](ExportResult result, const QString& banner) {
        log(banner);
        cleanUp(request.outputPath, destinationPreExisted, protectedIds);
        log(QStringLiteral("Build log: ") + logFile);
        Log::setFile({});
        deliver(job, std::move(result));
    };

    // 4. The inputs, as a support log is read for them.
    std::size_t trackCount = 0;
    for (const Bookmark& b : request.bookmarks)
        trackCount += b.tracks.size();
    log(QStringLiteral("Inputs: bookmarks=%1 totalTracks=%2 bookTracks=%3")
            .arg(request.bookmarks.size())
            .arg(trackCount)
            .arg(request.allTracks.size()));
    for (std::size_t i = 0; i < request.bookmarks.size(); ++i) {
        const Bookmark& b = request.bookmarks[i];
        log(QStringLiteral("  bookmark[%1] \"%2\" startOffset=%3 duration=%4 tracks=%5")
                .arg(i)
                .arg(b.title)
                .arg(b.startOffset, 0, 'f', 3)
                .arg(b.duration, 0, 'f', 3)
                .arg(b.tracks.size()));
    }
    for (std::size_t i = 0; i < request.allTracks.size(); ++i) {
        const Track& t = request.allTracks[i];
        const QFileInfo info(t.url.toLocalFile());
        log(QStringLiteral("  track[%1] %2 exists=%3 readable=%4 duration=%5 codec=%6 sampleRate=%7 bitrate=%8 channels=%9")
                .arg(i)
                .arg(info.fileName(), boolText(info.exists()), boolText(info.isReadable()))
                .arg(t.duration, 0, 'f', 3)
                .arg(t.cachedCodec.value_or(QStringLiteral("?")))
                .arg(t.cachedSampleRate ? QString::number(*t.cachedSampleRate) : QStringLiteral("?"))
                .arg(t.cachedBitrate ? QString::number(*t.cachedBitrate) : QStringLiteral("?"))
                .arg(t.cachedChannels ? QString::number(*t.cachedChannels) : QStringLiteral("?")));
    }

    // 5. Work beside the build: read ffmpeg's encoder list while the
    // decision runs. Nothing waits for it but the first encode.
    std::thread beside([this] { (void)encoder(); });
    struct Joiner {
        std::thread& t;
        ~Joiner()
        {
            if (t.joinable())
                t.join();
        }
    } joiner{beside};

    // 6. A build cancelled before it started.
    if (token->isCancelled()) {
        log(QStringLiteral("CANCELLED before start"));
        finishFailed(ExportResult::failure(ExportError::cancelled()), QStringLiteral("========== EXPORT CANCELLED =========="));
        return;
    }

    ExportContext context;
    ExportDecision decision;
    std::unique_ptr<ExportStrategy> strategy;
    std::vector<std::pair<QString, double>> driverTimings;
    // The one place a build ends well: the outcome gets the decision's
    // reasons and the driver's timings and is delivered.
    const auto succeed = [&](ExportOutcome outcome) {
        outcome.strategy = strategy ? strategy->kind() : decision.strategy;
        outcome.reasons = decision.reasons;
        outcome.timings.insert(outcome.timings.begin(), driverTimings.begin(), driverTimings.end());
        outcome.timings.emplace_back(QStringLiteral("total"), double(wall.elapsed()) / 1000.0);
        log(QStringLiteral("========== EXPORT COMPLETED ========== (") + QString::number(wall.elapsed())
            + QStringLiteral(" ms)"));
        log(QStringLiteral("Build log: ") + logFile);
        Log::setFile({});
        deliver(job, ExportResult::success(std::move(outcome)));
    };
    try {
        // 7. Settings and tag items.
        log(QStringLiteral("Settings: ") + settingsLine(request.settings));
        log(QStringLiteral("Building metadata items..."));
        const auto items = ExportContext::makeMetadataItems(request.metadata);
        log(QStringLiteral("Metadata items built: %1").arg(items.size()));

        // 8. Cached formats that no longer match their files are probed again.
        QElapsedTimer phase;
        phase.start();
        ExportDecisionService decisionService;
        decisionService.inspector = dependencies_.formatProbe;
        const ExportCacheFreshness::Result fresh = decisionService.refreshCachedFormats(request.bookmarks);
        std::vector<Bookmark> bookmarks = fresh.bookmarks;
        std::vector<Track> tracks = fresh.applyTo(request.allTracks);

        // 9, 10. The plan, the decision and the strategy.
        const ExportPlanBuilder::Plan plan = ExportPlanBuilder::build(bookmarks, tracks);
        if (plan.isEmpty())
            throw ExportError::noSourceFiles();
        decision = decisionService.decide(bookmarks, request.settings, plan, request.reencode);
        if (decision.strategy == ExportDecision::Strategy::passthroughRange)
            decision.strategy = ExportDecision::Strategy::transcode;
        driverTimings.emplace_back(QStringLiteral("decision"), double(phase.elapsed()) / 1000.0);

        // 11. Settings brought to the sources' common format.
        const ExportSettings effective = SettingsNormalizer::effectiveSettings(request.settings, decision);

        // 12. The context.
        context.bookmarks = bookmarks;
        context.metadata = request.metadata;
        context.outputURL = request.outputPath;
        context.settings = effective;
        context.plan = plan;
        for (const auto& item : items)
            context.metadataItems.push_back(item);
        context.allTracks = tracks;
        context.cancelToken = token;
        context.protectedSourceIdentities = protectedIds;
        context.progressHandler = progress;
        context.formatProbe = dependencies_.formatProbe;
        context.parallelJobs = request.parallelJobs;
        log(QStringLiteral("useFFmpegEncoder=true"));

        // 13. The banner.
        Log::write(QStringLiteral("🎬 EXPORT: Starting Export"));
        Log::write(QStringLiteral("   Output: ") + QFileInfo(request.outputPath).fileName());
        Log::write(QStringLiteral("   Chapters: %1").arg(plan.chapters.size()));
        Log::write(QStringLiteral("   Codec: ") + label(effective.codec) + QStringLiteral("  Bitrate: ")
                   + (effective.keepSourceBitrate ? QStringLiteral("source")
                                                  : QString::number(effective.cbrBitrateKbps.value_or(0)) + QStringLiteral(" kbps")));
        Log::write(QStringLiteral("   Sample rate: ") + label(effective.sampleRate) + QStringLiteral("  Channels: ")
                   + label(effective.channels));
        Log::write(QStringLiteral("   Cover: ")
                   + (request.metadata.coverImageData ? QStringLiteral("yes") : QStringLiteral("no")));
        Log::write(QStringLiteral("   Strategy: ") + enumName(decision.strategy) + QStringLiteral("  Reasons: ")
                   + (decision.reasons.isEmpty() ? QStringLiteral("none") : decision.reasons.join(QStringLiteral(", "))));

        // 14. The destination must take the output before any audio work.
        const bool multiFile = decision.strategy == ExportDecision::Strategy::multiFile;
        context.destinationAccess = DestinationWritability::require(request.outputPath, multiFile);
        if (!multiFile && ExportPrologue::isProtected(request.outputPath, protectedIds)) {
            log(QStringLiteral("the output is one of the book's own files (.folivox-no-free-name)"));
            throw ExportError::validationFailed(
                L10n::format(L10n::text("export.error.no.free.name",
                                        "Folivox can't find a free name for “%@” in this folder — it would have to "
                                        "write over one of the book's own files."),
                             {QFileInfo(request.outputPath).fileName()}));
        }
        context.throwIfCancelled();

        // 15. The strategy.
        log(QStringLiteral("Entering strategy selection..."));
        log(QStringLiteral("Checking strategy: multiFile=%1 splitTranscode=%2 uniqueURLs=%3")
                .arg(boolText(multiFile),
                     boolText(decision.strategy == ExportDecision::Strategy::splitTranscode))
                .arg(plan.uniqueURLs.size()));
        strategy = makeStrategy(decision.strategy, false);
        log(QStringLiteral("Running strategy ") + strategy->name());
        ExportOutcome made = strategy->run(context);
        succeed(std::move(made));
        return;
    } catch (...) {
        std::exception_ptr error = std::current_exception();
        ExportFailureClassifier::Kind kind = ExportFailureClassifier::classify(error, *token);

        // The one retry: a copy path met a damaged source.
        if (kind == ExportFailureClassifier::Kind::corruptedSource) {
            QString details;
            try {
                std::rethrow_exception(error);
            } catch (const ExportError& e) {
                details = e.detail();
            } catch (...) {
            }
            log(QStringLiteral("Corrupted source detected, retrying with TranscodeStrategy. Details: ") + details);
            progress(ExportProgress{ExportPhase::encoding, 0.0, L10n::text("export.progress.encoding", "Encoding audio…")});
            std::optional<ExportOutcome> retried;
            try {
                strategy = makeStrategy(ExportDecision::Strategy::transcode, true);
                retried = strategy->run(context);
            } catch (...) {
                const std::exception_ptr retryError = std::current_exception();
                if (ExportFailureClassifier::classify(retryError, *token) != ExportFailureClassifier::Kind::cancelled) {
                    const QString first = ExportError::corruptedSourceRequiresTranscode(details).description();
                    const QString second = describe(retryError);
                    log(QStringLiteral("TranscodeStrategy retry ALSO FAILED: ") + second);
                    log(QStringLiteral("Retry error description: ") + second);
                    finishFailed(ExportResult::failure(ExportError::transcodeFailedAfterRetry(first, second),
                                                       failureContextOf(retryError)),
                                 QStringLiteral("========== EXPORT FAILED =========="));
                    return;
                }
                kind = ExportFailureClassifier::Kind::cancelled;
            }
            if (retried) {
                succeed(std::move(*retried));
                return;
            }
        }

        switch (kind) {
        case ExportFailureClassifier::Kind::cancelled:
            log(QStringLiteral("CANCELLED during post-processing"));
            finishFailed(ExportResult::failure(ExportError::cancelled()),
                         QStringLiteral("========== EXPORT CANCELLED =========="));
            return;
        case ExportFailureClassifier::Kind::outOfSpace: {
            // The strategies write only into the work folder until the book is
            // put in place, so a full disk that names no folder is the
            // temporary folder's; putting the book in place names its own.
            ExportError full = ExportError::outOfSpaceInTemporaryFolder(QDir::toNativeSeparators(QDir::tempPath()));
            try {
                std::rethrow_exception(error);
            } catch (const ExportError& e) {
                if (!e.detail().isEmpty())
                    full = e;
            } catch (...) {
            }
            log(QStringLiteral("EXPORT ERROR (ExportError): out of space: ") + full.detail());
            log(QStringLiteral("Error description: ") + full.description());
            finishFailed(ExportResult::failure(full), QStringLiteral("========== EXPORT FAILED =========="));
            return;
        }
        case ExportFailureClassifier::Kind::corruptedSource:
        case ExportFailureClassifier::Kind::other:
            break;
        }
        try {
            std::rethrow_exception(error);
        } catch (const ExportError& e) {
            log(QStringLiteral("EXPORT ERROR (ExportError): ") + e.caseName());
            log(QStringLiteral("Error description: ") + e.description());
            if (e.kind() != ExportError::Kind::destinationNotWritable && e.kind() != ExportError::Kind::noSourceFiles)
                log(QStringLiteral("Export failed (ExportError default case): ") + e.description());
            finishFailed(ExportResult::failure(e), QStringLiteral("========== EXPORT FAILED =========="));
        } catch (...) {
            QString type;
            Error::Cause cause = Error::Cause::none;
            const QString text = describe(error, &type, &cause);
            log(QStringLiteral("EXPORT ERROR (generic): ") + text);
            log(QStringLiteral("Error type=") + type + QStringLiteral(", description: ") + text);
            finishFailed(ExportResult::failure(ExportError::underlying(text, type, cause), failureContextOf(error)),
                         QStringLiteral("========== EXPORT FAILED =========="));
        }
    }
}

} // namespace folivox
