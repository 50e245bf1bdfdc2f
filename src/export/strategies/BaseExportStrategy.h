#pragma once

#include "core/chapters/ChapterInfo.h"
#include "export/strategies/ExportStrategy.h"
#include "export/engine/FilePlacement.h"
#include "export/strategies/FFmpegAudioEncoder.h"
#include "export/metadata/MetadataWritingService.h"
#include "export/engine/ProgressCoalescer.h"
#include "export/strategies/SegmentPlanner.h"
#include "platform/WorkDirectory.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QString>

#include <memory>
#include <utility>
#include <vector>

namespace folivox {

// What the strategies share: the progress layer, the encoding settings, the
// cover, the closing work on a finished file (tags, cover and chapters, moov
// to the front) and putting the file in its place without ever writing over
// one of the book's sources.
class BaseExportStrategy : public ExportStrategy {
public:
    // metadataService may be null: the files then get no tags or chapters
    // (logged), which tests of the audio path use.
    explicit BaseExportStrategy(std::shared_ptr<MetadataWritingService> metadataService);

    // The encoding a build with these settings uses: the effective bitrate
    // (the source's for keepSourceBitrate), and channels and sample rate from
    // the settings; where the settings leave them to the sources and the
    // sources differ, the common format the sources are brought to.
    static FFmpegAudioEncoder::OutputSpec resolveOutputSpec(const ExportContext& context,
                                                            const QHash<QString, SourceFacts>& facts);

    // Chapter titles and artwork of the plan's chapters.
    static QList<ChapterInfo> chapterInfos(const ExportContext& context, const std::vector<ExportedChapter>& chapters);

    // The file names of an output (its last path component), for logs.
    static QString fileName(const QString& path);

    // Copies a file in pieces, checking the token between them; reports the
    // fraction copied. Uses the kernel's copy where it can. Throws
    // ExportError::cancelled, or GenericError naming the file.
    static void copyFile(const QString& source, const QString& target, const CancellationToken& token,
                         const std::function<void(double)>& progress = {});

protected:
    // The run's own folder under FolivoxWork, removed when it goes out of
    // scope on every path; its path is logged ("Work folder: ").
    static WorkDirectory makeWorkDirectory();

    // Connects the progress layer to the context and declares the phases.
    void beginProgress(const ExportContext& context, const std::vector<std::pair<ExportPhase, double>>& weights);
    void report(ExportPhase phase, double fraction, const QString& title = {});
    ProgressCoalescer& progress() { return progressCoalescer_; }

    // The cover as it goes into the book, rendered for the chosen size and
    // quality (phase `cover`); empty when the book has none.
    QByteArray renderCover(const ExportContext& context);

    // Tags, cover and chapters into a finished file (phase `metadata`), then
    // moov to the front of an MP4 file (phase `fastStart`).
    void finishFile(const ExportContext& context, const QString& file, const BookMetadata& metadata,
                    const QList<ChapterInfo>& chapters, const QByteArray& cover, const FilePlacement& placement = {},
                    bool freshOutput = true);

    // Moves a finished file to its place (OutputPlacement: a rename, never a
    // write over the user's file in place). Refuses a target that is one of
    // the book's sources (key "export.error.no.free.name").
    static void placeOutput(const ExportContext& context, const QString& finished, const QString& target);

    // The last step of a strategy that makes one file: checks for a cancel,
    // moves the finished file to the output, logs the end of the strategy
    // under logTag with its wall time, and returns the outcome.
    ExportOutcome completeWithFile(ExportContext& context, const QString& finished, std::vector<ExportedChapter> chapters,
                          const QString& logTag, qint64 wallMs);

    // Notes how long a stage took for the result's timings.
    void noteTiming(const QString& stage, double seconds) { timings_.emplace_back(stage, seconds); }
    const std::vector<std::pair<QString, double>>& timings() const { return timings_; }

    std::shared_ptr<MetadataWritingService> metadataService_;
    ProgressCoalescer progressCoalescer_;

private:
    std::vector<std::pair<QString, double>> timings_;
};

} // namespace folivox
