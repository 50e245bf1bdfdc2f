#pragma once

#include "export/engine/ExportProgress.h"

#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace folivox {

// The progress layer of one strategy run. Strategies report how far they are
// within a phase; the coalescer maps that onto the whole build through the
// weights the strategy declared, keeps a high-water mark so the reported
// fraction never goes down (parallel jobs report out of order), and passes a
// report on only when it says something new: a new phase or title, a step of
// at least `minimumStep`, or the end. Thread-safe: reports from parallel jobs
// reach the sink one at a time and in rising order, on the reporting thread.
// The sink must not report back into the same coalescer.
class ProgressCoalescer {
public:
    static constexpr double kDefaultMinimumStep = 0.005;

    explicit ProgressCoalescer(ExportProgressHandler sink = {}, double minimumStep = kDefaultMinimumStep);

    void setSink(ExportProgressHandler sink);

    // The phases of the run in order, each with its share of the whole
    // (shares are normalised to sum to 1). A phase not listed advances
    // nothing: its reports keep the current fraction.
    void setPlan(const std::vector<std::pair<ExportPhase, double>>& weights);

    // Reports progress `phaseFraction` (0...1) within `phase`. An empty title
    // uses the phase's own.
    void report(ExportPhase phase, double phaseFraction, const QString& title = {});
    // Reports an overall fraction directly.
    void reportOverall(ExportPhase phase, double fraction, const QString& title = {});

    // The high-water mark: the largest fraction reported so far.
    double highWaterMark() const;
    // The last report passed to the sink.
    std::optional<ExportProgress> lastForwarded() const;

private:
    void submit(ExportPhase phase, double fraction, const QString& title);

    mutable std::mutex mutex_;
    // Serialises deliveries so the sink sees reports in the order they were made.
    std::mutex deliveryMutex_;
    ExportProgressHandler sink_;
    double minimumStep_;
    std::vector<std::pair<ExportPhase, double>> plan_;
    double highWaterMark_ = 0.0;
    std::optional<ExportProgress> last_;
};

} // namespace folivox
