#pragma once

#include <QString>

namespace folivox {

// Keeps the machine from sleeping while it lives (one build). On Linux it
// takes a logind "sleep:idle" inhibitor lock over the system D-Bus and holds
// its file descriptor; where there is no system bus or logind refuses, it
// does nothing. It never fails the work it guards.
class SleepInhibitor {
public:
    explicit SleepInhibitor(const QString& reason);
    ~SleepInhibitor();
    SleepInhibitor(const SleepInhibitor&) = delete;
    SleepInhibitor& operator=(const SleepInhibitor&) = delete;

    bool isHeld() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace folivox
