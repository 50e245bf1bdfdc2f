#include "queue/records/QueueJobStatus.h"

#include "platform/L10n.h"

namespace folivox {

QString QueueJobStatusLabel::key(QueueJobStatus status)
{
    return QStringLiteral("queue.status.") + enumName(status);
}

QString QueueJobStatusLabel::text(QueueJobStatus status)
{
    switch (status) {
    case QueueJobStatus::pending: return L10n::text("queue.status.pending", "Pending");
    case QueueJobStatus::running: return L10n::text("queue.status.running", "Running");
    case QueueJobStatus::completed: return L10n::text("queue.status.completed", "Completed");
    case QueueJobStatus::failed: return L10n::text("queue.status.failed", "Failed");
    case QueueJobStatus::cancelled: return L10n::text("queue.status.cancelled", "Cancelled");
    case QueueJobStatus::interrupted: return L10n::text("queue.status.interrupted", "Interrupted");
    case QueueJobStatus::skipped: return L10n::text("queue.status.skipped", "Skipped");
    }
    return {};
}

bool QueueJobStatusLabel::isFinished(QueueJobStatus status)
{
    return status == QueueJobStatus::completed || status == QueueJobStatus::failed || status == QueueJobStatus::cancelled
        || status == QueueJobStatus::skipped;
}

} // namespace folivox
