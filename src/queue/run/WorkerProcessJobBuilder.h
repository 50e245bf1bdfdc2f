#pragma once

#include "queue/run/QueueJobBuilder.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <memory>
#include <thread>

namespace folivox {

// Builds each job in a worker process (QueueWorker) started from `program`
// with `arguments`: a build that crashes costs one attempt, not the queue.
// The worker is started for the first build of a run and serves the run's
// later builds too (one order a line on its input); a worker that crashed,
// or was stopped by a cancel, is replaced at the next build, and runEnded()
// (or the builder's end) closes its input, which ends it.
//
// The worker is bound to this process's life twice over: the kernel sends
// it SIGTERM when the thread that started it ends (kill -9 of the queue
// included), and the end of its input (the pipe closes when this process
// dies) tells it the same; it then stops its own children and removes its
// work folder and partial output. A cancel sends SIGTERM, and SIGKILL if
// the worker is still there after the grace.
class WorkerProcessJobBuilder final : public QueueJobBuilder {
public:
    static constexpr std::chrono::milliseconds kDefaultGrace{10000};

    WorkerProcessJobBuilder(QString program, QStringList arguments, std::chrono::milliseconds grace = kDefaultGrace);
    ~WorkerProcessJobBuilder() override;

    // Calls for one builder come from one thread at a time (the queue's run
    // thread); a call from another thread than the one that started the
    // worker starts a new worker.
    Built build(const QueueBuildOrder& order, std::shared_ptr<const CancellationToken> token,
                const BuildUseCase::Sinks& sinks) override;
    void runEnded() override;

    // The process ID of the worker kept for the next build; 0 when none.
    qint64 workerProcessId() const;

private:
    struct Worker;
    void startWorker();
    // Closes the worker's input and waits for it to end (SIGKILL after the grace).
    void endWorker();

    QString program_;
    QStringList arguments_;
    std::chrono::milliseconds grace_;
    std::unique_ptr<Worker> worker_;
};

} // namespace folivox
