#include "export/strategies/SlicePlanner.h"

#include <algorithm>
#include <cmath>

namespace folivox {

std::int64_t SlicePlanner::alignedMargin(int frames, const EncoderFraming& framing)
{
    const std::int64_t f = std::max(1, framing.frameSize);
    const std::int64_t wanted = std::int64_t(std::max(0, frames)) * f;
    const std::int64_t rest = (wanted + framing.priming) % f;
    return rest == 0 ? wanted : wanted + (f - rest);
}

SlicePlan SlicePlanner::plan(std::int64_t totalSamples, int sampleRate, const EncoderFraming& framing,
                             const Options& options)
{
    SlicePlan plan;
    plan.totalSamples = std::max<std::int64_t>(0, totalSamples);
    plan.sampleRate = sampleRate;
    plan.framing = framing;
    const std::int64_t f = std::max(1, framing.frameSize);
    const std::int64_t p = framing.priming;

    // A cut b is valid when b + priming is a whole number of frames: there a
    // continuous encode has a packet boundary.
    const std::int64_t minLength = std::max<std::int64_t>(f, std::int64_t(options.minSliceSeconds * sampleRate));
    const int jobs = std::max(1, options.jobs);
    int wanted = jobs == 1 ? 1 : std::max(jobs + 1, jobs * std::max(1, options.slicesPerJob));
    wanted = static_cast<int>(std::clamp<std::int64_t>(plan.totalSamples / minLength, 1, wanted));

    std::vector<std::int64_t> cuts{0};
    for (int k = 1; k < wanted; ++k) {
        const double ideal = double(plan.totalSamples) * k / wanted;
        const std::int64_t frame = std::llround((ideal + double(p)) / double(f));
        const std::int64_t cut = frame * f - p;
        if (cut > cuts.back() && cut < plan.totalSamples)
            cuts.push_back(cut);
    }
    cuts.push_back(plan.totalSamples);

    const std::int64_t margin = alignedMargin(options.marginFrames, framing);
    const int count = static_cast<int>(cuts.size()) - 1;
    for (int i = 0; i < count; ++i) {
        PlannedSlice s;
        s.index = i;
        s.start = cuts[std::size_t(i)];
        s.end = cuts[std::size_t(i) + 1];
        const bool first = i == 0;
        const bool last = i + 1 == count;
        if (first) {
            // The book's own start: the encoder's priming packet stays, and
            // the file's edit list skips it.
            s.marginBefore = 0;
            s.firstKeptFrame = 0;
        } else {
            // A start closer to the book's start than the margin takes what
            // there is: the start itself is aligned, so the margin is too.
            s.marginBefore = std::min(margin, s.start);
            s.firstKeptFrame = static_cast<int>((s.marginBefore + p) / f);
        }
        s.marginAfter = last ? 0 : std::min(std::int64_t(options.marginFrames) * f, plan.totalSamples - s.end);
        if (last)
            s.keptFrames = -1;
        else
            s.keptFrames = first ? (s.end + p) / f : (s.end - s.start) / f;
        plan.slices.push_back(s);
    }
    return plan;
}

std::int64_t SlicePlan::encodedSamples() const
{
    std::int64_t sum = 0;
    for (const PlannedSlice& s : slices)
        sum += s.inputLength();
    return sum;
}

double SlicePlan::criticalPath(int jobs) const
{
    const std::int64_t total = encodedSamples();
    if (total <= 0 || slices.empty())
        return 1.0;
    std::vector<std::int64_t> load(std::size_t(std::max(1, jobs)), 0);
    for (const PlannedSlice& s : slices) {
        auto it = std::min_element(load.begin(), load.end());
        *it += s.inputLength();
    }
    return double(*std::max_element(load.begin(), load.end())) / double(total);
}

} // namespace folivox
