#include "queue/run/QueueController.h"

#include "platform/Log.h"

#include <QMetaObject>
#include <QPointer>

namespace folivox {

QueueController::QueueController(std::shared_ptr<QueueService> service, QObject* parent)
    : QObject(parent)
    , service_(std::move(service))
{
    setJobs(service_->jobs());
    isProcessing_ = service_->isProcessing();
    if (const auto halt = service_->halt())
        haltMessage_ = halt->message;
    QPointer<QueueController> self(this);
    subscription_ = service_->subscribe([self](const QueueServiceEvent& event) {
        QMetaObject::invokeMethod(
            self.data(),
            [self, event] {
                if (self)
                    self->apply(event);
            },
            Qt::QueuedConnection);
    });
}

QueueController::~QueueController()
{
    service_->unsubscribe(subscription_);
}

void QueueController::setJobs(std::vector<QueueJob> jobs)
{
    jobs_ = std::move(jobs);
    bookStatus_.clear();
    for (const QueueJob& job : jobs_) {
        if (!job.origin.bookID)
            continue;
        BookBadge badge;
        badge.status = job.status;
        badge.progress = job.progress;
        badge.failureMessage = job.lastErrorMessage();
        bookStatus_.insert(*job.origin.bookID, badge);
        if (job.status == QueueJobStatus::completed && isProcessing_)
            justBuilt_.insert(*job.origin.bookID);
    }
}

void QueueController::apply(const QueueServiceEvent& event)
{
    switch (event.kind) {
    case QueueServiceEvent::Kind::stateChanged:
        isProcessing_ = service_->isProcessing();
        setJobs(event.jobs);
        break;
    case QueueServiceEvent::Kind::progress:
        for (QueueJob& job : jobs_) {
            if (job.id != event.jobID)
                continue;
            job.progress = event.fraction;
            job.progressPhase = event.phase;
            if (job.origin.bookID && bookStatus_.contains(*job.origin.bookID))
                bookStatus_[*job.origin.bookID].progress = event.fraction;
        }
        break;
    case QueueServiceEvent::Kind::halted:
        haltMessage_ = event.message;
        Q_EMIT halted(event.message);
        break;
    case QueueServiceEvent::Kind::runFinished:
        isProcessing_ = false;
        lastRunSummary_ = event.summary;
        runSummarySeen_ = false;
        Q_EMIT runFinished(event.summary);
        break;
    }
    Q_EMIT changed();
}

void QueueController::setSingleExport(bool active, std::optional<double> progress)
{
    singleExportActive_ = active;
    singleExportProgress_ = active ? progress : std::nullopt;
    Q_EMIT changed();
}

bool QueueController::start()
{
    if (singleExportActive_ || isProcessing_ || service_->isProcessing()) {
        Log::write(QStringLiteral("[Queue] start refused: singleExportActive=%1 isProcessing=%2")
                       .arg(singleExportActive_ ? QStringLiteral("true") : QStringLiteral("false"),
                            isProcessing_ || service_->isProcessing() ? QStringLiteral("true") : QStringLiteral("false")));
        return false;
    }
    if (const auto halt = service_->halt()) {
        haltMessage_ = halt->message;
        Log::write(QStringLiteral("[Queue] start refused: queue is halted — ") + halt->message);
        return false;
    }
    runBaselineTerminal_ = 0;
    for (const QueueJob& job : jobs_)
        if (QueueJobStatusLabel::isFinished(job.status))
            ++runBaselineTerminal_;
    justBuilt_.clear();
    const bool started = service_->start() == QueueService::StartResult::started;
    isProcessing_ = started;
    Q_EMIT changed();
    return started;
}

void QueueController::stop()
{
    service_->stopAfterCurrent();
}

QueueService::CancelResult QueueController::cancel(const QUuid& id)
{
    return service_->cancel(id);
}

int QueueController::resume()
{
    const int count = service_->resume();
    isProcessing_ = service_->isProcessing();
    Q_EMIT changed();
    return count;
}

void QueueController::retry(const QUuid& id)
{
    service_->retry(id);
    haltMessage_.reset();
    Q_EMIT changed();
}

void QueueController::remove(const QUuid& id)
{
    service_->remove(id);
}

} // namespace folivox
