#include "import/probe/AudioMetadataService.h"

#include "process/FFmpegWrapper.h"
#include "import/probe/AudioStreamProbe.h"
#include "import/probe/FFprobeInspector.h"
#include "import/repair/FileRepairService.h"
#include "import/probe/InspectionError.h"
#include "import/probe/LibavAudioInspector.h"
#include "import/ProgressWatchdog.h"
#include "import/TrackBuilder.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QThread>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <thread>
#include <variant>

namespace folivox {

namespace {

using Reason = TrackLoadOutcome::FailureReason;

// What one file came to. Exactly one per input file.
struct SlotOutcome {
    enum class Kind { loaded, repaired, failed, skipped };
    Kind kind = Kind::skipped;
    Track track;
    QUrl url;          // the input
    QUrl originalURL;  // repaired: the damaged source
    Reason reason = Reason::other;
    bool encrypted = false; // loaded: the sample entry is a protected one
};

// The state one load shares with its workers. Workers hold it by shared
// pointer: a worker stuck in the kernel on an unreachable file may outlive
// the load that gave up on it.
struct LoadState {
    std::mutex mutex;
    std::condition_variable changed;
    QList<QString> paths;
    std::vector<std::optional<SlotOutcome>> slots;
    std::vector<std::shared_ptr<ProgressWatchdog>> watchdogs;  // of files in work
    int nextIndex = 0;
    int decided = 0;
    std::atomic<bool> cancelled{false};
};

// Cancelled when the load is, or when the file's watchdog has given up.
class FileToken final : public CancellationToken {
public:
    FileToken(const LoadState& state, const ProgressWatchdog& watchdog) : state_(state), watchdog_(watchdog) {}
    bool isCancelled() const override { return state_.cancelled.load() || watchdog_.hasStalled(); }

private:
    const LoadState& state_;
    const ProgressWatchdog& watchdog_;
};

} // namespace

struct AudioMetadataService::Context {
    std::shared_ptr<const FFmpegWrapper> ffmpeg;
    LibavAudioInspector inspector;
    FFprobeInspector ffprobe;
    FileRepairService repairService;
    Options options;

    Context(std::shared_ptr<const FFmpegWrapper> f, Options o)
        : ffmpeg(f)
        , inspector({}, std::max(10.0, static_cast<double>(o.stallInterval.count()) / 1000.0))
        , ffprobe(f)
        , repairService(f)
        , options(o)
    {
    }

