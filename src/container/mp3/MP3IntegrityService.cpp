#include "container/mp3/MP3IntegrityService.h"

#include "container/mp3/MP3ChapterDamageMap.h"
#include "container/mp3/MP3FrameScanner.h"
#include "container/mp3/MP3IntegrityError.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QMetaObject>
#include <QUrl>

#include <algorithm>

#include <future>

namespace folivox {

namespace {

QString verdictText(const MP3IntegrityReport& r)
{
    return enumName(r.verdict);
}

} // namespace

MP3IntegrityService::MP3IntegrityService(QObject* parent) : QObject(parent)
{
    worker_ = std::thread([this] { workerLoop(); });
}

MP3IntegrityService::~MP3IntegrityService()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        currentToken_ = QUuid();
        jobs_.clear();
    }
    jobsChanged_.notify_all();
    worker_.join();
}

std::optional<MP3IntegrityReport> MP3IntegrityService::scanFile(const QString& path,
                                                                const std::function<bool()>& cancelled,
                                                                MP3FileBytes::Placement placement)
{
    const MP3FileBytes bytes(path, cancelled, placement);
    if (bytes.cancelled())
        return std::nullopt;
    MP3IntegrityReport report;
    report.url = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
    report.fileSize = bytes.fileSize();
    if (bytes.access() == MP3FileBytes::Access::tooLarge) {
        Log::write(QStringLiteral("[MP3Integrity] %1 is on a network volume and larger than %2 bytes — not scanned")
                       .arg(QFileInfo(path).fileName())
                       .arg(MP3FileBytes::kMaxReadBytes));
        report.verdict = MP3IntegrityVerdict::unknown;
        return report;
    }
    const auto scan = MP3FrameScanner::scan(bytes.data(), bytes.size(), cancelled);
    if (!scan)
        return std::nullopt;
    report.validFrameCount = scan->validFrameCount;
    report.trueDuration = scan->trueDuration;
    report.holes = scan->holes;
    report.trailingBytes = scan->trailingBytes;
    if (scan->locked) {
        report.sampleRate = scan->sampleRate;
        report.bitrateKbps = scan->bitrateKbps;
        report.channelMode = scan->channelMode;
    }
    if (scan->infoFrame && scan->infoFrame->frames && scan->sampleRate > 0) {
        report.claimedDuration = double(*scan->infoFrame->frames) * scan->samplesPerFrame / scan->sampleRate;
        report.claimedBy = scan->infoFrame->kind == MP3InfoFrame::Kind::vbri ? QStringLiteral("VBRI header")
                                                                              : QStringLiteral("Xing header");
    } else if (scan->taggedLength) {
        report.claimedDuration = scan->taggedLength;
        report.claimedBy = QStringLiteral("TLEN tag");
    }
    if (scan->locked && scan->sampleRate > 0 && scan->infoFrame && scan->infoFrame->encoderDelay) {
        const MP3InfoFrame& info = *scan->infoFrame;
        const bool complete = info.frames && scan->validFrameCount >= std::int64_t(*info.frames);
        std::int64_t samples = scan->validFrameCount * scan->samplesPerFrame - *info.encoderDelay - MP3InfoFrame::kDecoderDelay;
        if (complete)
            samples -= std::max(0, info.encoderPadding.value_or(0) - MP3InfoFrame::kDecoderDelay);
        report.playedDuration = double(std::max<std::int64_t>(0, samples)) / scan->sampleRate;
    }
    report.verdict = MP3IntegrityReport::judge(scan->locked, scan->holes, scan->trueDuration);
    return report;
}

void MP3IntegrityService::post(Job job)
{
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    jobsChanged_.notify_one();
}

