#include "export/strategies/GaplessTimeline.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace folivox {

namespace {

// Samples [from, to) of a piece's source. `toEnd`: the piece runs to the
// source's decoded end, so its length is known only once that decode is.
struct PieceRange {
    std::int64_t from = 0;
    std::int64_t to = 0;
    bool toEnd = false;
};

PieceRange rangeOf(const SegmentPiece& piece, std::int64_t available, int sampleRate)
{
    PieceRange r;
    r.to = available;
    r.toEnd = true;
    if (!piece.fullTrack) {
        r.from = std::clamp<std::int64_t>(std::llround(piece.start * sampleRate), 0, available);
        const double end = piece.start + piece.length;
        r.toEnd = piece.facts.duration > 0 && end >= piece.facts.duration - 0.05;
        if (!r.toEnd)
            r.to = std::clamp<std::int64_t>(std::llround(end * sampleRate), r.from, available);
    }
    return r;
}

} // namespace

GaplessTimeline GaplessTimeline::build(const SegmentPlan& chapterPlan, const QStringList& sources,
                                       const std::vector<std::int64_t>& decodedSamples, int sampleRate)
{
    GaplessTimeline timeline;
    for (const std::vector<int>& segmentsOfChapter : chapterPlan.chapterSegments) {
        timeline.chapterStarts.push_back(timeline.total);
        std::int64_t length = 0;
        for (int index : segmentsOfChapter) {
            for (const SegmentPiece& piece : chapterPlan.segments[std::size_t(index)].pieces) {
                const int source = static_cast<int>(sources.indexOf(piece.path));
                const PieceRange r = rangeOf(piece, decodedSamples[std::size_t(source)], sampleRate);
                if (r.to > r.from) {
                    timeline.stretches.push_back({source, r.from, r.to - r.from});
                    length += r.to - r.from;
                }
            }
        }
        timeline.chapterLengths.push_back(length);
        timeline.total += length;
    }
    return timeline;
}

std::int64_t GaplessTimeline::decodedPrefix(const SegmentPlan& chapterPlan, const QStringList& sources,
                                            const std::vector<std::int64_t>& available, const std::vector<bool>& finished,
                                            int sampleRate)
{
    std::int64_t at = 0;
    for (const std::vector<int>& segmentsOfChapter : chapterPlan.chapterSegments) {
        for (int index : segmentsOfChapter) {
            for (const SegmentPiece& piece : chapterPlan.segments[std::size_t(index)].pieces) {
                const auto source = std::size_t(sources.indexOf(piece.path));
                const std::int64_t have = available[source];
                if (finished[source]) {
                    const PieceRange r = rangeOf(piece, have, sampleRate);
                    at += std::max<std::int64_t>(0, r.to - r.from);
                    continue;
                }
                // Still decoding: the stretch's start is known, its end only
                // when it is a time short of the file's end.
                const PieceRange r = rangeOf(piece, std::numeric_limits<std::int64_t>::max() / 4, sampleRate);
                if (r.toEnd || have < r.to)
                    return at + std::max<std::int64_t>(0, std::min(have, r.to) - r.from);
                at += r.to - r.from;
            }
        }
    }
    return at;
}

} // namespace folivox
