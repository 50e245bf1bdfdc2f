#pragma once

#include "export/strategies/GaplessSliceEncoder.h"
#include "export/strategies/SegmentPlanner.h"

#include <QStringList>

#include <cstdint>
#include <vector>

namespace folivox {

// The book's timeline as stretches of decoded sources, in output samples: a
// whole file is all of its decoded audio, a stretch of a file its times at
// the output rate (a stretch that reaches the file's end within 50 ms runs
// to its decoded end). Also where each chapter starts on that timeline, and
// its length.
struct GaplessTimeline {
    std::vector<GaplessSliceEncoder::Stretch> stretches;
    std::vector<std::int64_t> chapterStarts;
    std::vector<std::int64_t> chapterLengths;
    std::int64_t total = 0;

    // chapterPlan: one segment per chapter; sources: the decoded files in
    // the order of decodedSamples.
    static GaplessTimeline build(const SegmentPlan& chapterPlan, const QStringList& sources,
                                 const std::vector<std::int64_t>& decodedSamples, int sampleRate);

    // While the sources still decode: how many samples from the timeline's
    // start are already final and on disk. available: samples written so far
    // per source; finished: whether its decode is complete. The prefix ends
    // where a stretch's place or length still waits on a decode.
    static std::int64_t decodedPrefix(const SegmentPlan& chapterPlan, const QStringList& sources,
                                      const std::vector<std::int64_t>& available, const std::vector<bool>& finished,
                                      int sampleRate);
};

} // namespace folivox