void MP3IntegrityService::workerLoop()
{
    while (true) {
        Job job;
        {
            std::unique_lock lock(mutex_);
            jobsChanged_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
            if (stopping_)
                return;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
    }
}

std::optional<MP3IntegrityReport> MP3IntegrityService::cachedReport(const QString& path) const
{
    const auto stamp = MP3IntegrityFileStamp::of(path);
    if (!stamp)
        return std::nullopt;
    std::lock_guard lock(mutex_);
    const auto it = entries_.constFind(QFileInfo(path).absoluteFilePath());
    if (it == entries_.constEnd() || !(it->stamp == *stamp))
        return std::nullopt;
    return it->report;
}

std::optional<MP3IntegrityReport> MP3IntegrityService::scanOnWorker(const QString& path,
                                                                    const std::function<bool()>& cancelled)
{
    if (auto cached = cachedReport(path))
        return cached;
    const auto before = MP3IntegrityFileStamp::of(path);
    auto report = scanFile(path, [this, &cancelled] {
        {
            std::lock_guard lock(mutex_);
            if (stopping_)
                return true;
        }
        return cancelled && cancelled();
    });
    if (!report)
        return std::nullopt;
    Log::write(QStringLiteral("[MP3Integrity] %1: %2, %3 holes, %4 s missing")
                   .arg(QFileInfo(path).fileName(), verdictText(*report))
                   .arg(report->holes.size())
                   .arg(report->missingSeconds(), 0, 'f', 3));
    // Cache only what was scanned from a file that stood still meanwhile.
    if (before && MP3IntegrityFileStamp::of(path) == before) {
        std::lock_guard lock(mutex_);
        entries_.insert(QFileInfo(path).absoluteFilePath(), Entry{*report, *before});
    }
    return report;
}

std::optional<MP3IntegrityReport> MP3IntegrityService::reportFor(const QString& path,
                                                                 const std::function<bool()>& cancelled)
{
    if (auto cached = cachedReport(path))
        return cached;
    auto promise = std::make_shared<std::promise<std::optional<MP3IntegrityReport>>>();
    auto future = promise->get_future();
    post([this, path, cancelled, promise] {
        try {
            promise->set_value(scanOnWorker(path, cancelled));
        } catch (...) {
            promise->set_exception(std::current_exception());
        }
    });
    return future.get();
}

std::optional<std::vector<MP3IntegrityReport>> MP3IntegrityService::scanFiles(const QStringList& paths,
                                                                               const std::function<bool()>& cancelled)
{
    std::vector<MP3IntegrityReport> reports;
    reports.reserve(std::size_t(paths.size()));
    for (const QString& path : paths) {
        std::optional<MP3IntegrityReport> report;
        try {
            report = reportFor(path, cancelled);
            if (!report)
                return std::nullopt;
        } catch (const MP3IntegrityError& e) {
            Log::write(QStringLiteral("[MP3Integrity] ") + e.description());
            report = MP3IntegrityReport{};
            report->url = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
        }
        reports.push_back(std::move(*report));
    }
    return reports;
}

QUuid MP3IntegrityService::scanTracks(const std::vector<Track>& tracks)
{
    const QUuid token = QUuid::createUuid();
    {
        std::lock_guard lock(mutex_);
        currentToken_ = token;
    }
    reports_.clear();
    damagedReportsByFile_.clear();
    std::vector<std::pair<QUuid, QString>> files;
    for (const Track& t : tracks) {
        const QString path = t.url.toLocalFile();
        if (path.endsWith(QStringLiteral(".mp3"), Qt::CaseInsensitive))
            files.emplace_back(t.id, path);
    }
    post([this, token, files] {
        const auto stale = [this, token] { return currentToken() != token; };
        for (const auto& [trackId, path] : files) {
            if (stale())
                return;
            try {
                const auto report = scanOnWorker(path, stale);
                if (!report)
                    return;
                QMetaObject::invokeMethod(
                    this, [this, token, id = trackId, p = path, r = *report] { publish(token, id, p, r); },
                    Qt::QueuedConnection);
            } catch (const MP3IntegrityError& e) {
                Log::write(QStringLiteral("[MP3Integrity] ") + e.description());
            }
        }
        QMetaObject::invokeMethod(
            this,
            [this, token] {
                if (currentToken() == token)
                    Q_EMIT roundFinished(token);
            },
            Qt::QueuedConnection);
    });
    return token;
}

void MP3IntegrityService::cancelRound()
{
    {
        std::lock_guard lock(mutex_);
        currentToken_ = QUuid();
    }
    reports_.clear();
    damagedReportsByFile_.clear();
}

QUuid MP3IntegrityService::currentToken() const
{
    std::lock_guard lock(mutex_);
    return currentToken_;
}

void MP3IntegrityService::publish(const QUuid& token, const QUuid& trackId, const QString& path,
                                  const MP3IntegrityReport& report)
{
    if (token != currentToken())
        return; // a late report of a round that was replaced
    reports_[trackId] = report;
    if (report.verdict == MP3IntegrityVerdict::damaged)
        damagedReportsByFile_[QFileInfo(path).absoluteFilePath()] = report;
    Q_EMIT reportPublished(trackId);
}

std::optional<MP3IntegrityReport> MP3IntegrityService::report(const QUuid& trackId) const
{
    const auto it = reports_.find(trackId);
    if (it == reports_.end())
        return std::nullopt;
    return it->second;
}

std::vector<ChapterDamageHole> MP3IntegrityService::holesOfChapter(const Bookmark& chapter) const
{
    return MP3ChapterDamageMap::holesOfChapter(
        chapter, [this](const QUrl& url) { return cachedReport(url.toLocalFile()); });
}

} // namespace folivox
