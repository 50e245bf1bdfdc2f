#pragma once

#include "export/strategies/BaseExportStrategy.h"
#include "export/strategies/TranscodeStrategy.h"

#include <memory>
#include <vector>

namespace folivox {

// Encodes the book into several M4B parts, each no longer than the settings
// allow (splitHours, or splitSizeMB at the encoded bitrate). Parts are
// balanced in length; with snapToChapters a part ends on the chapter
// boundary nearest its share, and only a chapter longer than a whole part is
// cut. Each part is built as TranscodeStrategy builds a book, named
// "<name> - Part N.m4b" beside the requested output, and titled
// "<title> (Part N)". Parts already standing there are moved aside while the
// new ones are put in place, and put back if that fails.
class SplitTranscodeStrategy : public BaseExportStrategy {
public:
    // One chapter's stretch [from, to) of its own timeline within a part.
    struct Slice {
        int chapter = 0;
        double from = 0.0;
        double to = 0.0;
    };
    struct Part {
        std::vector<Slice> slices;
        double duration = 0.0;
    };

    SplitTranscodeStrategy(std::shared_ptr<MetadataWritingService> metadataService,
                           std::shared_ptr<const FFmpegAudioEncoder> encoder);

    ExportDecision::Strategy kind() const override { return ExportDecision::Strategy::splitTranscode; }
    ExportOutcome run(ExportContext& context) override;

    // The longest a part may be, in seconds. Throws ExportSettingsError for
    // a split without a positive length.
    static double partLimitSeconds(const ExportSettings& settings, int bitrateKbps);

    // Shares chapters of these lengths out into parts of at most `limit`
    // seconds. Throws ExportError::validationFailed when a part still comes
    // out too long.
    static std::vector<Part> planParts(const std::vector<double>& chapterLengths, double limit, bool snapToChapters);

    // The stretch [from, to) of a chapter's own timeline as a chapter of its own.
    static ChapterInput slice(const ChapterInput& chapter, double from, double to,
                              const QHash<QString, SourceFacts>& facts);
    // A chapter's length: the sum of its stretches.
    static double chapterLength(const ChapterInput& chapter, const QHash<QString, SourceFacts>& facts);

    // "<dir>/<base> - Part N.<ext>" for output "<dir>/<base>.<ext>".
    static QString partPath(const QString& output, int number);
    // "%@ (Part %d)" (key "export.split.chapter.part").
    static QString partTitle(const QString& title, int number);

private:
    std::shared_ptr<const FFmpegAudioEncoder> encoder_;
};

} // namespace folivox
