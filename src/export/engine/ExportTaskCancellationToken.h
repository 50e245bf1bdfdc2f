#pragma once

#include "process/CancellationToken.h"

#include <memory>

namespace folivox {

class ExportOperationTask;

// Follows an ExportOperationTask without keeping it alive: cancelled when the
// task has been cancelled, and not cancelled once the task is gone.
class ExportTaskCancellationToken final : public CancellationToken {
public:
    explicit ExportTaskCancellationToken(std::weak_ptr<ExportOperationTask> task) : task_(std::move(task)) {}

    bool isCancelled() const override;

private:
    std::weak_ptr<ExportOperationTask> task_;
};

} // namespace folivox
