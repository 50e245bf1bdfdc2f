#pragma once

#include "export/strategies/GaplessSliceEncoder.h"
#include "export/strategies/GaplessTimeline.h"
#include "export/strategies/SegmentPlanner.h"
#include "export/strategies/SlicePlanner.h"
#include "process/ManualCancellationToken.h"

#include <QStringList>

#include <condition_variable>
#include <exception>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace folivox {

// Runs the slice encodes of a gapless book on `jobs` workers, starting while
// the sources still decode.
//
// While they decode, the workers the decode leaves idle (a book of fewer
// files than jobs) take slices of a plan cut from the length the import
// measured, each once every sample it reads is decoded and its place on the
// timeline is final. The estimated plan's last slice is never taken then:
// its end is a guess. Once the decode is done, settle() keeps the slices
// taken, cuts the rest from the decoded length
// (SlicePlanner::keepingLeadingSlices), and every worker takes from those.
// The first failure stops the others and is thrown by wait().
class ParallelSliceEncoder {
public:
    struct Setup {
        std::shared_ptr<const GaplessSliceEncoder> gapless;
        SegmentPlan chapterPlan; // one segment per chapter
        QStringList sources;     // the files decoded, in decode order
        FFmpegAudioEncoder::OutputSpec spec;
        QString workDir;
        std::int64_t estimatedSamples = 0; // the book's length as imported
        SlicePlanner::Options sliceOptions;
        int jobs = 1;          // workers in all
        int earlyJobs = 0;     // of them, those that may encode while the decode runs
        int threadsPerJob = 1;
        std::shared_ptr<const CancellationToken> token;
        GaplessSliceEncoder::Progress progress; // of the whole encode, from settle() on
    };

    // Starts the workers; they wait for the encoder's framing, then for work.
    ParallelSliceEncoder(Setup setup, std::shared_future<EncoderFraming> framing);
    // Stops every encode still running and waits for the workers.
    ~ParallelSliceEncoder();
    ParallelSliceEncoder(const ParallelSliceEncoder&) = delete;
    ParallelSliceEncoder& operator=(const ParallelSliceEncoder&) = delete;

    // From the decode's threads: source i is decoded whole.
    void sourceDecoded(int source, std::int64_t samples);

    // The decode is done: the plan for the decoded timeline, keeping the
    // slices already taken. Every worker then encodes the rest.
    const SlicePlan& settle(const GaplessTimeline& timeline, const std::vector<GaplessSliceEncoder::DecodedSource>& decoded,
                            const EncoderFraming& framing);

    // Waits for every slice of the settled plan; throws the first failure,
    // or a cancel.
    void wait();

    // Slices taken before settle(), for the log and the tests.
    int takenEarly() const { return takenEarly_; }

private:
    void worker(bool early);
    // The next slice to encode, or -1 when there is none (left, or yet for
    // an early worker). Waits while work may still come.
    int take(std::unique_lock<std::mutex>& lock, bool early);
    // Samples of each source on disk now: all of a finished decode, else
    // what its growing file holds.
    std::vector<std::int64_t> samplesSoFar() const;
    bool readyWhileDecoding(const PlannedSlice& slice) const;
    void encode(int slice, std::unique_lock<std::mutex>& lock);
    void report(int slice, double fraction);

    Setup setup_;
    std::shared_future<EncoderFraming> framing_;
    std::shared_ptr<ManualCancellationToken> stop_;
    std::shared_ptr<const CancellationToken> token_; // the user's or stop_

    std::mutex mutex_;
    std::condition_variable changed_;
    bool planned_ = false;
    bool settled_ = false;
    bool closing_ = false;
    SlicePlan plan_;
    GaplessTimeline timeline_;                               // once settled
    std::vector<GaplessSliceEncoder::DecodedSource> decoded_; // once settled
    int next_ = 0;
    int running_ = 0;
    int done_ = 0;
    int takenEarly_ = 0;
    std::exception_ptr firstError_;
    std::vector<bool> finished_;
    std::vector<std::int64_t> finishedSamples_;
    std::vector<double> progress_;
    std::vector<bool> completed_;
    std::vector<std::thread> workers_;
};

} // namespace folivox
