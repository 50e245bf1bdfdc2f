#pragma once

#include "process/CancellationToken.h"

#include <atomic>

namespace folivox {

// A token cancelled by calling cancel(); once cancelled it stays cancelled.
// Safe to cancel and read from any thread.
class ManualCancellationToken final : public CancellationToken {
public:
    void cancel();
    bool isCancelled() const override;

private:
    std::atomic<bool> state_{false};
};

} // namespace folivox
