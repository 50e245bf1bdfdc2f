#include "export/strategies/MultiFileExportStrategy.h"

#include "export/strategies/ConcurrencyPlan.h"
#include "export/strategies/MP4GaplessTrim.h"
#include "export/decision/FolderPassthroughRule.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <cmath>
#include <mutex>
#include <optional>

namespace folivox {

namespace {

QString pathOf(const QUrl& url)
{
    return url.isLocalFile() ? url.toLocalFile() : url.toString();
}

} // namespace

MultiFileExportStrategy::MultiFileExportStrategy(std::shared_ptr<MetadataWritingService> metadataService,
                                                 std::shared_ptr<const FFmpegAudioEncoder> encoder)
    : BaseExportStrategy(std::move(metadataService))
    , encoder_(std::move(encoder))
{
}

QString MultiFileExportStrategy::sanitizedTitle(const QString& title)
{
    QString out;
    out.reserve(title.size());
    for (const QChar c : title.simplified()) {
        if (c == u'/' || c == u'\\' || c == u':' || c == u'*' || c == u'?' || c == u'"' || c == u'<' || c == u'>'
            || c == u'|' || c.category() == QChar::Other_Control)
            out += u'_';
        else
            out += c;
    }
    out = out.simplified();
    while (out.startsWith(u'.'))
        out.remove(0, 1);
    if (out.size() > 120)
        out.truncate(120);
    while (out.endsWith(u'.') || out.endsWith(u' '))
        out.chop(1);
    return out.isEmpty() ? QStringLiteral("Chapter") : out;
}

QString MultiFileExportStrategy::outputFileName(int number, int count, const QString& title, const QString& extension)
{
    const int digits = std::max(2, static_cast<int>(QString::number(std::max(1, count)).size()));
    return QStringLiteral("%1 - %2.%3").arg(number, digits, 10, QChar(u'0')).arg(sanitizedTitle(title), extension);
}

ExportOutcome MultiFileExportStrategy::run(ExportContext& context)
{
    QElapsedTimer wall;
    wall.start();
    Log::write(QStringLiteral("[MultiFile] ========== STRATEGY STARTED =========="));
    beginProgress(context, {{ExportPhase::preparing, 0.01},
                            {ExportPhase::cover, 0.01},
                            {ExportPhase::encoding, 0.84},
                            {ExportPhase::metadata, 0.10},
                            {ExportPhase::finalizing, 0.04}});
    const std::vector<ChapterInput>& chapters = context.plan.chapters;
    if (chapters.empty())
        throw ExportError::noSourceFiles();
    const int count = static_cast<int>(chapters.size());
    const ExportSettings& settings = context.settings;
    const QString extension = fileExtension(settings.outputFormat);

    const QHash<QString, SourceFacts> facts = SegmentPlanner::factsFromTracks(context.allTracks);
    const FFmpegAudioEncoder::OutputSpec spec = resolveOutputSpec(context, facts);
    SegmentPlanner::Options planOptions;
    planOptions.allowGroups = false;
    planOptions.probe = context.formatProbe;
    const SegmentPlan plan = SegmentPlanner::plan(chapters, facts, planOptions);

    // Which chapters can be copied as they are.
    std::vector<std::optional<QString>> copyFrom(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const ChapterInput& chapter = chapters[static_cast<std::size_t>(i)];
        const PlannedSegment& segment = plan.segments[static_cast<std::size_t>(plan.chapterSegments[std::size_t(i)].front())];
        std::optional<FormatProbe> source;
        if (chapter.files.size() == 1) {
            const SourceFacts& f = segment.pieces.first().facts;
            if (f.codec) {
                FormatProbe p;
                p.codec = *f.codec;
                p.bitrate = f.bitrate;
                p.sampleRate = f.sampleRate.value_or(0);
                p.channels = f.channels.value_or(0);
                p.duration = f.duration;
                source = p;
            }
        }
        const FolderPassthroughRule::Verdict verdict = FolderPassthroughRule::judge(chapter, source, settings);
        QString why;
        switch (verdict.kind) {
        case FolderPassthroughRule::Verdict::Kind::copy:
            copyFrom[std::size_t(i)] = pathOf(verdict.url);
            why = QStringLiteral("copy");
            break;
        case FolderPassthroughRule::Verdict::Kind::copyIfWholeFile: {
            const double length = segment.pieces.first().facts.duration;
            if (length > 0 && std::abs(length - verdict.rangeSeconds) <= 0.1) {
                copyFrom[std::size_t(i)] = pathOf(verdict.url);
                why = QStringLiteral("copy (whole file)");
            } else {
                why = QStringLiteral("encode (takes part of its file)");
            }
            break;
        }
        case FolderPassthroughRule::Verdict::Kind::refuse:
            why = QStringLiteral("encode (") + verdict.reason + u')';
            break;
        }
        Log::write(QStringLiteral("[MultiFile] Chapter %1 \"%2\": %3").arg(i + 1).arg(chapter.title, why));
    }

    const QByteArray cover = renderCover(context);
    WorkDirectory work = makeWorkDirectory();
    std::vector<QString> temps(static_cast<std::size_t>(count));
    std::vector<QString> names(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        names[std::size_t(i)] = outputFileName(i + 1, count, chapters[std::size_t(i)].title, extension);
        temps[std::size_t(i)] = work.filePath(names[std::size_t(i)]);
    }

    // Copies and encodes, in parallel.
    context.throwIfCancelled();
    report(ExportPhase::encoding, 0);
    const ConcurrencyPlan concurrency = ConcurrencyPlan::forMachine(count, context.parallelJobs);
    Log::write(QStringLiteral("[MultiFile] %1 files, concurrency=%2, threadsPerJob=%3")
                   .arg(count)
                   .arg(concurrency.jobs)
                   .arg(concurrency.threadsPerJob));
    std::mutex progressMutex;
    std::vector<double> done(static_cast<std::size_t>(count), 0.0);
    const double total = std::max(plan.totalDuration, 1e-9);
    auto progressOf = [&](int i, double f) {
        double sum = 0;
        {
            std::lock_guard lock(progressMutex);
            done[std::size_t(i)] = std::max(done[std::size_t(i)], f);
            for (int k = 0; k < count; ++k)
                sum += done[std::size_t(k)] * plan.segments[std::size_t(k)].plannedDuration;
        }
        report(ExportPhase::encoding, sum / total);
    };
    QElapsedTimer phase;
    phase.start();
    FFmpegAudioEncoder::runParallel(
        count, concurrency.jobs, context.cancelToken,
        [&](int i, const CancellationToken& token) {
            const std::size_t k = std::size_t(i);
            if (copyFrom[k]) {
                copyFile(*copyFrom[k], temps[k], token, [&, i](double f) { progressOf(i, f); });
            } else {
                PlannedSegment segment = plan.segments[k];
                segment.copy = false;
                encoder_->encodeSegment(segment, spec, work.path(), concurrency.threadsPerJob, temps[k], token,
                                        [&, i](double f) { progressOf(i, f); });
            }
            progressOf(i, 1.0);
        },
        QStringLiteral("[MultiFile]"));
    noteTiming(QStringLiteral("encode"), double(phase.elapsed()) / 1000.0);

    // Each encoded M4A plays exactly its chapter's samples: ffmpeg's muxer
    // skips the priming and cuts the last packet to the real samples, but
    // writes the edit list in the movie's millisecond clock and no iTunes
    // gapless item; MP4GaplessTrim writes both from the sample counts. (An
    // MP3 encode gets its encoder delay and padding in the LAME tag of its
    // Info frame from ffmpeg's muxer; a copied file keeps its own fields.)
    std::vector<std::optional<double>> exactLength(static_cast<std::size_t>(count));
    if (settings.outputFormat != OutputFormat::mp3) {
        for (int i = 0; i < count; ++i) {
            const std::size_t k = std::size_t(i);
            if (copyFrom[k])
                continue;
            context.throwIfCancelled();
            const MP4GaplessTrim::Layout layout = MP4GaplessTrim::read(temps[k]);
            const std::int64_t samples = layout.mediaSamples - layout.framing.priming;
            MP4GaplessTrim::apply(temps[k], layout.framing.priming, samples);
            if (layout.timescale > 0)
                exactLength[k] = double(samples) / double(layout.timescale);
            Log::write(QStringLiteral("[MultiFile] Chapter %1: %2 samples, priming %3 (gapless fields written)")
                           .arg(i + 1)
                           .arg(samples)
                           .arg(layout.framing.priming));
        }
    }

    // Each file's length, for the chapter list of the result.
    std::vector<ExportedChapter> exported;
    double start = 0;
    for (int i = 0; i < count; ++i) {
        ExportedChapter c;
        c.title = chapters[std::size_t(i)].title;
        c.start = start;
        c.planChapter = i;
        c.file = QDir(context.outputURL).filePath(names[std::size_t(i)]);
        if (exactLength[std::size_t(i)]) {
            c.duration = *exactLength[std::size_t(i)];
        } else if (settings.outputFormat == OutputFormat::mp3) {
            c.duration = plan.segments[std::size_t(i)].plannedDuration;
        } else {
            try {
                c.duration = FFmpegAudioEncoder::measure(temps[std::size_t(i)]).presentedDuration;
            } catch (const Error&) {
                c.duration = plan.segments[std::size_t(i)].plannedDuration;
            }
        }
        start += c.duration;
        exported.push_back(c);
    }

    // Tags, one file at a time.
    phase.restart();
    for (int i = 0; i < count; ++i) {
        context.throwIfCancelled();
        ExportedChapter own = exported[std::size_t(i)];
        own.start = 0;
        finishFile(context, temps[std::size_t(i)], context.metadata, chapterInfos(context, {own}), cover,
                   FilePlacement::track(own.title, i + 1, count),
                   !copyFrom[std::size_t(i)].has_value());
        report(ExportPhase::metadata, double(i + 1) / count);
    }
    noteTiming(QStringLiteral("metadata"), double(phase.elapsed()) / 1000.0);

    // Into the folder. Files this build newly made are taken back if a later one fails.
    context.throwIfCancelled();
    QStringList placed;
    QStringList outputs;
    try {
        for (int i = 0; i < count; ++i) {
            const QString target = QDir(context.outputURL).filePath(names[std::size_t(i)]);
            const bool existed = QFileInfo::exists(target);
            placeOutput(context, temps[std::size_t(i)], target);
            if (!existed)
                placed << target;
            outputs << target;
            report(ExportPhase::finalizing, double(i + 1) / count);
        }
    } catch (...) {
        for (const QString& f : placed)
            QFile::remove(f);
        throw;
    }

    ExportOutcome outcome;
    outcome.outputPath = context.outputURL;
    outcome.outputFiles = outputs;
    outcome.chapters = exported;
    outcome.strategy = kind();
    outcome.timings = timings();
    Log::write(QStringLiteral("[MultiFile] ========== STRATEGY COMPLETED ========== (%1 ms)").arg(wall.elapsed()));
    progressCoalescer_.reportOverall(ExportPhase::complete, 1.0);
    return outcome;
}

} // namespace folivox
