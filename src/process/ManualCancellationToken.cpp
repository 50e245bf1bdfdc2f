#include "process/ManualCancellationToken.h"

namespace folivox {

void ManualCancellationToken::cancel()
{
    state_.store(true, std::memory_order_release);
}

bool ManualCancellationToken::isCancelled() const
{
    return state_.load(std::memory_order_acquire);
}

} // namespace folivox
