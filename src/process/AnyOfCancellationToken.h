#pragma once

#include "process/CancellationToken.h"

#include <memory>
#include <vector>

namespace folivox {

// Cancelled as soon as any of its member tokens is. Used to combine the
// user's cancel of one build with a program-wide cancel (SIGINT, queue stop).
class AnyOfCancellationToken final : public CancellationToken {
public:
    AnyOfCancellationToken() = default;
    explicit AnyOfCancellationToken(std::vector<std::shared_ptr<const CancellationToken>> tokens);

    bool isCancelled() const override;

    const std::vector<std::shared_ptr<const CancellationToken>>& tokens() const { return tokens_; }

private:
    std::vector<std::shared_ptr<const CancellationToken>> tokens_;
};

} // namespace folivox
