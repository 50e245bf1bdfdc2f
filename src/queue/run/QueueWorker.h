#pragma once

#include "process/CancellationToken.h"
#include "process/ManualCancellationToken.h"

#include <QByteArray>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace folivox {

// The build worker's side: queued builds in a process of its own, so that
// the queue outlives a build that crashes, and a build never outlives the
// queue. The worker reads orders (QueueBuildOrder JSON, one a line) from
// its input, the pipe from the queue, builds them one after the other with
// the build use-case and writes each build's events (QueueWorkerProtocol)
// through `writeLine`, which may be called from several threads. One worker
// serves a whole run of the queue, so that the process start and what a
// build learns once per process (the ffmpeg encoder list) are paid once.
//
// The end of its input means the queue is done with it or gone (its
// process died, kill -9 included: the kernel closes the pipe): a build
// still running is cancelled, which stops its children and removes its
// work folder and partial output, and the worker ends.
class QueueWorker {
public:
    using WriteLine = std::function<void(const QByteArray&)>;

    explicit QueueWorker(WriteLine writeLine);

    // Builds the orders read from `inputFd` until the input ends or stop()
    // is called. Exit status: 0 when the input ended, 130 when stopped.
    int serve(int inputFd);
    // From any thread (a signal's watcher): cancels the running build and
    // ends serve() once that build has written its end.
    void stop();

    // One build. Exit status: 0 built, 1 failed, 130 cancelled; 2 for an
    // order that cannot be read.
    static int run(const QByteArray& order, std::shared_ptr<const CancellationToken> token, const WriteLine& writeLine);

private:
    // Shared with the thread that reads the input, which may outlive serve().
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<QByteArray> orders;
        bool inputEnded = false;
        bool stopped = false;
        std::shared_ptr<ManualCancellationToken> current;
    };
    static void readInput(int inputFd, std::shared_ptr<State> state);

    WriteLine writeLine_;
    std::shared_ptr<State> state_;
};

} // namespace folivox
