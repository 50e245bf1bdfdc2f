#pragma once

#include <cstdint>
#include <vector>

namespace folivox {

// How an encoder lays audio into packets: every packet holds frameSize
// output samples, and the first packet starts `priming` samples before the
// first input sample (the encoder's delay). ffmpeg's AAC-LC encoder: 1024
// and 1024; HE-AAC encoders use 2048-sample frames.
struct EncoderFraming {
    int frameSize = 1024;
    int priming = 1024;

    bool operator==(const EncoderFraming&) const = default;
};

// One slice of the book's timeline, in output samples. The encoder is fed
// [start - marginBefore, end + marginAfter) of the book's audio; of its
// packets, `keptFrames` starting at `firstKeptFrame` are the slice's own
// (keptFrames < 0: every packet from firstKeptFrame to the end).
struct PlannedSlice {
    int index = 0;
    std::int64_t start = 0;
    std::int64_t end = 0;
    std::int64_t marginBefore = 0;
    std::int64_t marginAfter = 0;
    int firstKeptFrame = 0;
    std::int64_t keptFrames = -1;

    std::int64_t inputStart() const { return start - marginBefore; }
    std::int64_t inputEnd() const { return end + marginAfter; }
    std::int64_t inputLength() const { return inputEnd() - inputStart(); }
};

struct SlicePlan {
    std::vector<PlannedSlice> slices;
    std::int64_t totalSamples = 0;
    int sampleRate = 0;
    EncoderFraming framing;

    // The share of the whole encode that the busiest of `jobs` workers
    // carries when they take the slices in order, each the next one free
    // (how the parallel run hands them out). 1/jobs is the ideal.
    double criticalPath(int jobs) const;
    // Samples encoded in all, margins included.
    std::int64_t encodedSamples() const;
};

// Cuts a book's timeline for the parallel encode by time, not by chapter:
// into more slices than there are jobs (so a slow slice does not leave the
// others idle), with every cut where the encoder's packets of one
// continuous encode would have their boundary. A slice may cross files and
// chapters; the chapter marks do not depend on the slices at all.
//
// Every slice but the first is encoded with real audio before it, and every
// slice but the last with real audio after it, so the encoder's overlapping
// windows and its rate control see what one continuous encode would: the
// packets kept from neighbouring slices then join without a gap or a click.
// Four frames each side measure as enough for ffmpeg's AAC encoder (with
// two, the error in the frames at a join is about 12 dB above the rest).
class SlicePlanner {
public:
    struct Options {
        int jobs = 1;
        int slicesPerJob = 4;
        // Slices are not made shorter than this (seconds), so the margins
        // and the start of each ffmpeg stay a small part of the work.
        double minSliceSeconds = 5.0;
        int marginFrames = 4;
    };

    static SlicePlan plan(std::int64_t totalSamples, int sampleRate, const EncoderFraming& framing,
                          const Options& options);

    // The plan for a timeline of totalSamples that keeps the first `kept`
    // slices of an earlier plan exactly (their cuts, margins and packets:
    // they may be encoded already) and cuts the rest into as many slices
    // more as plan() would make, the last 2 x jobs of them a quarter as long.
    // The earlier plan was made from an estimate of the length, before the
    // sources were decoded; a kept slice must end before totalSamples.
    static SlicePlan keepingLeadingSlices(const SlicePlan& earlier, int kept, std::int64_t totalSamples,
                                          const Options& options);

    // The smallest margin of at least `frames` frames after which an
    // encode's packet boundaries fall on a slice's start.
    static std::int64_t alignedMargin(int frames, const EncoderFraming& framing);

private:
    // Slices between consecutive cuts (0 first, the total last), with their
    // margins and kept packets.
    static SlicePlan fromCuts(const std::vector<std::int64_t>& cuts, int sampleRate, const EncoderFraming& framing,
                              const Options& options);
};

} // namespace folivox
