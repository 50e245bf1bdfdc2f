#pragma once

#include "cli/SignalCancellation.h"
#include "process/ManualCancellationToken.h"

#include <memory>

namespace folivox::cli {

// Cancels a token when the user interrupts or terminates the program, for
// as long as the object lives.
class CancelOnSignal {
public:
    explicit CancelOnSignal(std::shared_ptr<ManualCancellationToken> token)
    {
        SignalCancellation::install();
        id_ = SignalCancellation::onCancel([token] { token->cancel(); });
    }
    ~CancelOnSignal() { SignalCancellation::removeCallback(id_); }
    CancelOnSignal(const CancelOnSignal&) = delete;
    CancelOnSignal& operator=(const CancelOnSignal&) = delete;

private:
    int id_ = 0;
};

} // namespace folivox::cli
