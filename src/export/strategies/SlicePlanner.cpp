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

namespace {

// The frame-aligned cut nearest to `ideal`: b is a valid cut when b + priming
// is a whole number of frames, where one continuous encode has a packet
// boundary.
std::int64_t alignedCut(double ideal, const EncoderFraming& framing)
{
    const std::int64_t f = std::max(1, framing.frameSize);
    const std::int64_t frame = std::llround((ideal + double(framing.priming)) / double(f));
    return frame * f - framing.priming;
}

int wantedSlices(std::int64_t totalSamples, int sampleRate, const EncoderFraming& framing,
                 const SlicePlanner::Options& options)
{
    const std::int64_t f = std::max(1, framing.frameSize);
    const std::int64_t minLength = std::max<std::int64_t>(f, std::int64_t(options.minSliceSeconds * sampleRate));
    const int jobs = std::max(1, options.jobs);
    const int wanted = jobs == 1 ? 1 : std::max(jobs + 1, jobs * std::max(1, options.slicesPerJob));
    return static_cast<int>(std::clamp<std::int64_t>(totalSamples / minLength, 1, wanted));
}

// Cuts [from, total) into `pieces` near-equal stretches after the cuts given.
void cutEvenly(std::vector<std::int64_t>& cuts, std::int64_t total, int pieces, const EncoderFraming& framing)
{
    const std::int64_t from = cuts.back();
    for (int k = 1; k < pieces; ++k) {
        const std::int64_t cut = alignedCut(double(from) + double(total - from) * k / pieces, framing);
        if (cut > cuts.back() && cut < total)
            cuts.push_back(cut);
    }
    cuts.push_back(total);
}

// Cuts [from, total) into `full` stretches of one share and then `quarters`
// of a quarter share each: the short slices at the end even out workers that
// came to the remainder at different times, to within a quarter share.
void cutWithShortTail(std::vector<std::int64_t>& cuts, std::int64_t total, int full, int quarters,
                      const EncoderFraming& framing)
{
    const std::int64_t from = cuts.back();
    const double share = double(total - from) / (double(full) + 0.25 * double(quarters));
    double at = double(from);
    for (int k = 1; k < full + quarters; ++k) {
        at += k <= full ? share : share / 4;
        const std::int64_t cut = alignedCut(at, framing);
        if (cut > cuts.back() && cut < total)
            cuts.push_back(cut);
    }
    cuts.push_back(total);
}

} // namespace

SlicePlan SlicePlanner::plan(std::int64_t totalSamples, int sampleRate, const EncoderFraming& framing,
                             const Options& options)
{
    const std::int64_t total = std::max<std::int64_t>(0, totalSamples);
    std::vector<std::int64_t> cuts{0};
    cutEvenly(cuts, total, wantedSlices(total, sampleRate, framing, options), framing);
    return fromCuts(cuts, sampleRate, framing, options);
}

SlicePlan SlicePlanner::keepingLeadingSlices(const SlicePlan& earlier, int kept, std::int64_t totalSamples,
                                             const Options& options)
{
    const std::int64_t total = std::max<std::int64_t>(0, totalSamples);
    std::vector<std::int64_t> cuts{0};
    for (int i = 0; i < kept && std::size_t(i) < earlier.slices.size(); ++i) {
        const std::int64_t end = earlier.slices[std::size_t(i)].end;
        if (end >= total)
            break;
        cuts.push_back(end);
    }
    const int keptCount = static_cast<int>(cuts.size()) - 1;
    const int wanted = wantedSlices(total, earlier.sampleRate, earlier.framing, options);
    const int rest = std::max(1, wanted - keptCount);
    // The workers come to the rest at different times (some were decoding):
    // its last slices are a quarter as long, two per job.
    const int jobs = std::max(1, options.jobs);
    const int full = rest - (jobs + 1) / 2;
    if (jobs > 1 && full > 0)
        cutWithShortTail(cuts, total, full, 2 * jobs, earlier.framing);
    else
        cutEvenly(cuts, total, rest, earlier.framing);
    SlicePlan plan = fromCuts(cuts, earlier.sampleRate, earlier.framing, options);
    // Their margins too: an earlier length may have shortened a margin after.
    for (int i = 0; i < keptCount; ++i)
        plan.slices[std::size_t(i)] = earlier.slices[std::size_t(i)];
    return plan;
}

SlicePlan SlicePlanner::fromCuts(const std::vector<std::int64_t>& cuts, int sampleRate, const EncoderFraming& framing,
                                 const Options& options)
{
    SlicePlan plan;
    plan.totalSamples = cuts.back();
    plan.sampleRate = sampleRate;
    plan.framing = framing;
    const std::int64_t f = std::max(1, framing.frameSize);
    const std::int64_t p = framing.priming;
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
