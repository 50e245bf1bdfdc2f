#include "queue/records/QueueServiceEvent.h"

namespace folivox {

QueueServiceEvent QueueServiceEvent::stateChanged(std::vector<QueueJob> jobs)
{
    QueueServiceEvent e;
    e.kind = Kind::stateChanged;
    e.jobs = std::move(jobs);
    return e;
}

QueueServiceEvent QueueServiceEvent::progress(const QUuid& jobID, double fraction, const QString& phase)
{
    QueueServiceEvent e;
    e.kind = Kind::progress;
    e.jobID = jobID;
    e.fraction = fraction;
    e.phase = phase;
    return e;
}

QueueServiceEvent QueueServiceEvent::halted(const QString& message)
{
    QueueServiceEvent e;
    e.kind = Kind::halted;
    e.message = message;
    return e;
}

QueueServiceEvent QueueServiceEvent::runFinished(const QueueRunSummary& summary)
{
    QueueServiceEvent e;
    e.kind = Kind::runFinished;
    e.summary = summary;
    return e;
}

} // namespace folivox
