#include "queue/run/QueueService.h"

#include "core/json/JsonReader.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "queue/records/QueueError.h"
#include "queue/records/QueueRunError.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace folivox {

namespace {

QString idText(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

QString boolText(bool b)
{
    return b ? QStringLiteral("true") : QStringLiteral("false");
}

// Makes every missing folder from `root` down to `folder`; gives the errno
// of the first mkdir that fails, 0 when all are there.
int makeFolders(const QString& root, const QString& folder)
{
    const QString relative = QDir(root).relativeFilePath(folder);
    QString at = root;
    for (const QString& part : relative.split(u'/', Qt::SkipEmptyParts)) {
        if (part == u".")
            continue;
        at = QDir(at).filePath(part);
        if (QFileInfo(at).isDir())
            continue;
        if (::mkdir(QFile::encodeName(at).constData(), 0755) != 0 && errno != EEXIST)
            return errno;
    }
    return 0;
}

QString readBuildLog(const QString& path)
{
    if (path.isEmpty())
        return {};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

} // namespace

QueueService::QueueService(std::shared_ptr<QueueStore> store, std::shared_ptr<QueueJobBuilder> builder,
                           std::shared_ptr<QueueBookSource> bookSource, Config config)
    : store_(std::move(store))
    , builder_(std::move(builder))
    , bookSource_(std::move(bookSource))
    , config_(config)
{
    QueueStore::Loaded loaded = store_->load();
    store_->clearStaging();
    loadWarning_ = loaded.warning;
    jobs_ = std::move(loaded.jobs);
    halt_ = store_->loadHalt();
}

QueueService::QueueService(std::shared_ptr<QueueStore> store, std::shared_ptr<QueueJobBuilder> builder,
                           std::shared_ptr<QueueBookSource> bookSource)
    : QueueService(std::move(store), std::move(builder), std::move(bookSource), Config())
{
}

QueueService::~QueueService()
{
    {
        std::lock_guard lock(mutex_);
        shuttingDown_ = true;
        stopRequested_ = true;
        if (currentToken_)
            currentToken_->cancel();
    }
    wake_.notify_all();
    if (runThread_.joinable())
        runThread_.join();
}

int QueueService::subscribe(Subscriber subscriber)
{
    std::lock_guard lock(subscribersMutex_);
    const int id = nextSubscriber_++;
    subscribers_.emplace(id, std::move(subscriber));
    return id;
}

void QueueService::unsubscribe(int id)
{
    std::lock_guard lock(subscribersMutex_);
    subscribers_.erase(id);
}

void QueueService::emitLocked(std::unique_lock<std::mutex>& lock, const std::vector<QueueServiceEvent>& events)
{
    std::lock_guard order(emitMutex_);
    lock.unlock();
    std::map<int, Subscriber> subscribers;
    {
        std::lock_guard guard(subscribersMutex_);
        subscribers = subscribers_;
    }
    for (const QueueServiceEvent& event : events)
        for (auto& [id, subscriber] : subscribers)
            subscriber(event);
}

void QueueService::saveLocked(const std::optional<QSet<QUuid>>& changed)
{
    try {
        if (changed)
            store_->save(jobs_, *changed);
        else
            store_->save(jobs_);
        saveError_.reset();
    } catch (const Error& e) {
        // The queue goes on in memory; the next change tries again.
        saveError_ = e.description();
        Log::write(QStringLiteral("[Queue] save failed: ") + e.description());
    }
}

void QueueService::setHaltLocked(const QueueHalt& halt)
{
    halt_ = halt;
    try {
        store_->saveHalt(halt);
    } catch (const Error& e) {
        Log::write(QStringLiteral("[Queue] could not save the halt: ") + e.description());
    }
}

std::vector<QueueJob>::iterator QueueService::find(const QUuid& id)
{
    return std::find_if(jobs_.begin(), jobs_.end(), [&id](const QueueJob& j) { return j.id == id; });
}

std::vector<QueueJob>::const_iterator QueueService::find(const QUuid& id) const
{
    return std::find_if(jobs_.begin(), jobs_.end(), [&id](const QueueJob& j) { return j.id == id; });
}

QueueService::StartResult QueueService::start()
{
    std::unique_lock lock(mutex_);
    if (isProcessing_)
        return StartResult::alreadyProcessing;
    if (halt_) {
        Log::write(QStringLiteral("[Queue] start refused: queue is halted — ") + halt_->message);
        return StartResult::halted;
    }
    if (std::none_of(jobs_.begin(), jobs_.end(), [](const QueueJob& j) { return j.status == QueueJobStatus::pending; }))
        return StartResult::nothingToRun;
    if (runThread_.joinable()) {
        // The previous loop has ended (isProcessing_ is false); collect it.
        lock.unlock();
        runThread_.join();
        lock.lock();
        if (isProcessing_)
            return StartResult::alreadyProcessing;
    }
    isProcessing_ = true;
    stopRequested_ = false;
    runThread_ = std::thread([this] { runLoop(); });
    return StartResult::started;
}

void QueueService::stopAfterCurrent()
{
    std::lock_guard lock(mutex_);
    if (!isProcessing_)
        return;
    stopRequested_ = true;
    Log::write(QStringLiteral("[Queue] stop requested: the run ends after the current job"));
    wake_.notify_all();
}

QueueService::CancelResult QueueService::cancel(const QUuid& id)
{
    std::unique_lock lock(mutex_);
    const auto it = find(id);
    if (it == jobs_.end())
        throw QueueError::jobNotFound(idText(id));
    if (it->status == QueueJobStatus::running) {
        cancelRequestedJobIDs_.insert(id);
        if (currentJobID_ == id && currentToken_)
            currentToken_->cancel();
        Log::write(QStringLiteral("[Queue] cancel requested for the running job ") + idText(id));
        wake_.notify_all();
        return CancelResult::cancelling;
    }
    if (it->status != QueueJobStatus::pending && it->status != QueueJobStatus::interrupted)
        throw QueueError::notAllowed(QStringLiteral("the job %1 is %2 and cannot be cancelled")
                                         .arg(idText(id), QueueJobStatusLabel::text(it->status).toLower()));
    it->status = QueueJobStatus::cancelled;
    Log::write(QStringLiteral("[Queue] job %1 cancelled before it ran").arg(idText(id)));
    saveLocked(QSet<QUuid>{id});
    emitLocked(lock, {QueueServiceEvent::stateChanged(jobs_)});
    return CancelResult::cancelled;
}

int QueueService::resume()
{
    std::unique_lock lock(mutex_);
    int count = 0;
    for (QueueJob& job : jobs_) {
        if (job.status == QueueJobStatus::interrupted) {
            job.status = QueueJobStatus::pending;
            ++count;
        }
    }
    if (count == 0) {
        Log::write(QStringLiteral("[Queue] Resume pressed with no interrupted jobs — nothing to do"));
        return 0;
    }
    Log::write(QStringLiteral("[Queue] Resume: %1 job(s) back to pending, starting").arg(count));
    saveLocked();
    emitLocked(lock, {QueueServiceEvent::stateChanged(jobs_)});
    start();
    return count;
}

void QueueService::retry(const QUuid& id)
{
    std::unique_lock lock(mutex_);
    const auto it = find(id);
    if (it == jobs_.end())
        throw QueueError::jobNotFound(idText(id));
    if (it->status == QueueJobStatus::pending || it->status == QueueJobStatus::running
        || it->status == QueueJobStatus::completed)
        throw QueueError::notAllowed(QStringLiteral("the job %1 is %2: only a failed, cancelled, interrupted or skipped job "
                                                    "can be retried")
                                         .arg(idText(id), QueueJobStatusLabel::text(it->status).toLower()));
    it->status = QueueJobStatus::pending;
    autoRetries_.remove(id);
    const bool wasHalted = halt_.has_value();
    halt_.reset();
    store_->saveHalt(std::nullopt);
    Log::write(QStringLiteral("[Queue] Retry: job %1 back to pending%2").arg(idText(id), wasHalted ? QStringLiteral(", halt cleared") : QString()));
    saveLocked(QSet<QUuid>{id});
    emitLocked(lock, {QueueServiceEvent::stateChanged(jobs_)});
}

void QueueService::remove(const QUuid& id)
{
    std::unique_lock lock(mutex_);
    const auto it = find(id);
    if (it == jobs_.end())
        throw QueueError::jobNotFound(idText(id));
    if (it->status == QueueJobStatus::running && currentJobID_ == id) {
        cancelRequestedJobIDs_.insert(id);
        if (currentToken_)
            currentToken_->cancel();
    }
    jobs_.erase(it);
    autoRetries_.remove(id);
    Log::write(QStringLiteral("[Queue] job %1 removed").arg(idText(id)));
    saveLocked(QSet<QUuid>{});
    if (currentJobID_ != id)
        store_->removeJobFolder(id);
    emitLocked(lock, {QueueServiceEvent::stateChanged(jobs_)});
}

void QueueService::enqueue(QueueJob job)
{
    std::unique_lock lock(mutex_);
    const QString planned = job.plannedOutputPath();
    for (const QueueJob& other : jobs_) {
        if (other.status == QueueJobStatus::completed || other.status == QueueJobStatus::cancelled
            || other.status == QueueJobStatus::skipped)
            continue;
        if (other.plannedOutputPath() == planned)
            throw QueueError::outputTaken(planned, idText(other.id).left(8));
    }
    Log::write(QStringLiteral("[Queue] enqueued job %1 \"%2\" → %3").arg(idText(job.id), job.displayTitle, planned));
    const QUuid added = job.id;
    jobs_.push_back(std::move(job));
    saveLocked(QSet<QUuid>{added});
    emitLocked(lock, {QueueServiceEvent::stateChanged(jobs_)});
}

QUuid QueueService::resolve(const QString& idText) const
{
    const QString wanted = QString(idText).remove(u'{').remove(u'}').trimmed().toUpper();
    std::lock_guard lock(mutex_);
    QList<QUuid> matches;
    for (const QueueJob& job : jobs_)
        if (!wanted.isEmpty() && folivox::idText(job.id).startsWith(wanted))
            matches << job.id;
    if (matches.isEmpty())
        throw QueueError::jobNotFound(idText);
    if (matches.size() > 1) {
        QStringList names;
        for (const QUuid& id : matches)
            names << folivox::idText(id).left(8);
        throw QueueError::ambiguousJob(idText, names.join(QStringLiteral(", ")));
    }
    return matches.front();
}

std::vector<QueueJob> QueueService::jobs() const
{
    std::lock_guard lock(mutex_);
    return jobs_;
}

std::optional<QueueJob> QueueService::job(const QUuid& id) const
{
    std::lock_guard lock(mutex_);
    const auto it = find(id);
    if (it == jobs_.end())
        return std::nullopt;
    return *it;
}

bool QueueService::isProcessing() const
{
    std::lock_guard lock(mutex_);
    return isProcessing_;
}

std::optional<QueueHalt> QueueService::halt() const
{
    std::lock_guard lock(mutex_);
    return halt_;
}

std::optional<QUuid> QueueService::currentJobID() const
{
    std::lock_guard lock(mutex_);
    return currentJobID_;
}

std::optional<QueueRunSummary> QueueService::lastRunSummary() const
{
    std::lock_guard lock(mutex_);
    return lastRunSummary_;
}

std::optional<QString> QueueService::saveError() const
{
    std::lock_guard lock(mutex_);
    return saveError_;
}

void QueueService::waitUntilIdle()
{
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return !isProcessing_; });
}

