#include "app/damage/TrackIntegrity.h"

#include "app/book/OpenBook.h"
#include "container/mp3/MP3IntegrityService.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "import/repair/FileRepairService.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QDir>
#include <QFileInfo>

namespace folivox {

namespace {
bool isMp3(const Track& t)
{
    return t.url.toLocalFile().endsWith(QStringLiteral(".mp3"), Qt::CaseInsensitive);
}
} // namespace

TrackIntegrity::TrackIntegrity(OpenBook& book, QObject* parent)
    : QObject(parent)
    , book_(book)
    , service_(std::make_unique<MP3IntegrityService>())
{
    connect(service_.get(), &MP3IntegrityService::reportPublished, this, &TrackIntegrity::changed);
    connect(service_.get(), &MP3IntegrityService::roundFinished, this, [this] {
        roundFinished_ = true;
        Q_EMIT changed();
    });
    connect(&book_, &OpenBook::tracksChanged, this, &TrackIntegrity::rescan);
    rescan();
}

TrackIntegrity::~TrackIntegrity()
{
    if (repairToken_)
        repairToken_->cancel();
    if (repairThread_.joinable())
        repairThread_.join();
    service_->cancelRound();
}

void TrackIntegrity::rescan()
{
    // An unchanged file's report comes from the service's cache at once.
    roundFinished_ = false;
    if (book_.tracks().empty())
        service_->cancelRound();
    else
        service_->scanTracks(book_.tracks());
    Q_EMIT changed();
}

QString TrackIntegrity::statusText(Status status)
{
    switch (status) {
    case Status::notMp3: return QString();
    case Status::checking: return L10n::text("app.damage.checking", "Checking…");
    case Status::clean: return L10n::text("app.damage.clean", "Sound");
    case Status::damaged: return L10n::text("app.damage.damaged", "Damaged");
    case Status::unknown: return L10n::text("app.damage.unknown", "Not judged");
    }
    return {};
}

TrackIntegrity::Status TrackIntegrity::status(const Track& track) const
{
    if (!isMp3(track))
        return Status::notMp3;
    const auto r = service_->report(track.id);
    if (!r)
        return roundFinished_ ? Status::unknown : Status::checking;
    switch (r->verdict) {
    case MP3IntegrityVerdict::clean: return Status::clean;
    case MP3IntegrityVerdict::damaged: return Status::damaged;
    case MP3IntegrityVerdict::unknown: return Status::unknown;
    }
    return Status::unknown;
}

std::optional<MP3IntegrityReport> TrackIntegrity::report(const QUuid& trackId) const
{
    return service_->report(trackId);
}

std::vector<Track> TrackIntegrity::damagedTracks() const
{
    std::vector<Track> out;
    for (const Track& t : book_.tracks())
        if (status(t) == Status::damaged)
            out.push_back(t);
    return out;
}

std::vector<TrackIntegrity::Hole> TrackIntegrity::holes(const Track& track) const
{
    std::vector<Hole> out;
    const auto r = service_->report(track.id);
    if (!r)
        return out;
    // Each hole once, in the chapter whose stretch of the file holds it.
    for (const Bookmark& chapter : book_.chapters()) {
        for (const ChapterDamageHole& h : service_->holesOfChapter(chapter)) {
            if (h.url != track.url)
                continue;
            out.push_back(Hole{h.fileTime, h.missingSeconds, chapter.title, h.chapterTime});
        }
    }
    // Holes that land in no chapter (past the chapters' end) still count.
    for (const MP3IntegrityHole& h : r->holes) {
        const bool placed = std::any_of(out.begin(), out.end(), [&h](const Hole& p) { return qFuzzyCompare(p.fileTime + 1, h.startTime + 1); });
        if (!placed)
            out.push_back(Hole{h.startTime, h.missingSeconds, QString(), 0});
    }
    std::sort(out.begin(), out.end(), [](const Hole& a, const Hole& b) { return a.fileTime < b.fileTime; });
    return out;
}

bool TrackIntegrity::repairDamaged()
{
    if (repairing_)
        return false;
    const std::vector<Track> damaged = damagedTracks();
    if (damaged.empty())
        return false;
    if (repairThread_.joinable())
        repairThread_.join();
    struct Job {
        QUuid id;
        QString source;
        QString target;
        std::optional<int> bitrate;
        double duration = 0;
    };
    std::vector<Job> jobs;
    QStringList unplaced;
    for (const Track& t : damaged) {
        const QString folder = repairFolder ? repairFolder(t) : QString();
        if (folder.isEmpty() || !QDir().mkpath(folder)) {
            unplaced << t.url.toLocalFile();
            continue;
        }
        const QString source = t.url.toLocalFile();
        const auto r = service_->report(t.id);
        jobs.push_back(Job{t.id, source, QDir(folder).filePath(QUuid::createUuid().toString(QUuid::Id128).left(8) + u'-' + QFileInfo(source).fileName()),
                           r && r->bitrateKbps ? std::optional<int>(*r->bitrateKbps * 1000) : std::nullopt,
                           r ? r->trueDuration : t.duration});
    }
    repairing_ = true;
    repairToken_ = std::make_shared<ManualCancellationToken>();
    Q_EMIT changed();
    auto token = repairToken_;
    repairThread_ = std::thread([this, jobs, token, unplaced] {
        FileRepairService repairer(std::make_shared<FFmpegWrapper>());
        QMap<QUuid, QUrl> copies;
        QStringList failures = unplaced;
        for (const Job& job : jobs) {
            if (token->isCancelled())
                break;
            const auto made = repairer.repairTo(job.source, job.target, *token, job.bitrate, job.duration);
            if (made)
                copies.insert(job.id, QUrl::fromLocalFile(made->path));
            else if (!token->isCancelled())
                failures << job.source;
        }
        if (token->isCancelled()) {
            // Nothing half-done is left behind.
            for (const QUrl& copy : copies)
                QFile::remove(copy.toLocalFile());
            return;
        }
        QMetaObject::invokeMethod(
            this,
            [this, copies, failures] {
                if (repairThread_.joinable())
                    repairThread_.join();
                repairing_ = false;
                Log::write(QStringLiteral("[App] repaired %1 damaged file(s), %2 failed").arg(copies.size()).arg(failures.size()));
                Q_EMIT repairFinished(copies, failures);
                Q_EMIT changed();
            },
            Qt::QueuedConnection);
    });
    return true;
}

} // namespace folivox
