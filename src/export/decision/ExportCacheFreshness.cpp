#include "export/decision/ExportCacheFreshness.h"

#include "platform/Error.h"
#include "platform/Log.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <thread>

namespace folivox {

namespace {

QString fileName(const QUrl& url)
{
    return QFileInfo(url.toLocalFile()).fileName();
}

QString sizeText(const std::optional<quint64>& size)
{
    return size ? QString::number(*size) : QStringLiteral("?");
}

QString dateText(const std::optional<QDateTime>& date)
{
    return date && date->isValid() ? date->toUTC().toString(Qt::ISODateWithMs) : QStringLiteral("?");
}

struct ProbeOutcome {
    bool finished = false;
    std::optional<FormatProbe> format;
    QString error; // what the probe threw, if it threw
};

// Probes every path, at most `parallel` at a time, and waits for the answers
// no longer than `deadline`. A path whose probe has not answered by then comes
// back unfinished. Its worker is left to end on its own: everything it touches
// is held by the shared state, and what it returns late is dropped.
std::vector<ProbeOutcome> probeWithDeadline(const FormatProbeFunction& probe, const QStringList& paths,
                                            std::chrono::milliseconds deadline, int parallel)
{
    struct Shared {
        std::mutex mutex;
        std::condition_variable answered;
        FormatProbeFunction probe;
        QStringList paths;
        std::vector<ProbeOutcome> outcomes;
        qsizetype next = 0;
        qsizetype finished = 0;
        bool closed = false;
    };
    auto shared = std::make_shared<Shared>();
    shared->probe = probe;
    shared->paths = paths;
    shared->outcomes.resize(static_cast<std::size_t>(paths.size()));

    const auto until = std::chrono::steady_clock::now() + deadline;
    const int workerCount = static_cast<int>(std::clamp<qsizetype>(parallel, 1, paths.size()));
    std::vector<std::thread> workers;
    workers.reserve(static_cast<std::size_t>(workerCount));
    for (int w = 0; w < workerCount; ++w) {
        workers.emplace_back([shared] {
            for (;;) {
                qsizetype index = 0;
                QString path;
                {
                    std::lock_guard lock(shared->mutex);
                    if (shared->closed || shared->next >= shared->paths.size())
                        return;
                    index = shared->next++;
                    path = shared->paths.at(index);
                }
                ProbeOutcome outcome;
                try {
                    outcome.format = shared->probe(path);
                } catch (const Error& e) {
                    outcome.error = e.description();
                } catch (const std::exception& e) {
                    outcome.error = QString::fromLocal8Bit(e.what());
                } catch (...) {
                    outcome.error = QStringLiteral("unknown error");
                }
                outcome.finished = true;
                {
                    std::lock_guard lock(shared->mutex);
                    if (shared->closed)
                        return;
                    shared->outcomes[static_cast<std::size_t>(index)] = std::move(outcome);
                    ++shared->finished;
                }
                shared->answered.notify_all();
            }
        });
    }

    std::vector<ProbeOutcome> outcomes;
    bool allAnswered = false;
    {
        std::unique_lock lock(shared->mutex);
        allAnswered = shared->answered.wait_until(lock, until, [&] { return shared->finished == shared->paths.size(); });
        shared->closed = true;
        outcomes = shared->outcomes;
    }
    for (std::thread& worker : workers) {
        if (allAnswered)
            worker.join();
        else
            worker.detach();
    }
    return outcomes;
}

} // namespace

// ---------------------------------------------------------------- StatMemo

ExportCacheFreshness::StatMemo::FileStat ExportCacheFreshness::StatMemo::stat(const QString& path)
{
    {
        std::lock_guard lock(mutex_);
        const auto it = stats_.constFind(path);
        if (it != stats_.constEnd())
            return *it;
    }
    const QFileInfo info(path);
    FileStat stat;
    stat.exists = info.exists() && info.isFile();
    if (stat.exists) {
        stat.size = static_cast<quint64>(std::max<qint64>(0, info.size()));
        stat.modificationDate = info.lastModified();
    }
    std::lock_guard lock(mutex_);
    ++lookups_;
    stats_.insert(path, stat);
    return stat;
}

void ExportCacheFreshness::StatMemo::forget(const QString& path)
{
    std::lock_guard lock(mutex_);
    stats_.remove(path);
    failedProbes_.remove(path);
}

void ExportCacheFreshness::StatMemo::clear()
{
    std::lock_guard lock(mutex_);
    stats_.clear();
    failedProbes_.clear();
}

void ExportCacheFreshness::StatMemo::noteProbeFailure(const QString& path)
{
    std::lock_guard lock(mutex_);
    failedProbes_.insert(path);
}

bool ExportCacheFreshness::StatMemo::probeFailed(const QString& path) const
{
    std::lock_guard lock(mutex_);
    return failedProbes_.contains(path);
}

int ExportCacheFreshness::StatMemo::lookups() const
{
    std::lock_guard lock(mutex_);
    return lookups_;
}

// ---------------------------------------------------------------- Result

std::vector<Track> ExportCacheFreshness::Result::applyTo(std::vector<Track> tracks) const
{
    for (Track& track : tracks) {
        for (const auto& [url, format] : replacedFormats) {
            if (track.url == url) {
                track = track.withCachedFormat(format);
                break;
            }
        }
    }
    return tracks;
}

QString ExportCacheFreshness::Result::perfLine() const
{
    return QStringLiteral("[CachePerf] exportCacheCheck tracks=%1 stale=%2 refreshed=%3 failed=%4 ms=%5")
        .arg(checked)
        .arg(stale)
        .arg(refreshed)
        .arg(failed)
        .arg(elapsedMs, 0, 'f', 1);
}

// ---------------------------------------------------------------- the pass

ExportCacheFreshness::ExportCacheFreshness(FormatProbeFunction probe, std::shared_ptr<StatMemo> memo,
                                           std::chrono::milliseconds deadline, int parallelProbes)
    : probe_(std::move(probe))
    , memo_(memo ? std::move(memo) : std::make_shared<StatMemo>())
    , deadline_(deadline)
    , parallelProbes_(std::max(1, parallelProbes))
{
}

bool ExportCacheFreshness::isStale(const Track& track, const StatMemo::FileStat& stat)
{
    if (!stat.exists)
        return true;
    if (!track.cachedFileSize && !track.cachedFileModificationDate)
        return true;
    if (track.cachedFileSize && *track.cachedFileSize != stat.size)
        return true;
    if (track.cachedFileModificationDate) {
        if (!track.cachedFileModificationDate->isValid() || !stat.modificationDate.isValid())
            return true;
        if (track.cachedFileModificationDate->toMSecsSinceEpoch() != stat.modificationDate.toMSecsSinceEpoch())
            return true;
    }
    return false;
}

ExportCacheFreshness::Result ExportCacheFreshness::run(const std::vector<Bookmark>& bookmarks) const
{
    QElapsedTimer timer;
    timer.start();

    Result result;
    result.bookmarks = bookmarks;

    struct StaleFile {
        const Track* track;
        StatMemo::FileStat stat;
    };
    std::vector<StaleFile> staleFiles;
    QSet<QUrl> seen;
    for (const Bookmark& bookmark : bookmarks) {
        for (const Track& track : bookmark.tracks) {
            if (!track.hasCachedFormat() || seen.contains(track.url))
                continue;
            seen.insert(track.url);
            ++result.checked;
            const StatMemo::FileStat stat = memo_->stat(track.url.toLocalFile());
            if (!isStale(track, stat))
                continue;
            ++result.stale;
            if (!stat.exists) {
                Log::write(QStringLiteral("[CacheFresh] %1 is missing").arg(fileName(track.url)));
            } else {
                Log::write(QStringLiteral("[CacheFresh] %1 changed on disk (size %2 → %3, modified %4 → %5) — "
                                          "re-probing")
                               .arg(fileName(track.url), sizeText(track.cachedFileSize), QString::number(stat.size),
                                    dateText(track.cachedFileModificationDate), dateText(stat.modificationDate)));
            }
            staleFiles.push_back(StaleFile{&track, stat});
        }
    }

    // Missing files are not worth a probe; the others are probed together.
    QStringList probePaths;
    std::vector<std::size_t> probeIndex(staleFiles.size(), SIZE_MAX);
    for (std::size_t i = 0; i < staleFiles.size(); ++i) {
        if (staleFiles[i].stat.exists && probe_) {
            probeIndex[i] = static_cast<std::size_t>(probePaths.size());
            probePaths << staleFiles[i].track->url.toLocalFile();
        }
    }
    std::vector<ProbeOutcome> outcomes;
    if (!probePaths.isEmpty())
        outcomes = probeWithDeadline(probe_, probePaths, deadline_, parallelProbes_);

    for (std::size_t i = 0; i < staleFiles.size(); ++i) {
        const Track& track = *staleFiles[i].track;
        const StatMemo::FileStat& stat = staleFiles[i].stat;
        const QString name = fileName(track.url);
        const ProbeOutcome outcome = probeIndex[i] == SIZE_MAX ? ProbeOutcome{} : outcomes[probeIndex[i]];

        if (outcome.finished && outcome.format) {
            const FormatProbe& format = *outcome.format;
            ++result.refreshed;
            result.replacedFormats.emplace_back(
                track.url, format.toCachedFormat(stat.size, stat.modificationDate));
            Log::write(QStringLiteral("[CacheFresh] %1 re-probed: codec=%2 sampleRate=%3 channels=%4 bitrate=%5")
                           .arg(name, format.codec)
                           .arg(format.sampleRate)
                           .arg(format.channels)
                           .arg(format.bitrate ? QString::number(*format.bitrate) : QStringLiteral("?")));
            if (format.duration > 0 && track.duration > 0 && std::abs(format.duration - track.duration) > 1.0) {
                Log::write(QStringLiteral("[CacheFresh] %1 now lasts %2 s (the book has %3 s)")
                               .arg(name)
                               .arg(format.duration, 0, 'f', 3)
                               .arg(track.duration, 0, 'f', 3));
            }
            continue;
        }

        if (probeIndex[i] != SIZE_MAX) {
            if (!outcome.finished)
                Log::write(QStringLiteral("[CacheFresh] re-probe of %1 did not answer within %2 ms")
                               .arg(name)
                               .arg(deadline_.count()));
            else if (!outcome.error.isEmpty())
                Log::write(QStringLiteral("[CacheFresh] re-probe of %1 threw: %2").arg(name, outcome.error));
        }
        ++result.failed;
        memo_->noteProbeFailure(track.url.toLocalFile());
        result.replacedFormats.emplace_back(track.url, Track::CachedFormat{});
        Log::write(QStringLiteral("[CacheFresh] re-probe failed for %1 — cache stripped").arg(name));
    }

    if (!result.replacedFormats.empty()) {
        for (Bookmark& bookmark : result.bookmarks) {
            for (Track& track : bookmark.tracks) {
                for (const auto& [url, format] : result.replacedFormats) {
                    if (track.url == url) {
                        track = track.withCachedFormat(format);
                        break;
                    }
                }
            }
        }
    }

    result.elapsedMs = static_cast<double>(timer.nsecsElapsed()) / 1.0e6;
    Log::write(result.perfLine());
    return result;
}

} // namespace folivox
