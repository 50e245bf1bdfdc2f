#pragma once

#include "process/CancellationToken.h"

#include <QByteArray>

#include <functional>
#include <memory>

namespace folivox {

// The build worker's side: one queued build in a process of its own, so that
// the queue outlives a build that crashes, and a build never outlives the
// queue (the worker is asked to stop when the queue's process dies). Reads
// the order (QueueBuildOrder JSON), builds it with the build use-case and
// writes its events (QueueWorkerProtocol) through `writeLine`, which may be
// called from several threads.
class QueueWorker {
public:
    // Exit status: 0 built, 1 failed, 130 cancelled; 2 for an order that
    // cannot be read.
    static int run(const QByteArray& order, std::shared_ptr<const CancellationToken> token,
                   const std::function<void(const QByteArray&)>& writeLine);
};

} // namespace folivox
