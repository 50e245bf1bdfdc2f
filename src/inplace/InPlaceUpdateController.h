#pragma once

#include "process/ManualCancellationToken.h"
#include "inplace/InPlaceBackupStore.h"
#include "inplace/InPlaceUpdateService.h"

#include <QDateTime>
#include <QUuid>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace folivox {

// Starts, cancels and reports in-place updates, one at a time. The write
// runs on a worker thread; a failure or a cancel ends in a rollback from the
// session's backups, and every run ends in exactly one Outcome.
class InPlaceUpdateController {
public:
    using Rollback = std::function<InPlaceBackupStore::RestoreOutcome(const QString& backupURL, const InPlaceUpdateMode& mode)>;

    struct Outcome {
        enum class Kind { completed, failed, cancelled };
        Kind kind = Kind::failed;
        QString backupURL;          // completed (and any run that made one)
        QDateTime writeFinishedAt;  // completed
        double hold = 0;            // seconds the finished status stays on screen
        QString error;              // failed: the error's text
        std::optional<SafeFileReplace::WriteInterruptedError> recovery; // cancelled/failed: an interrupted put-back
        bool allRestored = false;   // failed/cancelled: every file came back
    };

    static constexpr double completedHold = 4.0;
    static constexpr double cancelledHold = 6.0;
    static constexpr double failedHold = 0.0;

    explicit InPlaceUpdateController(std::shared_ptr<InPlaceUpdateService> service, Rollback rollback = &InPlaceBackupStore::restore);
    ~InPlaceUpdateController();

    // Starts a run; done gets its outcome on the worker thread. Returns
    // false (and logs the refusal) while another run is active.
    bool start(const BookMetadata& metadata, const QList<ChapterInfo>& chapters, const InPlaceUpdateMode& mode,
               InPlaceProgress progress, InPlaceUpdateOptions options, std::function<void(const Outcome&)> done);
    // Asks the active run to stop: the current file finishes, then rollback.
    void cancel();
    bool isRunning() const;
    std::optional<QUuid> runID() const;
    // Waits for the active run's worker to end.
    void wait();

    // The quit warning while a run is active.
    static QString quitWarningTitle();
    static QString quitWarningConsequence();
    static QString quitWarningCancelButton();

private:
    Outcome execute(const BookMetadata& metadata, const QList<ChapterInfo>& chapters, const InPlaceUpdateMode& mode,
                    const InPlaceProgress& progress, InPlaceUpdateOptions options, const ManualCancellationToken& token);

    std::shared_ptr<InPlaceUpdateService> service_;
    Rollback rollback_;
    mutable std::mutex mutex_;
    std::optional<QUuid> runID_;
    std::shared_ptr<ManualCancellationToken> cancelToken_;
    std::thread worker_;
};

} // namespace folivox