std::optional<QueueService::Begun> QueueService::beginNextLocked()
{
    if (stopRequested_ || shuttingDown_ || halt_)
        return std::nullopt;
    const auto it = std::find_if(jobs_.begin(), jobs_.end(), [](const QueueJob& j) { return j.status == QueueJobStatus::pending; });
    if (it == jobs_.end())
        return std::nullopt;
    Begun begun;
    begun.token = std::make_shared<ManualCancellationToken>();
    begun.attempt.id = QUuid::createUuid();
    begun.attempt.startedAt = QDateTime::currentDateTimeUtc();
    it->status = QueueJobStatus::running;
    it->progress = 0;
    it->progressPhase.reset();
    it->attempts.push_back(begun.attempt);
    begun.job = *it;
    currentJobID_ = it->id;
    currentToken_ = begun.token;
    throttle_.reset();
    return begun;
}

void QueueService::runLoop()
{
    QueueRunSummary summary;
    Log::write(QStringLiteral("[Queue] run started"));
    // A job already running: begun by the save that ended the job before it.
    std::optional<Begun> begun;
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            if (!begun) {
                // 1. Running, saved, told.
                begun = beginNextLocked();
                if (!begun)
                    break;
                saveLocked(QSet<QUuid>{begun->job.id});
                emitLocked(lock, {QueueServiceEvent::stateChanged(jobs_)});
            } else if (stopRequested_ || shuttingDown_) {
                // Asked to stop in the instant between two jobs: the one
                // begun has not built anything, so it waits again.
                const auto it = find(begun->job.id);
                if (it != jobs_.end() && it->status == QueueJobStatus::running) {
                    it->status = QueueJobStatus::pending;
                    it->progress = 0;
                    std::erase_if(it->attempts, [&](const JobAttempt& a) { return a.id == begun->attempt.id; });
                    saveLocked(QSet<QUuid>{it->id});
                }
                currentJobID_.reset();
                currentToken_.reset();
                cancelRequestedJobIDs_.remove(begun->job.id);
                emitLocked(lock, {QueueServiceEvent::stateChanged(jobs_)});
                break;
            }
        }
        const QUuid id = begun->job.id;
        std::optional<Begun> next;
        switch (runJob(*begun, next)) {
        case JobEnd::built: ++summary.built; break;
        case JobEnd::failed: ++summary.failed; break;
        case JobEnd::skipped: ++summary.skipped; break;
        case JobEnd::cancelled: ++summary.cancelled; break;
        case JobEnd::vanished: break;
        case JobEnd::retrying: {
            std::unique_lock lock(mutex_);
            Log::write(QStringLiteral("[Queue] automatic retry of %1 in %2 ms").arg(idText(id)).arg(config_.retryPause.count()));
            wake_.wait_for(lock, config_.retryPause, [this] { return stopRequested_ || shuttingDown_; });
            break;
        }
        }
        begun = std::move(next);
    }
    // The builder lets go of what it kept for the run (its build worker)
    // on this thread, before the run is reported over.
    builder_->runEnded();
    std::unique_lock lock(mutex_);
    isProcessing_ = false;
    lastRunSummary_ = summary;
    Log::write(QStringLiteral("[Queue] run finished: built=%1 failed=%2 skipped=%3 cancelled=%4")
                   .arg(summary.built)
                   .arg(summary.failed)
                   .arg(summary.skipped)
                   .arg(summary.cancelled));
    wake_.notify_all();
    emitLocked(lock, {QueueServiceEvent::runFinished(summary)});
}

