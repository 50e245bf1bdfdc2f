#include "app/library/LibraryBadge.h"

#include "platform/L10n.h"

#include <QLocale>

#include <cmath>

namespace folivox {

QList<LibraryBadge> LibraryBadge::of(const LibraryBookSummary& summary,
                                     const std::optional<QueueController::BookBadge>& queue, bool isOpen)
{
    QList<LibraryBadge> out;
    if (isOpen)
        out << LibraryBadge{Kind::open, L10n::text("app.library.badge.open", "Open"),
                            L10n::text("app.library.badge.open.tip", "This book is open in the book view"), 0};
    if (summary.needsAttention)
        // The reason is looked up when the user points at the book.
        out << LibraryBadge{Kind::needsAttention, L10n::text("app.library.badge.attention", "Needs attention"), QString(), 0};
    if (queue) {
        switch (queue->status) {
        case QueueJobStatus::pending:
            out << LibraryBadge{Kind::queued, L10n::text("app.library.badge.queued", "Queued"),
                                L10n::text("app.library.badge.queued.tip", "Waiting in the queue to be built"), 0};
            break;
        case QueueJobStatus::running:
            out << LibraryBadge{Kind::building,
                                L10n::format(L10n::text("app.library.badge.building", "Building %d%%"),
                                             {QString::number(std::lround(queue->progress * 100))}),
                                L10n::text("app.library.badge.building.tip", "Being built by the queue"), queue->progress};
            break;
        case QueueJobStatus::failed:
            out << LibraryBadge{Kind::buildFailed, L10n::text("app.library.badge.failed", "Build failed"),
                                queue->failureMessage.value_or(L10n::text("app.library.badge.failed.tip",
                                                                          "The queue could not build this book")),
                                0};
            break;
        case QueueJobStatus::interrupted:
            out << LibraryBadge{Kind::interrupted, L10n::text("app.library.badge.interrupted", "Interrupted"),
                                L10n::text("app.library.badge.interrupted.tip",
                                           "The queue's build of this book was cut short; resume the queue to build it"),
                                0};
            break;
        case QueueJobStatus::completed:
        case QueueJobStatus::cancelled:
        case QueueJobStatus::skipped:
            break;
        }
    }
    if (summary.builtRevision > 0 && summary.builtAt) {
        const QString when = QLocale().toString(summary.builtAt->toLocalTime(), QLocale::ShortFormat);
        if (summary.changedSinceBuild())
            out << LibraryBadge{Kind::changed, L10n::text("app.library.badge.changed", "Changed"),
                                L10n::format(L10n::text("app.library.badge.changed.tip",
                                                        "Changed since its last build (%@): build it again to update the book"),
                                             {when}),
                                0};
        else
            out << LibraryBadge{Kind::built, L10n::text("app.library.badge.built", "Built"),
                                L10n::format(L10n::text("app.library.badge.built.tip", "Built %@: %@"),
                                             {when, summary.lastBuildOutputPath.value_or(QString())}),
                                0};
    }
    return out;
}

QColor LibraryBadge::color() const
{
    switch (kind) {
    case Kind::open: return QColor(90, 90, 100);
    case Kind::built: return QColor(46, 125, 50);
    case Kind::changed: return QColor(190, 120, 20);
    case Kind::queued: return QColor(70, 110, 170);
    case Kind::building: return QColor(30, 100, 200);
    case Kind::buildFailed: return QColor(190, 40, 40);
    case Kind::interrupted: return QColor(150, 90, 30);
    case Kind::needsAttention: return QColor(200, 60, 30);
    }
    return Qt::gray;
}

} // namespace folivox
