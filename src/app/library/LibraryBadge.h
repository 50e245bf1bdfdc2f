#pragma once

#include "library/LibraryBookSummary.h"
#include "queue/run/QueueController.h"

#include <QColor>
#include <QList>
#include <QMetaType>
#include <QString>

#include <optional>

namespace folivox {

// One mark on a book in the library: built, changed since its last build,
// where it stands in the queue, or that it needs attention. Made from the
// book's summary and the queue's badge for it, each time it is shown.
struct LibraryBadge {
    enum class Kind { open, built, changed, queued, building, buildFailed, interrupted, needsAttention };

    Kind kind = Kind::built;
    QString text;
    QString toolTip;
    double progress = 0; // building

    // The badges of a book, in the order they are drawn.
    static QList<LibraryBadge> of(const LibraryBookSummary& summary,
                                  const std::optional<QueueController::BookBadge>& queue, bool isOpen);
    // The badge's colour (a fill that white text reads on).
    QColor color() const;

    bool operator==(const LibraryBadge&) const = default;
};

} // namespace folivox

Q_DECLARE_METATYPE(folivox::LibraryBadge)