QueueBuildOrder QueueService::orderFor(const QueueJob& job, std::optional<QueueBuildInput>& input)
{
    QueueBuildOrder order;
    order.settings = job.settings;
    if (job.origin.bookID) {
        if (!bookSource_)
            throw QueueRunError::bookRemoved();
        input = bookSource_->input(*job.origin.bookID);
        order.book = input->book;
        if (!job.settingsOverrideBookSettings && input->settings)
            order.settings = *input->settings;
    } else if (job.origin.candidate) {
        const CandidatePayload& payload = *job.origin.candidate;
        if (payload.book) {
            order.book = *payload.book;
        } else {
            QFile file(QDir(store_->jobFolder(job.id)).filePath(payload.bookFile.value_or(QString())));
            try {
                if (!file.open(QIODevice::ReadOnly))
                    throw DecodingError::dataCorrupted(QString(), file.errorString());
                order.book = ImportedBook::fromJson(JsonReader::parseObject(file.readAll()));
            } catch (const DecodingError& e) {
                Log::write(QStringLiteral("[Queue] the job's book %1 cannot be read: %2").arg(file.fileName(), e.description()));
                throw QueueBuildFailure::classified(
                    JobAttempt::ErrorClass::permanent,
                    L10n::format(L10n::text("queue.error.bookRecord", "the queued book could not be read back from the queue's "
                                                                      "folder: remove the job and queue %@ again"),
                                 {payload.inputs.join(QStringLiteral(", "))}));
            }
        }
        if (job.origin.candidate->coverFile) {
            QFile cover(QDir(store_->jobFolder(job.id)).filePath(*job.origin.candidate->coverFile));
            if (cover.open(QIODevice::ReadOnly))
                order.book.metadata.coverImageData = cover.readAll();
            else
                Log::write(QStringLiteral("[Queue] the job's cover %1 cannot be read — built without it").arg(cover.fileName()));
        }
    }
    if (job.forcedOutputFormat)
        order.settings.outputFormat = *job.forcedOutputFormat;
    order.outputPath = job.plannedOutputPath();
    order.replaceExisting = job.organization.replacesExisting;
    order.parallelJobs = config_.parallelJobs;
    return order;
}

