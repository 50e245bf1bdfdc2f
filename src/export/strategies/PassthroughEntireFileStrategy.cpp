#include "export/strategies/PassthroughEntireFileStrategy.h"

#include "container/mp4/FastStartRelocator.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QElapsedTimer>
#include <QFileInfo>

#include <algorithm>

namespace folivox {

SegmentTiming PassthroughEntireFileStrategy::requireReadableSource(const QString& path)
{
    try {
        const SegmentTiming t = FFmpegAudioEncoder::measure(path);
        if (t.sampleCount <= 0 || t.span <= 0)
            throw GenericError(QStringLiteral("no audio samples"));
        return t;
    } catch (const Error& e) {
        Log::write(QStringLiteral("[Passthrough] Source unreadable for a copy: ") + fileName(path) + QStringLiteral(" — ")
                   + e.description());
        throw ExportError::corruptedSourceRequiresTranscode(fileName(path) + QStringLiteral(": ") + e.description());
    }
}

std::vector<ExportedChapter> PassthroughEntireFileStrategy::chaptersAt(const ExportPlanBuilder::Plan& plan,
                                                                       const std::vector<double>& fileOffsets,
                                                                       double end)
{
    std::vector<ExportedChapter> chapters;
    for (std::size_t c = 0; c < plan.chapters.size(); ++c) {
        const ChapterInput& input = plan.chapters[c];
        ExportedChapter chapter;
        chapter.title = input.title;
        chapter.planChapter = static_cast<int>(c);
        const auto pieces = ExportPlanBuilder::pieces(input);
        if (!pieces.empty()) {
            const qsizetype file = plan.uniqueURLs.indexOf(pieces.front().url);
            const double base = file >= 0 && std::size_t(file) < fileOffsets.size() ? fileOffsets[std::size_t(file)] : 0.0;
            chapter.start = base + (pieces.front().wholeFile ? 0.0 : pieces.front().range.start);
        }
        chapters.push_back(chapter);
    }
    for (std::size_t c = 0; c < chapters.size(); ++c) {
        const double next = c + 1 < chapters.size() ? chapters[c + 1].start : end;
        chapters[c].duration = std::max(0.0, next - chapters[c].start);
    }
    return chapters;
}

ExportOutcome PassthroughEntireFileStrategy::run(ExportContext& context)
{
    QElapsedTimer wall;
    wall.start();
    Log::write(QStringLiteral("[Passthrough] ========== STRATEGY STARTED (entire file) =========="));
    beginProgress(context, {{ExportPhase::checkingFiles, 0.02},
                            {ExportPhase::cover, 0.01},
                            {ExportPhase::copying, 0.80},
                            {ExportPhase::metadata, 0.12},
                            {ExportPhase::fastStart, 0.05}});
    if (context.plan.uniqueURLs.isEmpty())
        throw ExportError::noSourceFiles();
    const QString source = context.plan.uniqueURLs.first().toLocalFile();

    report(ExportPhase::checkingFiles, 0);
    const SegmentTiming timing = requireReadableSource(source);
    report(ExportPhase::checkingFiles, 1);
    const QByteArray cover = renderCover(context);

    WorkDirectory work = makeWorkDirectory();
    const QString output = work.filePath(fileName(context.outputURL));
    context.throwIfCancelled();
    QElapsedTimer phase;
    phase.start();
    // A source with moov behind its media is copied in fast-start order in
    // the same pass, with room behind moov for the tags, cover and chapters;
    // moving moov afterwards would read and write the whole book again.
    const std::uint64_t padding = 65536 + 4096 * std::uint64_t(context.plan.chapters.size());
    const CancellationToken& token = context.token();
    const FastStartRelocator::Outcome copied = FastStartRelocator::copyFastStart(source, output, padding, [&](double f) {
        if (token.isCancelled())
            throw ExportError::cancelled();
        report(ExportPhase::copying, f);
    });
    if (copied.kind != FastStartRelocator::Outcome::Kind::relocated)
        copyFile(source, output, token, [this](double f) { report(ExportPhase::copying, f); });
    const double copySeconds = double(phase.elapsed()) / 1000.0;
    noteTiming(QStringLiteral("copy"), copySeconds);
    Log::write(QStringLiteral("[Passthrough] Copied %1 bytes in %2 s")
                   .arg(QFileInfo(output).size())
                   .arg(copySeconds, 0, 'f', 2));

    const std::vector<ExportedChapter> chapters = chaptersAt(context.plan, {0.0}, timing.presentedDuration);
    phase.restart();
    finishFile(context, output, context.metadata, chapterInfos(context, chapters), cover, {}, false);
    noteTiming(QStringLiteral("metadata"), double(phase.elapsed()) / 1000.0);

    return completeWithFile(context, output, chapters, QStringLiteral("[Passthrough]"), wall.elapsed());
}

} // namespace folivox
