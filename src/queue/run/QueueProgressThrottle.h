#pragma once

#include <QString>

#include <optional>

namespace folivox {

// Decides which progress reports of a build are worth passing on: a report
// is taken when its phase text differs from the last one taken, when it
// reaches 1.0, or when its fraction moved by 0.005 or more since the last
// one taken; the rest are dropped.
class QueueProgressThrottle {
public:
    static constexpr double kStep = 0.005;

    bool accept(const QString& phase, double fraction);
    void reset();

private:
    std::optional<QString> phase_;
    double fraction_ = 0;
};

} // namespace folivox