void QueueService::prepareDestination(const QueueJob& job, const QString& outputPath)
{
    const QString root = QDir::cleanPath(job.outputURL.toLocalFile());
    if (root.isEmpty() || !QFileInfo(root).isDir())
        throw QueueRunError::destinationUnavailable(root);
    const QString folder = QFileInfo(outputPath).absolutePath();
    if (const int error = makeFolders(root, folder))
        throw QueueRunError::destinationNotCreated(folder, error);
}

void QueueService::applyProgress(const QUuid& id, const QString& phase, double fraction)
{
    std::unique_lock lock(mutex_);
    const auto it = find(id);
    if (it == jobs_.end() || it->status != QueueJobStatus::running)
        return;
    if (!throttle_.accept(phase, fraction))
        return;
    it->progress = fraction;
    it->progressPhase = phase;
    emitLocked(lock, {QueueServiceEvent::progress(id, fraction, phase)});
}

QueueService::JobEnd QueueService::runJob(const Begun& begun, std::optional<Begun>& next)
{
    QStringList logLines;
    std::mutex logMutex; // notes may arrive from the build's threads
    const auto logLine = [&logLines, &logMutex](const QString& line) {
        Log::write(line);
        std::lock_guard guard(logMutex);
        logLines << QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs) + u' ' + line;
    };

    const QueueJob& job = begun.job;
    const QUuid id = job.id;
    JobAttempt attempt = begun.attempt;
    const std::shared_ptr<ManualCancellationToken>& token = begun.token;
    logLine(QStringLiteral("[Queue] runJob jobID=%1 \"%2\" attempt %3").arg(idText(id), job.displayTitle).arg(job.attempts.size()));

    std::optional<QueueJobBuilder::Built> built;
    std::optional<QueueBuildFailure> failure;
    std::optional<QueueRunError> runError;
    std::optional<QueueBuildInput> input;
    QueueBuildOrder order;
    try {
        // A job begun by the save that ended the one before may have been
        // cancelled since: nothing of it is prepared.
        if (token->isCancelled())
            throw QueueBuildFailure::cancellation();
        // 2. The licensing gate.
        if (capability) {
            if (const std::optional<QString> refusal = capability(job))
                throw QueueBuildFailure::classified(JobAttempt::ErrorClass::licenseBlock, *refusal, QueueHalt::Reason::license);
        }
        // 3. The book.
        order = orderFor(job, input);
        // 4. The destination.
        prepareDestination(job, order.outputPath);
        // 5. The sources.
        const auto reachable = std::count_if(order.book.tracks.begin(), order.book.tracks.end(),
                                             [](const Track& t) { return QFileInfo(t.url.toLocalFile()).isFile(); });
        if (!order.book.tracks.empty() && reachable == 0)
            throw QueueRunError::sourcesUnreachable();
        // 6. The build.
        logLine(QStringLiteral("[Queue] runJob jobID=%1 → output=%2 bookmarks=%3 scopedURLs=%4 folderScope=%5")
                    .arg(idText(id), order.outputPath)
                    .arg(order.book.bookmarks.size())
                    .arg(reachable)
                    .arg(boolText(false)));
        for (std::size_t i = 0; i < order.book.tracks.size() && i < 20; ++i)
            logLine(QStringLiteral("[Queue]   source %1: %2").arg(i + 1).arg(order.book.tracks[i].url.toLocalFile()));
        if (order.book.tracks.size() > 20)
            logLine(QStringLiteral("[Queue]   … and %1 more sources").arg(order.book.tracks.size() - 20));
        BuildUseCase::Sinks sinks;
        sinks.progress = [this, id](const QString& phase, double fraction) { applyProgress(id, phase, fraction); };
        sinks.note = [&logLine](const QString& text) { logLine(QStringLiteral("[Queue] note: ") + text); };
        if (token->isCancelled()) // cancelled while it was prepared
            throw QueueBuildFailure::cancellation();
        built = builder_->build(order, token, sinks);
    } catch (const QueueRunError& e) {
        runError = e;
    } catch (const QueueBuildFailure& f) {
        failure = f;
    } catch (const Error& e) {
        // The library could not be read now (locked, unreadable): another try may work.
        failure = QueueBuildFailure::classified(JobAttempt::ErrorClass::transient, e.description());
    }

    // 7. The attempt's end.
    std::unique_lock lock(mutex_);
    currentJobID_.reset();
    currentToken_.reset();
    const bool cancelRequested = cancelRequestedJobIDs_.remove(id);
    auto it = find(id);
    if (it == jobs_.end()) {
        lock.unlock();
        logLine(QStringLiteral("[Queue] runJob jobID=%1: the job was removed while it ran").arg(idText(id)));
        store_->removeJobFolder(id);
        return JobEnd::vanished;
    }
    attempt.endedAt = QDateTime::currentDateTimeUtc();
    JobEnd end = JobEnd::failed;
    std::optional<QueueHalt> halt;
    QString buildLog;
    if (built) {
        attempt.outcome = JobAttempt::Outcome::success(built->outputPath);
        it->status = QueueJobStatus::completed;
        it->progress = 1.0;
        end = JobEnd::built;
        buildLog = built->logFile;
        logLine(QStringLiteral("[Queue] runJob jobID=%1 ✓ success → %2").arg(idText(id), built->outputPath));
    } else if (cancelRequested || (failure && failure->cancelled)) {
        attempt.outcome = JobAttempt::Outcome::cancelled();
        it->status = QueueJobStatus::cancelled;
        end = JobEnd::cancelled;
        if (failure)
            buildLog = failure->logFile;
        logLine(QStringLiteral("[Queue] runJob jobID=%1 cancelled by the user").arg(idText(id)));
    } else if (runError) {
        JobAttempt::ErrorClass errorClass = JobAttempt::ErrorClass::permanent;
        switch (runError->kind()) {
        case QueueRunError::Kind::bookRemoved:
            it->status = QueueJobStatus::skipped;
            end = JobEnd::skipped;
            break;
        case QueueRunError::Kind::jobVanished:
            break;
        case QueueRunError::Kind::destinationUnavailable: {
            errorClass = JobAttempt::ErrorClass::environment;
            it->status = QueueJobStatus::failed;
            const int e = runError->systemError();
            halt = QueueHalt::make(e == ENOSPC  ? QueueHalt::Reason::outOfSpace
                                   : e == EROFS ? QueueHalt::Reason::readOnlyVolume
                                                : QueueHalt::Reason::destination,
                                   QFileInfo(runError->folder()).fileName(), id);
            break;
        }
        case QueueRunError::Kind::sourcesUnreachable:
            errorClass = JobAttempt::ErrorClass::sourcesUnavailable;
            it->status = QueueJobStatus::failed;
            halt = QueueHalt::make(QueueHalt::Reason::sourcesLost, {}, id);
            break;
        }
        attempt.outcome = JobAttempt::Outcome::failure(errorClass, runError->description());
        logLine(QStringLiteral("[Queue] runJob jobID=%1 ✗ failed: %2 (class=%3)")
                    .arg(idText(id), runError->description(), enumName(errorClass)));
    } else {
        const QueueBuildFailure f = failure.value_or(
            QueueBuildFailure::classified(JobAttempt::ErrorClass::transient, QStringLiteral("the build made no book")));
        attempt.outcome = JobAttempt::Outcome::failure(f.errorClass, f.message);
        buildLog = f.logFile;
        logLine(QStringLiteral("[Queue] runJob jobID=%1 ✗ failed: %2 (class=%3)").arg(idText(id), f.message, enumName(f.errorClass)));
        const int retries = autoRetries_.value(id);
        if (f.errorClass == JobAttempt::ErrorClass::transient && retries < config_.maxAutoRetries) {
            autoRetries_.insert(id, retries + 1);
            it->status = QueueJobStatus::pending;
            end = JobEnd::retrying;
            logLine(QStringLiteral("[Queue] runJob jobID=%1 back to pending for automatic retry %2 of %3")
                        .arg(idText(id))
                        .arg(retries + 1)
                        .arg(config_.maxAutoRetries));
        } else {
            it->status = QueueJobStatus::failed;
            if (f.halt)
                halt = QueueHalt::make(*f.halt, f.haltFolder, id);
        }
    }
    if (halt)
        logLine(QStringLiteral("[Queue] halted (%1): %2").arg(QueueHalt::key(halt->reason), halt->message));

    // The attempt's log: the queue's lines, then the build's own log.
    QString text = logLines.join(u'\n') + u'\n';
    const QString buildText = readBuildLog(buildLog);
    if (!buildText.isEmpty())
        text += QStringLiteral("\n----- build log -----\n") + buildText;
    attempt.logPath = store_->writeLog(id, text);
    for (JobAttempt& a : it->attempts)
        if (a.id == attempt.id)
            a = attempt;
    if (it->status != QueueJobStatus::completed)
        it->progress = 0;
    it->progressPhase.reset();
    const QueueJob finished = *it;
    std::vector<QueueServiceEvent> events{QueueServiceEvent::stateChanged(jobs_)};
    QSet<QUuid> changed{id};
    if (!halt && end != JobEnd::retrying) {
        // The run goes straight on: the next job is marked running in the
        // same save, so that one flush to disk serves both changes.
        next = beginNextLocked();
        if (next)
            changed.insert(next->job.id);
    }
    saveLocked(changed);
    if (halt) {
        setHaltLocked(*halt);
        events.push_back(QueueServiceEvent::halted(halt->message));
    }
    if (next)
        events.push_back(QueueServiceEvent::stateChanged(jobs_));
    emitLocked(lock, events);

    // 8. The library learns of the build.
    if (built && input && finished.origin.bookID && onBookBuilt) {
        try {
            onBookBuilt(*finished.origin.bookID, input->revision, built->outputPath, built->outputFiles, order.settings);
        } catch (const Error& e) {
            Log::write(QStringLiteral("[Queue] the book was built, but the library could not record it: ") + e.description());
        }
    }
    return end;
}

} // namespace folivox
