#include "export/engine/ProgressCoalescer.h"

#include <algorithm>
#include <cmath>

namespace folivox {

ProgressCoalescer::ProgressCoalescer(ExportProgressHandler sink, double minimumStep)
    : sink_(std::move(sink))
    , minimumStep_(minimumStep)
{
}

void ProgressCoalescer::setSink(ExportProgressHandler sink)
{
    std::lock_guard lock(mutex_);
    sink_ = std::move(sink);
}

void ProgressCoalescer::setPlan(const std::vector<std::pair<ExportPhase, double>>& weights)
{
    double total = 0;
    for (const auto& [phase, weight] : weights)
        total += std::max(0.0, weight);
    std::lock_guard lock(mutex_);
    plan_.clear();
    for (const auto& [phase, weight] : weights)
        plan_.emplace_back(phase, total > 0 ? std::max(0.0, weight) / total : 0.0);
}

void ProgressCoalescer::report(ExportPhase phase, double phaseFraction, const QString& title)
{
    if (!std::isfinite(phaseFraction))
        phaseFraction = 0;
    phaseFraction = std::clamp(phaseFraction, 0.0, 1.0);
    double overall = -1;
    {
        std::lock_guard lock(mutex_);
        double start = 0;
        for (const auto& [p, share] : plan_) {
            if (p == phase) {
                overall = start + share * phaseFraction;
                break;
            }
            start += share;
        }
        if (overall < 0)
            overall = highWaterMark_;
    }
    submit(phase, overall, title);
}

void ProgressCoalescer::reportOverall(ExportPhase phase, double fraction, const QString& title)
{
    if (!std::isfinite(fraction))
        fraction = 0;
    submit(phase, std::clamp(fraction, 0.0, 1.0), title);
}

void ProgressCoalescer::submit(ExportPhase phase, double fraction, const QString& title)
{
    std::lock_guard delivery(deliveryMutex_);
    ExportProgress progress;
    ExportProgressHandler sink;
    {
        std::lock_guard lock(mutex_);
        highWaterMark_ = std::max(highWaterMark_, fraction);
        progress.phase = phase;
        progress.fraction = highWaterMark_;
        progress.title = title.isEmpty() ? exportPhaseTitle(phase) : title;
        const bool news = !last_ || last_->phase != progress.phase || last_->title != progress.title
            || progress.fraction - last_->fraction >= minimumStep_
            || (progress.fraction >= 1.0 && last_->fraction < 1.0);
        if (!news)
            return;
        last_ = progress;
        sink = sink_;
    }
    if (sink)
        sink(progress);
}

double ProgressCoalescer::highWaterMark() const
{
    std::lock_guard lock(mutex_);
    return highWaterMark_;
}

std::optional<ExportProgress> ProgressCoalescer::lastForwarded() const
{
    std::lock_guard lock(mutex_);
    return last_;
}

} // namespace folivox
