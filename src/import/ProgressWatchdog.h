#pragma once

#include <QString>

#include <chrono>
#include <mutex>
#include <optional>

namespace folivox {

// Tells a slow piece of work from a stuck one. The work ticks at each step it
// completes; when the interval passes with no tick the watchdog reports a
// stall, and stays stalled from then on. The clock is the monotonic one, which
// does not advance while the machine sleeps, so a laptop lid closed during an
// import does not fail the file that was loading. Thread-safe.
class ProgressWatchdog {
public:
    using Clock = std::chrono::steady_clock;

    struct Stall {
        QString stage;
        std::chrono::milliseconds silence{0};
    };

    explicit ProgressWatchdog(std::chrono::milliseconds interval,
                              const QString& firstStage = QStringLiteral("opening asset"));

    // Progress: the work has entered this stage.
    void tick(const QString& stage);

    // The stall, if the interval has passed since the last tick (or one was
    // seen before).
    std::optional<Stall> check() const;
    bool hasStalled() const { return check().has_value(); }

    std::chrono::milliseconds interval() const { return interval_; }
    QString stage() const;
    int ticks() const;
    // The longest gap between two ticks so far (the last one still running
    // is not counted).
    std::chrono::milliseconds longestInterval() const;

private:
    const std::chrono::milliseconds interval_;
    mutable std::mutex mutex_;
    Clock::time_point lastTick_;
    QString stage_;
    int ticks_ = 0;
    std::chrono::milliseconds longestInterval_{0};
    mutable std::optional<Stall> stall_;
};

} // namespace folivox