    SlotOutcome loadOne(const QString& path, ProgressWatchdog& watchdog, const LoadState& state);
    void logZeroDuration(const QString& name) const
    {
        Log::write(QStringLiteral("[AudioMetadataService] ❌ Zero duration after AVFoundation + FFprobe for ") + name
                   + QStringLiteral(" — treating as corrupt"));
    }
};

SlotOutcome AudioMetadataService::Context::loadOne(const QString& path, ProgressWatchdog& watchdog,
                                                   const LoadState& state)
{
    const QFileInfo info(path);
    const QString name = info.fileName();
    SlotOutcome out;
    out.url = QUrl::fromLocalFile(path);
    auto fail = [&out](Reason reason) {
        out.kind = SlotOutcome::Kind::failed;
        out.reason = reason;
        return out;
    };
    const FileToken token(state, watchdog);
    const std::function<bool()> abort = [&token] { return token.isCancelled(); };

    // Only a regular file this user may read is opened: a pipe would hold
    // the open until something writes to it, and a permission fault is not
    // damage.
    if (info.exists() && !info.isFile()) {
        Log::write(QStringLiteral("[AudioMetadataService] ⚠️ Not a regular file: ") + name);
        return fail(Reason::notRegularFile);
    }
    if (info.exists() && !info.isReadable()) {
        Log::write(QStringLiteral("[AudioMetadataService] ⚠️ Permission denied: ") + name);
        return fail(Reason::permissionDenied);
    }

    try {
        MediaProbe probe;
        bool opened = false;
        try {
            probe = inspector.probe(path, abort);
            opened = true;
        } catch (const InspectionError& e) {
            if (state.cancelled)
                return out;  // skipped
            switch (e.kind()) {
            case InspectionError::Kind::timeout:
                return fail(Reason::timeout);
            case InspectionError::Kind::noDecoder:
            case InspectionError::Kind::emptyAudioTrack:
            case InspectionError::Kind::externalMedia:
            case InspectionError::Kind::mediaOutsideFile:
                Log::write(QStringLiteral("[AudioMetadataService] ⚠️ Failed to load ") + name + QStringLiteral(": ")
                           + e.description());
                return fail(e.kind() == InspectionError::Kind::noDecoder       ? Reason::undecodableAudio
                            : e.kind() == InspectionError::Kind::emptyAudioTrack ? Reason::zeroDuration
                            : e.kind() == InspectionError::Kind::externalMedia   ? Reason::externalMedia
                                                                                 : Reason::incompleteFile);
            case InspectionError::Kind::noStreamDescription:
                // Recognisably media, but its header can't be read: ffmpeg
                // is asked for a duration below before giving up.
                break;
            default:
                if (info.exists() && info.size() == 0) {
                    logZeroDuration(name);
                    return fail(Reason::zeroDuration);
                }
                Log::write(QStringLiteral("[AudioMetadataService] ⚠️ Failed to load ") + name
                           + QStringLiteral(": ") + e.description());
                // Not media at all, or media without an audio stream.
                return fail(Reason::noAudioFound);
            }
        }

        watchdog.tick(QStringLiteral("loading duration"));
        double duration = opened && std::isfinite(probe.duration) ? probe.duration : 0;
        if (duration <= 0) {
            watchdog.tick(QStringLiteral("ffprobe duration"));
            try {
                duration = ffprobe.inspect(path).duration;
            } catch (const std::exception& e) {
                Log::write(QStringLiteral("[AudioMetadataService] FFprobe could not read ") + name
                           + QStringLiteral(": ") + QString::fromUtf8(e.what()));
                duration = 0;
            }
            if (!(duration > 0)) {
                logZeroDuration(name);
                return fail(Reason::zeroDuration);
            }
            if (!opened) {
                // ffmpeg reads audio that the in-process reader can't open:
                // too unusual to build a track from with confidence.
                Log::write(QStringLiteral("[AudioMetadataService] ⚠️ Failed to load ") + name
                           + QStringLiteral(": ") + InspectionError::noStreamDescription(name).description());
                return fail(Reason::other);
            }
        }

        std::optional<AudioSourceFormat> format;
        try {
            format = LibavAudioInspector::formatFromProbe(probe);
        } catch (const InspectionError& e) {
            Log::write(QStringLiteral("[AudioMetadataService] Format of ") + name
                       + QStringLiteral(" not cached: ") + e.description());
        }

        // ffmpeg has no decoder for xHE-AAC (USAC): its complaints about
        // such a stream say nothing about damage.
        const bool decodable = !(format && format->codec == u"xhe-aac");
        if (decodable && AudioStreamProbe::appliesTo(path)) {
            watchdog.tick(QStringLiteral("stream probe"));
            const AudioStreamProbe::Result r = AudioStreamProbe::probe(path, token);
            if (state.cancelled)
                return out;
            // The probe was stopped by this file's watchdog: its answer says
            // nothing about the stream.
            if (watchdog.hasStalled())
                return fail(Reason::timeout);
            if (r.corrupt) {
                if (!options.repairDamagedFiles)
                    return fail(Reason::brokenAudioStream);
                watchdog.tick(QStringLiteral("repairing"));
                const auto repaired = repairService.repair(
                    path, format ? format->bitrate : std::nullopt, token, duration,
                    [&watchdog](double) { watchdog.tick(QStringLiteral("repairing")); });
                if (!repaired)
                    return fail(Reason::brokenAudioStream);
                watchdog.tick(QStringLiteral("opening repaired copy"));
                MediaProbe fixed = inspector.probe(*repaired, abort);
                std::optional<AudioSourceFormat> fixedFormat;
                try {
                    fixedFormat = LibavAudioInspector::formatFromProbe(fixed);
                } catch (const InspectionError&) {
                }
                if (state.cancelled)
                    return out;
                out.kind = SlotOutcome::Kind::repaired;
                out.track = TrackBuilder::build(fixed, fixed.duration > 0 ? fixed.duration : duration, fixedFormat);
                out.originalURL = out.url;
                return out;
            }
        }

        // Cancellation is checked before the track is built.
        if (state.cancelled)
            return out;
        watchdog.tick(QStringLiteral("reading tags"));
        // An AAC answer from an MP4 file is not trusted without ffmpeg's view;
        // rather than run ffmpeg for every such file here, the format is left
        // uncached so that the export decision asks for it when it matters.
        if (format && LibavAudioInspector::distrusts(path, format->codec))
            format.reset();
        out.track = TrackBuilder::build(probe, duration, format);
        out.kind = SlotOutcome::Kind::loaded;
        out.encrypted = probe.encrypted;
        watchdog.tick(QStringLiteral("building track"));
        return out;
    } catch (const std::exception& e) {
        if (state.cancelled)
            return out;
        Log::write(QStringLiteral("[AudioMetadataService] ⚠️ Failed to load ") + name + QStringLiteral(": ")
                   + QString::fromUtf8(e.what()));
        return fail(Reason::other);
    }
}

AudioMetadataService::AudioMetadataService()
    : AudioMetadataService(std::make_shared<FFmpegWrapper>())
{
}

AudioMetadataService::AudioMetadataService(std::shared_ptr<const FFmpegWrapper> ffmpeg)
    : AudioMetadataService(std::move(ffmpeg), Options{})
{
}

AudioMetadataService::AudioMetadataService(std::shared_ptr<const FFmpegWrapper> ffmpeg, Options options)
    : context_(std::make_shared<Context>(std::move(ffmpeg), options))
    , options_(options)
{
}

AudioMetadataService::~AudioMetadataService() = default;

int AudioMetadataService::workerCount(int fileCount, int cores)
{
    return std::max(0, std::min({12, fileCount, std::max(4, cores - 2)}));
}

TrackLoadOutcome AudioMetadataService::load(const QList<QUrl>& urls, const CancellationToken& token,
                                            const ProgressHandler& progress)
{
    std::lock_guard serial(loadMutex_);
    auto state = std::make_shared<LoadState>();
    for (const QUrl& url : urls)
        if (url.isLocalFile())
            state->paths.append(url.toLocalFile());
    const int total = static_cast<int>(state->paths.size());
    TrackLoadOutcome outcome;
    if (total == 0)
        return outcome;
    state->slots.resize(static_cast<std::size_t>(total));
    state->watchdogs.resize(static_cast<std::size_t>(total));

    state->cancelled = token.isCancelled();
    auto context = context_;
    // Takes files in order until none are left. Returns when it is done.
    auto work = [state, context](std::shared_ptr<std::atomic<bool>> finished) {
        for (;;) {
            int index = 0;
            std::shared_ptr<ProgressWatchdog> watchdog;
            {
                std::lock_guard lock(state->mutex);
                if (state->nextIndex >= static_cast<int>(state->paths.size()))
                    break;
                index = state->nextIndex++;
                if (state->cancelled) {
                    state->slots[static_cast<std::size_t>(index)] = SlotOutcome{};
                    ++state->decided;
                    state->changed.notify_all();
                    continue;
                }
                watchdog = std::make_shared<ProgressWatchdog>(context->options.stallInterval);
                state->watchdogs[static_cast<std::size_t>(index)] = watchdog;
            }
            SlotOutcome result = context->loadOne(state->paths[index], *watchdog, *state);
            const auto checked = watchdog->check();
            if (!checked && watchdog->longestInterval() * 2 > context->options.stallInterval)
                Log::write(QStringLiteral("[AudioMetadataService] Slow file ") + QFileInfo(state->paths[index]).fileName()
                           + QStringLiteral(": longest step ") + QString::number(watchdog->longestInterval().count())
                           + QStringLiteral(" ms over ") + QString::number(watchdog->ticks()) + QStringLiteral(" steps"));
            {
                std::lock_guard lock(state->mutex);
                state->watchdogs[static_cast<std::size_t>(index)].reset();
                auto& slot = state->slots[static_cast<std::size_t>(index)];
                if (!slot) {
                    if (checked && result.kind != SlotOutcome::Kind::loaded
                        && result.kind != SlotOutcome::Kind::repaired && !state->cancelled) {
                        // The file stopped on its own watchdog before the
                        // load saw the stall.
                        result.kind = SlotOutcome::Kind::failed;
                        result.reason = Reason::timeout;
                    }
                    if (result.kind == SlotOutcome::Kind::failed && result.reason == Reason::timeout && checked)
                        Log::write(QStringLiteral("[AudioMetadataService] ⏱ No progress for %1s (stage: %2) loading %3 "
                                                  "— file may be corrupted")
                                       .arg(QString::asprintf("%.0f", checked->silence.count() / 1000.0),
                                            checked->stage, QFileInfo(state->paths[index]).fileName()));
                    slot = std::move(result);
                    ++state->decided;
                }
                state->changed.notify_all();
            }
        }
        finished->store(true);
    };

    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> finished;
    };
    std::vector<Worker> workers;
    auto startWorker = [&] {
        Worker w;
        w.finished = std::make_shared<std::atomic<bool>>(false);
        w.thread = std::thread(work, w.finished);
        workers.push_back(std::move(w));
    };
    const int cores = options_.cores.value_or(QThread::idealThreadCount());
    const int count = workerCount(total, cores);
    for (int i = 0; i < count; ++i)
        startWorker();

