#include "import/ProgressWatchdog.h"

namespace folivox {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

ProgressWatchdog::ProgressWatchdog(milliseconds interval, const QString& firstStage)
    : interval_(interval)
    , lastTick_(Clock::now())
    , stage_(firstStage)
{
}

void ProgressWatchdog::tick(const QString& stage)
{
    std::lock_guard lock(mutex_);
    if (stall_)
        return;  // a stall is final: the caller has already been told
    const auto now = Clock::now();
    const auto gap = duration_cast<milliseconds>(now - lastTick_);
    if (gap > interval_) {
        // The work came back too late; it was stuck all the same.
        stall_ = Stall{stage_, gap};
        return;
    }
    longestInterval_ = std::max(longestInterval_, gap);
    lastTick_ = now;
    stage_ = stage;
    ++ticks_;
}

std::optional<ProgressWatchdog::Stall> ProgressWatchdog::check() const
{
    std::lock_guard lock(mutex_);
    if (stall_)
        return stall_;
    const auto silence = duration_cast<milliseconds>(Clock::now() - lastTick_);
    if (silence > interval_)
        stall_ = Stall{stage_, silence};
    return stall_;
}

QString ProgressWatchdog::stage() const
{
    std::lock_guard lock(mutex_);
    return stage_;
}

int ProgressWatchdog::ticks() const
{
    std::lock_guard lock(mutex_);
    return ticks_;
}

milliseconds ProgressWatchdog::longestInterval() const
{
    std::lock_guard lock(mutex_);
    return longestInterval_;
}

} // namespace folivox
