#pragma once

#include <functional>
#include <mutex>

namespace folivox {

// The handle a caller keeps for one running build. Cancelling it is seen by
// every ExportTaskCancellationToken made from it.
class ExportOperationTask {
public:
    ExportOperationTask() = default;
    ExportOperationTask(const ExportOperationTask&) = delete;
    ExportOperationTask& operator=(const ExportOperationTask&) = delete;

    // Marks the task cancelled and runs the onCancel callback once (outside
    // the lock). Later calls do nothing.
    void cancel();
    bool isCancelled() const;

    // A callback run when the task is cancelled; runs at once when it already is.
    void setOnCancel(std::function<void()> onCancel);

private:
    mutable std::mutex mutex_;
    bool cancelled_ = false;
    std::function<void()> onCancel_;
};

} // namespace folivox
