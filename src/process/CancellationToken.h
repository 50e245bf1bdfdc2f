#pragma once

namespace folivox {

// Something a long operation polls to learn that it should stop. Implementations
// are read from any thread; reading never blocks for long.
class CancellationToken {
public:
    virtual ~CancellationToken() = default;

    virtual bool isCancelled() const = 0;

    // A token that is never cancelled, for work that has nobody to cancel it.
    static const CancellationToken& never();
};

} // namespace folivox
