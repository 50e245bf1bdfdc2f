#include "export/engine/ExportTaskCancellationToken.h"

#include "export/engine/ExportOperationTask.h"

namespace folivox {

bool ExportTaskCancellationToken::isCancelled() const
{
    const std::shared_ptr<ExportOperationTask> task = task_.lock();
    return task && task->isCancelled();
}

} // namespace folivox
