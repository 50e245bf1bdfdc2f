#include "export/strategies/PassthroughConcatStrategy.h"

#include "export/strategies/FFmpegEncoderError.h"
#include "export/strategies/PassthroughEntireFileStrategy.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QElapsedTimer>
#include <QFileInfo>

namespace folivox {

PassthroughConcatStrategy::PassthroughConcatStrategy(std::shared_ptr<MetadataWritingService> metadataService,
                                                     std::shared_ptr<const FFmpegAudioEncoder> encoder)
    : BaseExportStrategy(std::move(metadataService))
    , encoder_(std::move(encoder))
{
}

ExportOutcome PassthroughConcatStrategy::run(ExportContext& context)
{
    QElapsedTimer wall;
    wall.start();
    Log::write(QStringLiteral("[Passthrough] ========== STRATEGY STARTED (concat) =========="));
    beginProgress(context, {{ExportPhase::checkingFiles, 0.03},
                            {ExportPhase::cover, 0.01},
                            {ExportPhase::merging, 0.80},
                            {ExportPhase::metadata, 0.11},
                            {ExportPhase::fastStart, 0.05}});
    if (context.plan.uniqueURLs.isEmpty())
        throw ExportError::noSourceFiles();

    QStringList sources;
    report(ExportPhase::checkingFiles, 0);
    for (qsizetype i = 0; i < context.plan.uniqueURLs.size(); ++i) {
        const QString path = context.plan.uniqueURLs[i].toLocalFile();
        PassthroughEntireFileStrategy::requireReadableSource(path);
        sources << path;
        report(ExportPhase::checkingFiles, double(i + 1) / double(context.plan.uniqueURLs.size()));
    }
    const QByteArray cover = renderCover(context);

    WorkDirectory work = makeWorkDirectory();
    const QString output = work.filePath(fileName(context.outputURL));
    context.throwIfCancelled();
    QElapsedTimer phase;
    phase.start();
    std::vector<double> offsets;
    try {
        offsets = encoder_->join(sources, output, work.path(), OutputFormat::m4b, context.token(),
                                 [this](double f) { report(ExportPhase::merging, f); });
    } catch (const FFmpegEncoderError& e) {
        // A copy path: damaged data in a source is worth one true encode.
        const QString text = e.description().toLower();
        for (const char* marker : {"invalid data found", "moov atom not found", "timescale not set", "invalid timescale",
                                   "corrupt or malformed file structure", "invalid presentation timestamps",
                                   "invalid data when processing input"}) {
            if (text.contains(QLatin1String(marker)))
                throw ExportError::corruptedSourceRequiresTranscode(e.description());
        }
        throw;
    }
    const double joinSeconds = double(phase.elapsed()) / 1000.0;
    noteTiming(QStringLiteral("join"), joinSeconds);
    const SegmentTiming joined = FFmpegAudioEncoder::measure(output);
    Log::write(QStringLiteral("[Passthrough] Joined %1 files by copy in %2 s, duration=%3")
                   .arg(sources.size())
                   .arg(joinSeconds, 0, 'f', 2)
                   .arg(joined.presentedDuration, 0, 'f', 3));

    const std::vector<ExportedChapter> chapters =
        PassthroughEntireFileStrategy::chaptersAt(context.plan, offsets, joined.presentedDuration);
    phase.restart();
    finishFile(context, output, context.metadata, chapterInfos(context, chapters), cover);
    noteTiming(QStringLiteral("metadata"), double(phase.elapsed()) / 1000.0);

    return completeWithFile(context, output, chapters, QStringLiteral("[Passthrough]"), wall.elapsed());
}

} // namespace folivox
