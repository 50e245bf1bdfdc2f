#pragma once

#include "queue/QueueJobBuilder.h"

#include <QString>
#include <QStringList>

#include <chrono>

namespace folivox {

// Builds each job in a worker process (QueueWorker) started from `program`
// with `arguments`: a build that crashes costs one attempt, not the queue.
// The worker is bound to this process's life: the kernel sends it SIGTERM
// when the thread that started it dies (kill -9 of the queue included), and
// it then stops its own children and removes its partial output. A cancel
// sends SIGTERM, and SIGKILL if the worker is still there after the grace.
class WorkerProcessJobBuilder final : public QueueJobBuilder {
public:
    static constexpr std::chrono::milliseconds kDefaultGrace{10000};

    WorkerProcessJobBuilder(QString program, QStringList arguments, std::chrono::milliseconds grace = kDefaultGrace);

    Built build(const QueueBuildOrder& order, std::shared_ptr<const CancellationToken> token,
                const BuildUseCase::Sinks& sinks) override;

private:
    QString program_;
    QStringList arguments_;
    std::chrono::milliseconds grace_;
};

} // namespace folivox
