#pragma once

#include "process/ManualCancellationToken.h"
#include "queue/run/QueueBookSource.h"
#include "queue/records/QueueBuildFailure.h"
#include "queue/records/QueueHalt.h"
#include "queue/records/QueueJob.h"
#include "queue/run/QueueJobBuilder.h"
#include "queue/run/QueueProgressThrottle.h"
#include "queue/records/QueueRunSummary.h"
#include "queue/records/QueueServiceEvent.h"
#include "queue/store/QueueStore.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace folivox {

// Runs the queue's jobs one at a time, in list order, through a builder;
// records every attempt, saves every change of a job at once (the end of one
// job and the start of the next in one save), and halts the
// whole queue when going on would only fail again (a full disk, a read-only
// or missing destination, no ffmpeg, lost sources). Every operation holds
// one mutex; the run loop has a thread of its own, and no lock is held
// while a job builds. Events go to every subscriber, in the order of the
// changes, from the thread that made the change.
class QueueService {
public:
    struct Config {
        // Automatic retries of a job whose failure is transient, per job and
        // run of the service; then the job fails.
        int maxAutoRetries = 1;
        // The pause before an automatic retry (a stop or a shutdown ends it).
        std::chrono::milliseconds retryPause{5000};
        // Parallel encoding jobs for each build (none: the machine's choice).
        std::optional<int> parallelJobs;
    };

    // The licensing gate: a refusal message stops the job as licenseBlock.
    using QueueCapabilityGate = std::function<std::optional<QString>(const QueueJob& job)>;
    // A library book was built: book, revision, output, files, settings.
    using BookBuiltCallback = std::function<void(const QUuid& bookID, int revision, const QString& outputURL,
                                                 const QStringList& outputFiles, const ExportSettings& settings)>;
    using Subscriber = std::function<void(const QueueServiceEvent& event)>;

    enum class StartResult { started, alreadyProcessing, halted, nothingToRun };
    enum class CancelResult { cancelled, cancelling };

    // Loads the jobs from the store (a job found running is interrupted) and
    // clears what a killed process left in the store's staging folder: only
    // one process at a time may hold a service on a queue (the queue's
    // edit lock). Throws QueueError::newerQueueFile.
    QueueService(std::shared_ptr<QueueStore> store, std::shared_ptr<QueueJobBuilder> builder,
                 std::shared_ptr<QueueBookSource> bookSource, Config config);
    QueueService(std::shared_ptr<QueueStore> store, std::shared_ptr<QueueJobBuilder> builder,
                 std::shared_ptr<QueueBookSource> bookSource);
    // Cancels a running job and waits for the run loop to end.
    ~QueueService();
    QueueService(const QueueService&) = delete;
    QueueService& operator=(const QueueService&) = delete;

    // The warning of a queue file that could not be read (kept aside).
    std::optional<QString> loadWarning() const { return loadWarning_; }

    int subscribe(Subscriber subscriber);
    void unsubscribe(int id);

    // Starts the run loop unless it runs, the queue is halted, or no job is pending.
    StartResult start();
    // The run ends after the current job.
    void stopAfterCurrent();
    // A pending or interrupted job becomes cancelled; the running job is
    // cancelled and counts as cancelled when its build has stopped.
    // Throws QueueError (no such job, or a job that has ended).
    CancelResult cancel(const QUuid& id);
    // Interrupted jobs back to pending, then starts the run. Gives how many.
    int resume();
    // A failed, cancelled, interrupted or skipped job back to pending; the
    // halt is cleared. Throws QueueError.
    void retry(const QUuid& id);
    // Takes a job out of the queue (a running one is cancelled first) and
    // removes its folder. Throws QueueError::jobNotFound.
    void remove(const QUuid& id);
    // Adds a job at the end. Throws QueueError::outputTaken when another
    // job that may still run plans the same output.
    void enqueue(QueueJob job);
    // A job's id from its text or a unique start of it. Throws QueueError.
    QUuid resolve(const QString& idText) const;

    std::vector<QueueJob> jobs() const;
    std::optional<QueueJob> job(const QUuid& id) const;
    bool isProcessing() const;
    std::optional<QueueHalt> halt() const;
    std::optional<QUuid> currentJobID() const;
    std::optional<QueueRunSummary> lastRunSummary() const;
    // The last save that failed, until a save works again.
    std::optional<QString> saveError() const;
    // Blocks until the run loop has ended.
    void waitUntilIdle();

    const QueueStore& store() const { return *store_; }
    const Config& config() const { return config_; }

    QueueCapabilityGate capability;
    BookBuiltCallback onBookBuilt;

private:
    enum class JobEnd { built, failed, skipped, cancelled, retrying, vanished };

    // A job marked running with its new attempt, not yet built.
    struct Begun {
        QueueJob job;
        JobAttempt attempt;
        std::shared_ptr<ManualCancellationToken> token;
    };

    void runLoop();
    // Marks the first pending job running (in memory only), unless the run
    // must end: stop asked, shutting down, halted, nothing pending. Called
    // with mutex_ held.
    std::optional<Begun> beginNextLocked();
    // Builds a begun job and records its end; when the run goes straight on,
    // the next job is begun in the same save and handed back in `next`.
    JobEnd runJob(const Begun& begun, std::optional<Begun>& next);
    QueueBuildOrder orderFor(const QueueJob& job, std::optional<QueueBuildInput>& input);
    void prepareDestination(const QueueJob& job, const QString& outputPath);
    void applyProgress(const QUuid& id, const QString& phase, double fraction);
    std::vector<QueueJob>::iterator find(const QUuid& id);
    std::vector<QueueJob>::const_iterator find(const QUuid& id) const;
    // Saves the list; called with mutex_ held. With `changed`, only those
    // jobs differ from the last save.
    void saveLocked(const std::optional<QSet<QUuid>>& changed = std::nullopt);
    // Sends an event in the order of the change that made it: called with
    // mutex_ held, which it releases.
    void emitLocked(std::unique_lock<std::mutex>& lock, const std::vector<QueueServiceEvent>& events);
    void setHaltLocked(const QueueHalt& halt);

    std::shared_ptr<QueueStore> store_;
    std::shared_ptr<QueueJobBuilder> builder_;
    std::shared_ptr<QueueBookSource> bookSource_;
    const Config config_;
    std::optional<QString> loadWarning_;

    mutable std::mutex mutex_; // everything below
    std::vector<QueueJob> jobs_;
    bool isProcessing_ = false;
    std::optional<QueueHalt> halt_;
    std::optional<QUuid> currentJobID_;
    std::shared_ptr<ManualCancellationToken> currentToken_;
    bool stopRequested_ = false;
    bool shuttingDown_ = false;
    QSet<QUuid> cancelRequestedJobIDs_;
    QHash<QUuid, int> autoRetries_;
    QueueProgressThrottle throttle_;
    std::optional<QueueRunSummary> lastRunSummary_;
    std::optional<QString> saveError_;
    std::condition_variable wake_;
    std::thread runThread_;

    std::recursive_mutex emitMutex_; // events leave in the order of their changes
    std::mutex subscribersMutex_;
    std::map<int, Subscriber> subscribers_;
    int nextSubscriber_ = 1;
};

} // namespace folivox
