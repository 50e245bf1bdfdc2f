#include "queue/run/QueueProgressThrottle.h"

#include <cmath>

namespace folivox {

bool QueueProgressThrottle::accept(const QString& phase, double fraction)
{
    const bool take = !phase_ || *phase_ != phase || fraction >= 1.0 || std::abs(fraction - fraction_) >= kStep - 1e-9;
    if (take) {
        phase_ = phase;
        fraction_ = fraction;
    }
    return take;
}

void QueueProgressThrottle::reset()
{
    phase_.reset();
    fraction_ = 0;
}

} // namespace folivox
