#pragma once

#include "queue/records/QueueJob.h"
#include "queue/records/QueueRunSummary.h"
#include "queue/run/QueueService.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QUuid>

#include <memory>
#include <optional>
#include <vector>

namespace folivox {

// The queue's state for views, on the main thread: a mirror of the
// service, brought up to date from its events (posted to this object's
// thread), and the buttons' actions, forwarded to the service.
class QueueController : public QObject {
    Q_OBJECT

public:
    struct BookBadge {
        QueueJobStatus status = QueueJobStatus::pending;
        double progress = 0;
        std::optional<QString> failureMessage;
    };

    explicit QueueController(std::shared_ptr<QueueService> service, QObject* parent = nullptr);
    ~QueueController() override;

    const std::vector<QueueJob>& jobs() const { return jobs_; }
    const QHash<QUuid, BookBadge>& bookStatus() const { return bookStatus_; }
    bool isProcessing() const { return isProcessing_; }
    const std::optional<QString>& haltMessage() const { return haltMessage_; }
    const std::optional<QueueRunSummary>& lastRunSummary() const { return lastRunSummary_; }
    bool runSummarySeen() const { return runSummarySeen_; }
    void markRunSummarySeen() { runSummarySeen_ = true; }
    const QSet<QUuid>& justBuilt() const { return justBuilt_; }
    // Jobs already finished when the run started (for a run's own counts).
    int runBaselineTerminal() const { return runBaselineTerminal_; }
    bool singleExportActive() const { return singleExportActive_; }
    std::optional<double> singleExportProgress() const { return singleExportProgress_; }
    // A build from the export window is running (or has ended).
    void setSingleExport(bool active, std::optional<double> progress = std::nullopt);

    // Refused while a single export or a run is active, and while the queue
    // is halted; each refusal is logged.
    bool start();
    void stop();
    QueueService::CancelResult cancel(const QUuid& id);
    int resume();
    void retry(const QUuid& id);
    void remove(const QUuid& id);

    QueueService& service() { return *service_; }

Q_SIGNALS:
    void changed();
    void halted(const QString& message);
    void runFinished(const QueueRunSummary& summary);

private:
    void apply(const QueueServiceEvent& event);
    void setJobs(std::vector<QueueJob> jobs);

    std::shared_ptr<QueueService> service_;
    int subscription_ = 0;
    std::vector<QueueJob> jobs_;
    QHash<QUuid, BookBadge> bookStatus_;
    bool isProcessing_ = false;
    std::optional<QString> haltMessage_;
    std::optional<QueueRunSummary> lastRunSummary_;
    bool runSummarySeen_ = true;
    QSet<QUuid> justBuilt_;
    int runBaselineTerminal_ = 0;
    bool singleExportActive_ = false;
    std::optional<double> singleExportProgress_;
};

} // namespace folivox
