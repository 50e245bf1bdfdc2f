#include "export/engine/ExportOperationTask.h"

namespace folivox {

void ExportOperationTask::cancel()
{
    std::function<void()> callback;
    {
        std::lock_guard lock(mutex_);
        if (cancelled_)
            return;
        cancelled_ = true;
        callback = std::move(onCancel_);
        onCancel_ = nullptr;
    }
    if (callback)
        callback();
}

bool ExportOperationTask::isCancelled() const
{
    std::lock_guard lock(mutex_);
    return cancelled_;
}

void ExportOperationTask::setOnCancel(std::function<void()> onCancel)
{
    {
        std::lock_guard lock(mutex_);
        if (!cancelled_) {
            onCancel_ = std::move(onCancel);
            return;
        }
    }
    if (onCancel)
        onCancel();
}

} // namespace folivox
