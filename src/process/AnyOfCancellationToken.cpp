#include "process/AnyOfCancellationToken.h"

#include <algorithm>

namespace folivox {

AnyOfCancellationToken::AnyOfCancellationToken(std::vector<std::shared_ptr<const CancellationToken>> tokens)
    : tokens_(std::move(tokens))
{
    // A missing member can never cancel; dropping it keeps isCancelled() simple.
    std::erase(tokens_, nullptr);
}

bool AnyOfCancellationToken::isCancelled() const
{
    return std::any_of(tokens_.begin(), tokens_.end(), [](const auto& t) { return t->isCancelled(); });
}

} // namespace folivox
