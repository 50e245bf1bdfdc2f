#include "export/strategies/ParallelSliceEncoder.h"

#include "export/strategies/FFmpegEncoderError.h"
#include "platform/Log.h"
#include "process/AnyOfCancellationToken.h"

#include <QFileInfo>

#include <algorithm>
#include <chrono>

namespace folivox {

namespace {

// How often an early worker looks at the growing decoded files.
constexpr auto kPoll = std::chrono::milliseconds(20);

} // namespace

ParallelSliceEncoder::ParallelSliceEncoder(Setup setup, std::shared_future<EncoderFraming> framing)
    : setup_(std::move(setup)), framing_(std::move(framing)), stop_(std::make_shared<ManualCancellationToken>()),
      finished_(std::size_t(setup_.sources.size()), false), finishedSamples_(std::size_t(setup_.sources.size()), 0)
{
    std::vector<std::shared_ptr<const CancellationToken>> tokens{stop_};
    if (setup_.token)
        tokens.push_back(setup_.token);
    token_ = std::make_shared<AnyOfCancellationToken>(std::move(tokens));
    const int jobs = std::max(1, setup_.jobs);
    for (int i = 0; i < jobs; ++i)
        workers_.emplace_back([this, early = i < setup_.earlyJobs] { worker(early); });
}

ParallelSliceEncoder::~ParallelSliceEncoder()
{
    {
        std::lock_guard lock(mutex_);
        closing_ = true;
    }
    stop_->cancel();
    changed_.notify_all();
    for (std::thread& t : workers_)
        if (t.joinable())
            t.join();
}

void ParallelSliceEncoder::sourceDecoded(int source, std::int64_t samples)
{
    {
        std::lock_guard lock(mutex_);
        finished_[std::size_t(source)] = true;
        finishedSamples_[std::size_t(source)] = samples;
    }
    changed_.notify_all();
}

const SlicePlan& ParallelSliceEncoder::settle(const GaplessTimeline& timeline,
                                              const std::vector<GaplessSliceEncoder::DecodedSource>& decoded,
                                              const EncoderFraming& framing)
{
    std::lock_guard lock(mutex_);
    takenEarly_ = planned_ ? next_ : 0;
    if (takenEarly_ > 0) {
        const SlicePlan settled = SlicePlanner::keepingLeadingSlices(plan_, takenEarly_, timeline.total, setup_.sliceOptions);
        // A slice is taken early only when all it reads is decoded, so it
        // ends inside the decoded timeline and is kept.
        if (settled.slices.size() <= std::size_t(takenEarly_)
            || settled.slices[std::size_t(takenEarly_ - 1)].end != plan_.slices[std::size_t(takenEarly_ - 1)].end)
            throw FFmpegEncoderError::executionFailed(QStringLiteral("The slices encoded ahead do not fit the decoded audio"));
        plan_ = settled;
        Log::write(QStringLiteral("[BatchEncoding] %1 slice(s) started while the sources decoded").arg(takenEarly_));
    } else {
        plan_ = SlicePlanner::plan(timeline.total, setup_.spec.sampleRate.value_or(44100), framing, setup_.sliceOptions);
        next_ = 0;
    }
    planned_ = true;
    settled_ = true;
    timeline_ = timeline;
    decoded_ = decoded;
    const int count = static_cast<int>(plan_.slices.size());
    Log::write(QStringLiteral("[BatchEncoding] Starting parallel encoding: %1 segments, concurrency=%2, threadsPerJob=%3")
                   .arg(count)
                   .arg(std::min(setup_.jobs, count))
                   .arg(setup_.threadsPerJob));
    Log::write(QStringLiteral("[BatchEncoding] Slices of ~%1 s, margins %2 samples, encoded %3 of %4 samples, critical path %5")
                   .arg(count > 0 ? double(plan_.totalSamples) / count / plan_.sampleRate : 0.0, 0, 'f', 1)
                   .arg(SlicePlanner::alignedMargin(setup_.sliceOptions.marginFrames, plan_.framing))
                   .arg(plan_.encodedSamples())
                   .arg(plan_.totalSamples)
                   .arg(plan_.criticalPath(setup_.jobs), 0, 'f', 3));
    progress_.assign(plan_.slices.size(), 0.0);
    for (std::size_t i = 0; i < completed_.size() && i < progress_.size(); ++i)
        progress_[i] = completed_[i] ? 1.0 : 0.0;
    changed_.notify_all();
    return plan_;
}

void ParallelSliceEncoder::wait()
{
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] {
            return (settled_ && next_ >= static_cast<int>(plan_.slices.size()) && running_ == 0)
                   || (firstError_ && running_ == 0);
        });
        closing_ = true;
    }
    changed_.notify_all();
    for (std::thread& t : workers_)
        if (t.joinable())
            t.join();
    Log::write(QStringLiteral("[BatchEncoding] All operations finished: completed=%1 errors=%2")
                   .arg(done_)
                   .arg(firstError_ ? 1 : 0));
    if (setup_.token && setup_.token->isCancelled())
        throw FFmpegEncoderError::cancelled();
    if (firstError_)
        std::rethrow_exception(firstError_);
}