    int reported = 0;
    {
        std::unique_lock lock(state->mutex);
        while (state->decided < total) {
            state->changed.wait_for(lock, std::chrono::milliseconds(100));
            if (!state->cancelled && token.isCancelled())
                state->cancelled = true;
            for (int i = 0; i < total; ++i) {
                auto& watchdog = state->watchdogs[static_cast<std::size_t>(i)];
                auto& slot = state->slots[static_cast<std::size_t>(i)];
                if (!watchdog || slot)
                    continue;
                const auto stall = watchdog->check();
                if (!stall)
                    continue;
                // Give up on this file now; its worker stops at its next
                // check, or stays stuck without holding the rest back.
                Log::write(QStringLiteral("[AudioMetadataService] ⏱ No progress for %1s (stage: %2) loading %3 — "
                                          "file may be corrupted")
                               .arg(QString::asprintf("%.0f", stall->silence.count() / 1000.0), stall->stage,
                                    QFileInfo(state->paths[i]).fileName()));
                SlotOutcome failed;
                failed.kind = SlotOutcome::Kind::failed;
                failed.reason = Reason::timeout;
                failed.url = QUrl::fromLocalFile(state->paths[i]);
                slot = std::move(failed);
                ++state->decided;
                if (state->nextIndex < total)
                    startWorker();
            }
            if (progress && state->decided != reported) {
                reported = state->decided;
                lock.unlock();
                progress(reported, total);
                lock.lock();
            }
        }
    }
    // A worker whose file was given up on normally stops within a poll of
    // its token (and ends its ffmpeg child); one stuck in the kernel on an
    // unreachable file is left behind rather than holding the import.
    const auto graceEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    for (auto& w : workers) {
        while (!w.finished->load() && std::chrono::steady_clock::now() < graceEnd)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (w.finished->load())
            w.thread.join();
        else
            w.thread.detach();
    }

    for (const auto& slot : state->slots) {
        if (!slot)
            continue;
        switch (slot->kind) {
        case SlotOutcome::Kind::loaded:
            outcome.tracks.push_back(slot->track);
            if (slot->encrypted)
                outcome.protectedURLs.append(slot->track.url);
            break;
        case SlotOutcome::Kind::repaired:
            outcome.tracks.push_back(slot->track);
            outcome.repairedOriginalURLs.append(slot->originalURL);
            break;
        case SlotOutcome::Kind::failed:
            outcome.unreadableFiles.push_back({slot->url, slot->reason});
            break;
        case SlotOutcome::Kind::skipped:
            break;
        }
    }
    return outcome;
}

} // namespace folivox
