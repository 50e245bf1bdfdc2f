#pragma once

#include "export/strategies/BaseExportStrategy.h"
#include "export/strategies/FFmpegAudioEncoder.h"
#include "export/strategies/GaplessSliceEncoder.h"

#include <QElapsedTimer>

#include <functional>
#include <memory>
#include <vector>

namespace folivox {

// Encodes the book into one M4B: the chapters are cut into segments, the
// segments are encoded in parallel, joined by stream copy, and the chapter
// marks are set from the measured lengths of the encoded segments, so they
// stay exact after the encoder's priming and frame rounding have moved the
// audio.
class TranscodeStrategy : public BaseExportStrategy {
public:
    struct Options {
        // Whole-file segments whose source already is what the output wants
        // may be copied. The retry after a corrupted source turns this off.
        bool allowSegmentCopy = true;
    };

    // The audio of one finished (untagged) book file.
    struct EncodedBook {
        QString file;
        std::vector<ExportedChapter> chapters;
        double duration = 0.0;
        int segmentCount = 0;
    };

    using PhaseProgress = std::function<void(ExportPhase phase, double fraction)>;

    TranscodeStrategy(std::shared_ptr<MetadataWritingService> metadataService,
                      std::shared_ptr<const FFmpegAudioEncoder> encoder);
    TranscodeStrategy(std::shared_ptr<MetadataWritingService> metadataService,
                      std::shared_ptr<const FFmpegAudioEncoder> encoder, Options options);

    ExportDecision::Strategy kind() const override { return ExportDecision::Strategy::transcode; }
    ExportOutcome run(ExportContext& context) override;

    // Encodes chapters (planChapters: the plan index of each) into `output`
    // inside workDir, and measures where each chapter begins.
    EncodedBook encodeBook(const ExportContext& context, const std::vector<ChapterInput>& chapters,
                           const std::vector<int>& planChapters, const QString& workDir, const QString& output,
                           const PhaseProgress& progress);

    // Whether a whole-file segment may be stream-copied: the source is AAC
    // in an MP4 file, of the target's codec family, at the output's rate and
    // channel count, not above the target bitrate (unless the source rate is
    // kept), and passthrough is not disabled.
    static bool maySegmentCopy(const SegmentPiece& piece, const FFmpegAudioEncoder::OutputSpec& spec,
                               const ExportSettings& settings);

    const std::shared_ptr<const FFmpegAudioEncoder>& encoder() const { return encoder_; }

private:
    // Whether the gapless encode's work files fit in the work folder's disk.
    static bool gaplessWorkFits(double bookSeconds, const FFmpegAudioEncoder::OutputSpec& spec, const QString& workDir);
    EncodedBook encodeGapless(const ExportContext& context, const std::vector<ChapterInput>& chapters,
                              const std::vector<int>& planChapters, const QHash<QString, SourceFacts>& facts,
                              const FFmpegAudioEncoder::OutputSpec& spec, const QString& workDir,
                              const QString& output, const PhaseProgress& progress, const QElapsedTimer& clock);

    std::shared_ptr<const FFmpegAudioEncoder> encoder_;
    Options options_;
};

} // namespace folivox
