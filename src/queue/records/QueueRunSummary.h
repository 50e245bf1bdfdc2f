#pragma once

#include <QJsonObject>

namespace folivox {

// The counts of one run of the queue: jobs built, failed, skipped and
// cancelled. A job that goes back to pending for an automatic retry is
// counted only by its last attempt.
struct QueueRunSummary {
    int built = 0;
    int failed = 0;
    int skipped = 0;
    int cancelled = 0;

    // Everything that ran was built.
    bool allBuilt() const { return failed == 0 && skipped == 0 && cancelled == 0; }

    QJsonObject toJson() const;
    bool operator==(const QueueRunSummary&) const = default;
};

} // namespace folivox
