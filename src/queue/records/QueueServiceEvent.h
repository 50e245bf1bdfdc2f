#pragma once

#include "queue/records/QueueJob.h"
#include "queue/records/QueueRunSummary.h"

#include <QString>
#include <QUuid>

#include <vector>

namespace folivox {

// What the queue service tells its subscribers: the whole list after a
// change, a running job's progress, a halt, the end of a run.
struct QueueServiceEvent {
    enum class Kind { stateChanged, progress, halted, runFinished };

    Kind kind = Kind::stateChanged;
    std::vector<QueueJob> jobs; // stateChanged
    QUuid jobID;                // progress
    double fraction = 0;        // progress
    QString phase;              // progress
    QString message;            // halted
    QueueRunSummary summary;    // runFinished

    static QueueServiceEvent stateChanged(std::vector<QueueJob> jobs);
    static QueueServiceEvent progress(const QUuid& jobID, double fraction, const QString& phase);
    static QueueServiceEvent halted(const QString& message);
    static QueueServiceEvent runFinished(const QueueRunSummary& summary);
};

} // namespace folivox
