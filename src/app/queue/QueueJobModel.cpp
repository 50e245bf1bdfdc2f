#include "app/queue/QueueJobModel.h"

#include "platform/L10n.h"
#include "queue/run/QueueController.h"

#include <QColor>
#include <QDir>
#include <QFileInfo>

#include <cmath>

namespace folivox {

QueueJobModel::QueueJobModel(QueueController& controller, QObject* parent)
    : QAbstractTableModel(parent)
    , controller_(controller)
{
    connect(&controller_, &QueueController::changed, this, &QueueJobModel::refresh);
    refresh();
}

void QueueJobModel::refresh()
{
    QList<QUuid> ids;
    for (const QueueJob& job : controller_.jobs())
        ids << job.id;
    if (ids == ids_) {
        if (!ids_.isEmpty())
            Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, columnCount_ - 1));
        return;
    }
    // Jobs added at the end keep the rows above (and their selection).
    if (ids.size() > ids_.size() && ids.mid(0, ids_.size()) == ids_) {
        beginInsertRows({}, int(ids_.size()), int(ids.size()) - 1);
        ids_ = ids;
        endInsertRows();
        if (ids_.size() > 1)
            Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, columnCount_ - 1));
        return;
    }
    beginResetModel();
    ids_ = ids;
    endResetModel();
}

int QueueJobModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(ids_.size());
}

int QueueJobModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : columnCount_;
}

QModelIndex QueueJobModel::indexOf(const QUuid& id, int column) const
{
    const qsizetype row = ids_.indexOf(id);
    return row < 0 ? QModelIndex() : index(int(row), column);
}

const QueueJob* QueueJobModel::jobAt(int row) const
{
    if (row < 0 || row >= ids_.size())
        return nullptr;
    // Rows are the controller's jobs in its order; look further only when
    // the controller changed and the model has not heard yet.
    const std::vector<QueueJob>& jobs = controller_.jobs();
    if (size_t(row) < jobs.size() && jobs[size_t(row)].id == ids_[row])
        return &jobs[size_t(row)];
    for (const QueueJob& job : jobs)
        if (job.id == ids_[row])
            return &job;
    return nullptr;
}

QString QueueJobModel::detailText(const QueueJob& job)
{
    switch (job.status) {
    case QueueJobStatus::running:
        return job.progressPhase.value_or(L10n::text("app.queue.detail.starting", "Starting…"));
    case QueueJobStatus::completed:
        for (auto it = job.attempts.rbegin(); it != job.attempts.rend(); ++it)
            if (it->outcome && it->outcome->kind == JobAttempt::Outcome::Kind::success)
                return L10n::format(L10n::text("app.queue.detail.built", "Built %@"), {QFileInfo(it->outcome->outputPath).fileName()});
        return QueueJobStatusLabel::text(job.status);
    case QueueJobStatus::failed:
    case QueueJobStatus::skipped:
        return job.lastErrorMessage().value_or(QString());
    case QueueJobStatus::interrupted:
        return L10n::text("app.queue.detail.interrupted", "Cut short when Folivox last quit; Resume builds it again.");
    case QueueJobStatus::cancelled:
        return L10n::text("app.queue.detail.cancelled", "Cancelled; Retry puts it back in the queue.");
    case QueueJobStatus::pending:
        return job.attempts.empty() ? QString()
                                    : L10n::format(L10n::text("app.queue.detail.again", "Waiting for attempt %d"),
                                                   {QString::number(job.attempts.size() + 1)});
    }
    return {};
}

QVariant QueueJobModel::data(const QModelIndex& index, int role) const
{
    const QueueJob* job = jobAt(index.row());
    if (!job)
        return {};
    switch (role) {
    case IdRole: return job->id;
    case StatusRole: return static_cast<int>(job->status);
    case ProgressRole: return job->status == QueueJobStatus::completed ? 1.0 : job->progress;
    default: break;
    }
    if (role == Qt::DisplayRole) {
        switch (index.column()) {
        case book:
            return job->displayAuthor && !job->displayAuthor->isEmpty()
                       ? QStringLiteral("%1 — %2").arg(job->displayTitle, *job->displayAuthor)
                       : job->displayTitle;
        case status: return QueueJobStatusLabel::text(job->status);
        case progress: {
            const double f = job->status == QueueJobStatus::completed ? 1.0 : job->progress;
            return job->status == QueueJobStatus::running || job->status == QueueJobStatus::completed
                       ? QStringLiteral("%1%").arg(std::lround(f * 100))
                       : QString();
        }
        case detail: return detailText(*job);
        case output: return QDir::toNativeSeparators(job->plannedOutputPath());
        }
    }
    if (role == Qt::ToolTipRole) {
        if (index.column() == detail && job->status == QueueJobStatus::completed)
            for (auto it = job->attempts.rbegin(); it != job->attempts.rend(); ++it)
                if (it->outcome && it->outcome->kind == JobAttempt::Outcome::Kind::success)
                    return it->outcome->outputPath;
        if (index.column() == detail)
            return detailText(*job);
        if (index.column() == output)
            return job->plannedOutputPath();
    }
    if (role == Qt::ForegroundRole && index.column() == status) {
        switch (job->status) {
        case QueueJobStatus::completed: return QColor(46, 125, 50);
        case QueueJobStatus::failed: return QColor(190, 40, 40);
        case QueueJobStatus::running: return QColor(30, 100, 200);
        case QueueJobStatus::interrupted: return QColor(150, 90, 30);
        default: return {};
        }
    }
    return {};
}

QVariant QueueJobModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case book: return L10n::text("app.queue.column.book", "Book");
    case status: return L10n::text("app.queue.column.status", "Status");
    case progress: return L10n::text("app.queue.column.progress", "Progress");
    case detail: return L10n::text("app.queue.column.detail", "Phase or result");
    case output: return L10n::text("app.queue.column.output", "Output");
    }
    return {};
}

} // namespace folivox
