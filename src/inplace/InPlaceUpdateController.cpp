#include "inplace/InPlaceUpdateController.h"

#include "export/engine/ExportError.h"
#include "platform/L10n.h"
#include "platform/Log.h"

namespace folivox {

namespace {
void log(const QString& message)
{
    Log::write(QStringLiteral("[InPlaceUpdate] ") + message);
}
} // namespace

InPlaceUpdateController::InPlaceUpdateController(std::shared_ptr<InPlaceUpdateService> service, Rollback rollback)
    : service_(std::move(service)), rollback_(std::move(rollback))
{
}

InPlaceUpdateController::~InPlaceUpdateController()
{
    wait();
}

QString InPlaceUpdateController::quitWarningTitle()
{
    return L10n::text("library.queue.quit.inplace.title", "Metadata is being written to your original files");
}

QString InPlaceUpdateController::quitWarningConsequence()
{
    return L10n::text("library.queue.quit.inplace.consequence",
                      "If you quit now, a file may be left corrupted. Let the update finish first.");
}

QString InPlaceUpdateController::quitWarningCancelButton()
{
    return L10n::text("library.queue.quit.inplace.cancel", "Don't Quit");
}

bool InPlaceUpdateController::isRunning() const
{
    std::lock_guard lock(mutex_);
    return runID_.has_value();
}

std::optional<QUuid> InPlaceUpdateController::runID() const
{
    std::lock_guard lock(mutex_);
    return runID_;
}

void InPlaceUpdateController::cancel()
{
    std::lock_guard lock(mutex_);
    if (cancelToken_)
        cancelToken_->cancel();
}

void InPlaceUpdateController::wait()
{
    std::thread worker;
    {
        std::lock_guard lock(mutex_);
        worker = std::move(worker_);
    }
    if (worker.joinable() && worker.get_id() != std::this_thread::get_id())
        worker.join();
    else if (worker.joinable())
        worker.detach();
}

bool InPlaceUpdateController::start(const BookMetadata& metadata, const QList<ChapterInfo>& chapters, const InPlaceUpdateMode& mode,
                                    InPlaceProgress progress, InPlaceUpdateOptions options,
                                    std::function<void(const Outcome&)> done)
{
    std::thread previous;
    {
        std::lock_guard lock(mutex_);
        if (runID_) {
            log(QStringLiteral("refused: another in-place write is still running"));
            return false;
        }
        runID_ = QUuid::createUuid();
        cancelToken_ = std::make_shared<ManualCancellationToken>();
        previous = std::move(worker_);
    }
    if (previous.joinable())
        previous.join();
    auto token = cancelToken_;
    std::thread worker([this, metadata, chapters, mode, progress = std::move(progress), options = std::move(options),
                        done = std::move(done), token]() mutable {
        const Outcome outcome = execute(metadata, chapters, mode, progress, std::move(options), *token);
        {
            std::lock_guard lock(mutex_);
            runID_.reset();
            cancelToken_.reset();
        }
        if (done)
            done(outcome);
    });
    std::lock_guard lock(mutex_);
    worker_ = std::move(worker);
    return true;
}

InPlaceUpdateController::Outcome InPlaceUpdateController::execute(const BookMetadata& metadata, const QList<ChapterInfo>& chapters,
                                                                  const InPlaceUpdateMode& mode, const InPlaceProgress& progress,
                                                                  InPlaceUpdateOptions options, const ManualCancellationToken& token)
{
    Outcome outcome;
    QString session;
    auto notify = options.backupCreated;
    options.backupCreated = [&session, notify](const QString& s) {
        session = s;
        if (notify)
            notify(s);
    };
    const auto undo = [&](Outcome::Kind kind) {
        outcome.kind = kind;
        outcome.backupURL = session;
        if (session.isEmpty()) {
            outcome.allRestored = true; // nothing was written before a backup existed
            return;
        }
        const InPlaceBackupStore::RestoreOutcome r = rollback_(session, mode);
        outcome.allRestored = r.allRestored;
        outcome.recovery = r.firstInterrupted;
    };
    try {
        outcome.backupURL = service_->updateMetadata(metadata, chapters, mode, token, progress, options);
        outcome.kind = Outcome::Kind::completed;
        outcome.writeFinishedAt = QDateTime::currentDateTimeUtc();
        outcome.hold = completedHold;
        return outcome;
    } catch (const ExportError& e) {
        if (e.kind() == ExportError::Kind::cancelled || token.isCancelled()) {
            log(QStringLiteral("Cancelled by user — rolling back from backup"));
            undo(Outcome::Kind::cancelled);
            outcome.hold = cancelledHold;
            return outcome;
        }
        outcome.error = e.description();
    } catch (const Error& e) {
        outcome.error = e.description();
    } catch (const std::exception& e) {
        outcome.error = QString::fromUtf8(e.what());
    }
    if (mode.kind == InPlaceUpdateMode::Kind::multipleFiles)
        log(QStringLiteral("In-place write incomplete (%1 file(s) — putting them back").arg(mode.files.size()));
    log(QStringLiteral("update failed: ") + outcome.error);
    const QString error = outcome.error;
    undo(Outcome::Kind::failed);
    outcome.error = error;
    outcome.hold = failedHold;
    return outcome;
}

} // namespace folivox