std::vector<std::int64_t> ParallelSliceEncoder::samplesSoFar() const
{
    const int channels = setup_.spec.channels.value_or(2);
    std::vector<std::int64_t> available(std::size_t(setup_.sources.size()), 0);
    for (int i = 0; i < setup_.sources.size(); ++i)
        available[std::size_t(i)] = finished_[std::size_t(i)]
                                        ? finishedSamples_[std::size_t(i)]
                                        : QFileInfo(GaplessSliceEncoder::pcmPath(setup_.workDir, i)).size() / (2 * std::int64_t(channels));
    return available;
}

bool ParallelSliceEncoder::readyWhileDecoding(const PlannedSlice& slice) const
{
    return slice.inputEnd() <= GaplessTimeline::decodedPrefix(setup_.chapterPlan, setup_.sources, samplesSoFar(), finished_,
                                                                plan_.sampleRate);
}

int ParallelSliceEncoder::take(std::unique_lock<std::mutex>& lock, bool early)
{
    for (;;) {
        if (closing_ || firstError_)
            return -1;
        if (settled_)
            return next_ < static_cast<int>(plan_.slices.size()) ? next_++ : -1;
        // Before settle(): only early workers, never the last slice, and only
        // audio already decoded.
        if (early && planned_ && next_ + 1 < static_cast<int>(plan_.slices.size())
            && readyWhileDecoding(plan_.slices[std::size_t(next_)]))
            return next_++;
        if (early)
            changed_.wait_for(lock, kPoll);
        else
            changed_.wait(lock);
    }
}

void ParallelSliceEncoder::encode(int slice, std::unique_lock<std::mutex>& lock)
{
    // Before settle() the timeline is the decoded part; the slice reads
    // only within it.
    GaplessTimeline timeline = timeline_;
    std::vector<GaplessSliceEncoder::DecodedSource> sources = decoded_;
    if (!settled_) {
        const std::vector<std::int64_t> available = samplesSoFar();
        sources.clear();
        for (int i = 0; i < setup_.sources.size(); ++i)
            sources.push_back({setup_.sources[i], GaplessSliceEncoder::pcmPath(setup_.workDir, i), available[std::size_t(i)]});
        timeline = GaplessTimeline::build(setup_.chapterPlan, setup_.sources, available, plan_.sampleRate);
    }
    const SlicePlan plan = plan_;
    ++running_;
    lock.unlock();
    std::exception_ptr error;
    try {
        setup_.gapless->encodeSlice(plan, slice, timeline.stretches, sources, setup_.spec, setup_.workDir,
                                    setup_.threadsPerJob, *token_, [this, slice](double f) { report(slice, f); });
        Log::write(QStringLiteral("[BatchEncoding] Segment[%1] completed OK").arg(slice));
        report(slice, 1.0);
    } catch (...) {
        error = std::current_exception();
    }
    lock.lock();
    --running_;
    if (error) {
        const bool cancelled = FFmpegAudioEncoder::isCancellation(error);
        Log::write(QStringLiteral("[BatchEncoding] Segment[%1] %2").arg(slice).arg(cancelled ? QStringLiteral("cancelled")
                                                                                               : QStringLiteral("FAILED")));
        if (!firstError_) {
            firstError_ = error;
            if (!cancelled)
                Log::write(QStringLiteral("[BatchEncoding] First error — cancelling remaining operations"));
            stop_->cancel();
        }
    } else {
        ++done_;
        if (std::size_t(slice) >= completed_.size())
            completed_.resize(std::size_t(slice) + 1, false);
        completed_[std::size_t(slice)] = true;
    }
    changed_.notify_all();
}

void ParallelSliceEncoder::report(int slice, double fraction)
{
    if (!setup_.progress)
        return;
    double sum = 0;
    double total = 0;
    {
        std::lock_guard lock(mutex_);
        if (!settled_ || std::size_t(slice) >= progress_.size())
            return;
        progress_[std::size_t(slice)] = std::max(progress_[std::size_t(slice)], fraction);
        for (std::size_t k = 0; k < plan_.slices.size(); ++k) {
            sum += progress_[k] * double(plan_.slices[k].inputLength());
            total += double(plan_.slices[k].inputLength());
        }
    }
    setup_.progress(std::clamp(sum / std::max(1.0, total), 0.0, 1.0));
}

void ParallelSliceEncoder::worker(bool early)
{
    EncoderFraming framing;
    try {
        framing = framing_.get();
    } catch (...) {
        // The main thread meets the same failure and reports it; this worker
        // still serves the settled plan.
    }
    std::unique_lock lock(mutex_);
    if (!planned_ && !settled_) {
        plan_ = SlicePlanner::plan(setup_.estimatedSamples, setup_.spec.sampleRate.value_or(44100), framing,
                                   setup_.sliceOptions);
        planned_ = true;
    }
    for (;;) {
        const int slice = take(lock, early);
        if (slice < 0)
            return;
        encode(slice, lock);
    }
}

} // namespace folivox
