#include "process/CancellationToken.h"

namespace folivox {

namespace {
class NeverCancelledToken final : public CancellationToken {
public:
    bool isCancelled() const override { return false; }
};
} // namespace

const CancellationToken& CancellationToken::never()
{
    static const NeverCancelledToken token;
    return token;
}

} // namespace folivox
