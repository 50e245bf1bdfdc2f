#pragma once

#include "export/strategies/BaseExportStrategy.h"

namespace folivox {

// One AAC M4B source and nothing to change: the file is copied as it is (the
// kernel's copy, so the audio stays bit-exact and the copy runs at the disk's
// speed), then it gets the book's tags, cover and chapters. Before the copy
// the source's sample tables are read; a source whose structure does not
// hold (no moov, no timescale) raises corruptedSourceRequiresTranscode so the
// driver can encode it instead.
class PassthroughEntireFileStrategy : public BaseExportStrategy {
public:
    using BaseExportStrategy::BaseExportStrategy;

    ExportDecision::Strategy kind() const override { return ExportDecision::Strategy::passthroughEntireFile; }
    ExportOutcome run(ExportContext& context) override;

    // Where each plan chapter begins in the copied output, given where each
    // source file begins (offsets by URL order of the plan), and how long
    // each lasts up to the next; the last ends at `end`.
    static std::vector<ExportedChapter> chaptersAt(const ExportPlanBuilder::Plan& plan,
                                                   const std::vector<double>& fileOffsets, double end);

    // Reads the timing of a source on a copy path; a file that cannot be read
    // raises corruptedSourceRequiresTranscode naming it.
    static SegmentTiming requireReadableSource(const QString& path);
};

} // namespace folivox
