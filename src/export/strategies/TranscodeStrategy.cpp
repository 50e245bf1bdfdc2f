#include "export/strategies/TranscodeStrategy.h"

#include <QStorageInfo>

#include "export/strategies/ConcurrencyPlan.h"
#include "export/strategies/GaplessSliceEncoder.h"
#include "export/strategies/GaplessTimeline.h"
#include "export/strategies/MP4GaplessTrim.h"
#include "export/strategies/ParallelSliceEncoder.h"
#include "export/strategies/SlicePlanner.h"
#include "export/decision/ExportDecisionService.h"
#include "export/strategies/FFmpegEncoderError.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <future>
#include <limits>

namespace folivox {

namespace {

QString fixed(double value, int decimals)
{
    return QString::number(value, 'f', decimals);
}

QString boolText(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

// The log lines every encode starts with: codec, what it is encoded to, and
// how many jobs run at once.
void logEncodingSetup(const FFmpegAudioEncoder::OutputSpec& spec, double referenceDuration, const QString& channels,
                      const QString& sampleRate, int jobs)
{
    const bool heAAC = spec.codec == AudioCodec::heAAC;
    Log::write(QStringLiteral("[Transcode] Codec=%1 isHEAAC=%2 referenceDuration=%3")
                   .arg(enumName(spec.codec), boolText(heAAC), fixed(referenceDuration, 2)));
    Log::write(QStringLiteral("[Transcode] Effective: bitrate=%1kbps channels=%2 sampleRate=%3 concurrency=%4")
                   .arg(spec.bitrateKbps)
                   .arg(channels, sampleRate)
                   .arg(jobs));
    Log::write((heAAC ? QStringLiteral("[Transcode] Using HE-AAC segment encoding + mux; concurrency=")
                      : QStringLiteral("[Transcode] Using AAC-LC segment encoding; concurrency="))
               + QString::number(jobs));
}

} // namespace

TranscodeStrategy::TranscodeStrategy(std::shared_ptr<MetadataWritingService> metadataService,
                                     std::shared_ptr<const FFmpegAudioEncoder> encoder)
    : TranscodeStrategy(std::move(metadataService), std::move(encoder), Options{})
{
}

TranscodeStrategy::TranscodeStrategy(std::shared_ptr<MetadataWritingService> metadataService,
                                     std::shared_ptr<const FFmpegAudioEncoder> encoder, Options options)
    : BaseExportStrategy(std::move(metadataService))
    , encoder_(std::move(encoder))
    , options_(options)
{
}

bool TranscodeStrategy::maySegmentCopy(const SegmentPiece& piece, const FFmpegAudioEncoder::OutputSpec& spec,
                                       const ExportSettings& settings)
{
    if (settings.passthroughPolicy == PassthroughPolicy::disabled || !piece.fullTrack || spec.format == OutputFormat::mp3)
        return false;
    const QString ext = QFileInfo(piece.path).suffix().toLower();
    if (ext != u"m4a" && ext != u"m4b" && ext != u"mp4")
        return false;
    const SourceFacts& f = piece.facts;
    if (!f.codec || !ExportDecisionService::matchesCodecFamily(*f.codec, spec.codec))
        return false;
    if (!f.sampleRate || (spec.sampleRate && *spec.sampleRate != *f.sampleRate))
        return false;
    if (!f.channels || (spec.channels && *spec.channels != *f.channels))
        return false;
    return !ExportDecisionService::bitrateReduction(f.bitrate, settings).has_value();
}

TranscodeStrategy::EncodedBook TranscodeStrategy::encodeBook(const ExportContext& context,
                                                             const std::vector<ChapterInput>& chapters,
                                                             const std::vector<int>& planChapters,
                                                             const QString& workDir, const QString& output,
                                                             const PhaseProgress& progress)
{
    QElapsedTimer clock;
    clock.start();
    Log::write(QStringLiteral("[Transcode] Preparing inputs..."));
    const QHash<QString, SourceFacts> facts = SegmentPlanner::factsFromTracks(context.allTracks);
    const FFmpegAudioEncoder::OutputSpec spec = resolveOutputSpec(context, facts);

    SegmentPlanner::Options planOptions;
    planOptions.probe = context.formatProbe;
    // However many segments there will be, this many can run at once.
    planOptions.parallelJobs = ConcurrencyPlan::forMachine(std::numeric_limits<int>::max(), context.parallelJobs).jobs;
    if (options_.allowSegmentCopy) {
        const ExportSettings settings = context.settings;
        planOptions.mayCopy = [spec, settings](const SegmentPiece& piece) { return maySegmentCopy(piece, spec, settings); };
    }
    const SegmentPlan plan = SegmentPlanner::plan(chapters, facts, planOptions);
    const bool allCopied = !plan.segments.empty()
        && std::all_of(plan.segments.begin(), plan.segments.end(), [](const PlannedSegment& s) { return s.copy; });
    if (!allCopied && gaplessWorkFits(plan.totalDuration, spec, workDir))
        return encodeGapless(context, chapters, planChapters, facts, spec, workDir, output, progress, clock);
    QSet<QString> inputs;
    for (const PlannedSegment& s : plan.segments) {
        for (const SegmentPiece& p : s.pieces)
            inputs.insert(p.path);
    }
    Log::write(QStringLiteral("[Transcode] Prepared: %1 input URLs, selectionSeconds=%2")
                   .arg(inputs.size())
                   .arg(fixed(plan.totalDuration, 1)));

    const ConcurrencyPlan concurrency =
        ConcurrencyPlan::forMachine(std::max<int>(1, static_cast<int>(plan.segments.size())), context.parallelJobs);
    const bool heAAC = spec.codec == AudioCodec::heAAC;
    logEncodingSetup(spec, plan.totalDuration, spec.channels ? QString::number(*spec.channels) : QStringLiteral("source"),
                     spec.sampleRate ? QString::number(*spec.sampleRate) : QStringLiteral("source"), concurrency.jobs);

    // Encoding.
    context.throwIfCancelled();
    progress(ExportPhase::encoding, 0);
    Log::write(QStringLiteral("[Transcode] ===== ENCODING PHASE START ====="));
    QElapsedTimer phase;
    phase.start();
    const std::vector<QString> segments = encoder_->encodeSegments(
        plan, spec, workDir, concurrency, context.cancelToken,
        [&progress](double f) { progress(ExportPhase::encoding, f); });
    const double encodeSeconds = double(phase.elapsed()) / 1000.0;
    Log::write(QStringLiteral("[Transcode] Encoded %1 segments in %2").arg(segments.size()).arg(fixed(encodeSeconds, 2)));
    noteTiming(QStringLiteral("encode"), encodeSeconds);

    // Joining: a chapter of several segments is merged first, then the
    // chapters are joined into the book.
    context.throwIfCancelled();
    progress(ExportPhase::merging, 0);
    Log::write(heAAC ? QStringLiteral("[Transcode] ===== HE-AAC MUX PHASE START =====")
                     : QStringLiteral("[Transcode] ===== MUX PHASE START ====="));
    phase.restart();
    QStringList units;
    for (int c = 0; c < plan.chapterCount(); ++c) {
        const std::vector<int>& parts = plan.chapterSegments[static_cast<std::size_t>(c)];
        if (parts.size() == 1) {
            units << segments[static_cast<std::size_t>(parts.front())];
            continue;
        }
        QStringList files;
        for (int s : parts)
            files << segments[static_cast<std::size_t>(s)];
        units << encoder_->mergeChapter(c + 1, files, workDir, context.token());
    }
    const std::vector<double> offsets = encoder_->join(units, output, workDir, OutputFormat::m4b, context.token(),
                                                       [&progress](double f) { progress(ExportPhase::merging, f); });
    const double muxSeconds = double(phase.elapsed()) / 1000.0;
    Log::write((heAAC ? QStringLiteral("[Transcode] HE-AAC mux completed in ") : QStringLiteral("[Transcode] Mux completed in "))
               + fixed(muxSeconds, 2) + u's');
    noteTiming(QStringLiteral("mux"), muxSeconds);

    EncodedBook book;
    book.file = output;
    book.segmentCount = static_cast<int>(segments.size());
    const SegmentTiming outputTiming = FFmpegAudioEncoder::measure(output);
    book.duration = outputTiming.presentedDuration;
    Log::write(QStringLiteral("[Transcode] POST-MUX: AVAsset duration=") + fixed(book.duration, 3));
    Log::write(QStringLiteral("[Transcode] Output file size: %1 wall=%2ms")
                   .arg(QFileInfo(output).size())
                   .arg(clock.elapsed()));

    QStringList spans;
    for (std::size_t c = 0; c < offsets.size(); ++c) {
        ExportedChapter chapter;
        chapter.title = chapters[c].title;
        chapter.start = offsets[c];
        const double end = c + 1 < offsets.size() ? offsets[c + 1] : book.duration;
        chapter.duration = std::max(0.0, end - chapter.start);
        chapter.planChapter = c < planChapters.size() ? planChapters[c] : static_cast<int>(c);
        spans << fixed(chapter.duration, 3);
        book.chapters.push_back(chapter);
    }
    Log::write(QStringLiteral("[ExportPerf] segmentDurations n=%1 [%2]").arg(spans.size()).arg(spans.join(u',')));
    return book;
}

bool TranscodeStrategy::gaplessWorkFits(double bookSeconds, const FFmpegAudioEncoder::OutputSpec& spec, const QString& workDir)
{
    // The gapless encode decodes the whole book to 16-bit PCM in the work
    // folder first. Where that would take more than half of the free space
    // (a long book on a small temporary disk), the book is encoded segment by
    // segment instead: a gap at each join is better than a failed build.
    const double bytes = bookSeconds * spec.sampleRate.value_or(48000) * spec.channels.value_or(2) * 2.0;
    const QStorageInfo storage(workDir);
    const double available = storage.isValid() ? double(storage.bytesAvailable()) : 0.0;
    if (bytes <= available / 2.0)
        return true;
    Log::write(QStringLiteral("[Transcode] Gapless work files would need %1 MB of the %2 MB free in the work folder: "
                              "encoding segment by segment")
                   .arg(qint64(bytes / 1e6))
                   .arg(qint64(available / 1e6)));
    return false;
}

TranscodeStrategy::EncodedBook TranscodeStrategy::encodeGapless(const ExportContext& context,
                                                                const std::vector<ChapterInput>& chapters,
                                                                const std::vector<int>& planChapters,
                                                                const QHash<QString, SourceFacts>& facts,
                                                                const FFmpegAudioEncoder::OutputSpec& spec,
                                                                const QString& workDir, const QString& output,
                                                                const PhaseProgress& progress, const QElapsedTimer& clock)
{
    // One segment per chapter: its stretches of its files, in order.
    SegmentPlanner::Options chapterOptions;
    chapterOptions.allowGroups = false;
    chapterOptions.probe = context.formatProbe;
    const SegmentPlan chapterPlan = SegmentPlanner::plan(chapters, facts, chapterOptions);
    QStringList sources;
    std::vector<QString> codecs;
    for (const PlannedSegment& s : chapterPlan.segments) {
        for (const SegmentPiece& p : s.pieces) {
            if (!sources.contains(p.path)) {
                sources << p.path;
                codecs.push_back(p.facts.codec.value_or(QString()));
            }
        }
    }
    Log::write(QStringLiteral("[Transcode] Prepared: %1 input URLs, selectionSeconds=%2")
                   .arg(sources.size())
                   .arg(fixed(chapterPlan.totalDuration, 1)));
    const int rate = spec.sampleRate.value_or(44100);
    const int channels = spec.channels.value_or(2);
    const ConcurrencyPlan machine = ConcurrencyPlan::forMachine(std::numeric_limits<int>::max(), context.parallelJobs);
    const bool heAAC = spec.codec == AudioCodec::heAAC;
    logEncodingSetup(spec, chapterPlan.totalDuration, QString::number(channels), QString::number(rate), machine.jobs);

    context.throwIfCancelled();
    progress(ExportPhase::encoding, 0);
    Log::write(QStringLiteral("[Transcode] ===== ENCODING PHASE START ====="));
    QElapsedTimer phase;
    phase.start();
    const auto gapless = std::make_shared<const GaplessSliceEncoder>(encoder_);
    // The encoder's framing is measured while the sources decode: a short
    // ffmpeg run (and the encoder list it needs) that would otherwise wait
    // for the decode and hold up every slice.
    const std::shared_future<EncoderFraming> framingProbe =
        std::async(std::launch::async, [&gapless, &spec, &workDir, &context] {
            return gapless->probeFraming(spec, workDir, context.token());
        }).share();
    // Decoding is about a tenth of the work of encoding.
    constexpr double kDecodeShare = 0.1;
    const ConcurrencyPlan decodeJobs =
        ConcurrencyPlan::forMachine(static_cast<int>(sources.size()), context.parallelJobs);
    SlicePlanner::Options sliceOptions;
    sliceOptions.jobs = machine.jobs;
    auto encodeProgress = [&progress](double f) { progress(ExportPhase::encoding, kDecodeShare + (1 - kDecodeShare) * f); };
    // The slice encodes start while the sources decode, on the cores a book
    // of fewer files than cores leaves idle.
    ParallelSliceEncoder::Setup setup;
    setup.gapless = gapless;
    setup.chapterPlan = chapterPlan;
    setup.sources = sources;
    setup.spec = spec;
    setup.workDir = workDir;
    setup.estimatedSamples = std::llround(chapterPlan.totalDuration * rate);
    setup.sliceOptions = sliceOptions;
    setup.jobs = machine.jobs;
    setup.earlyJobs = std::max(0, machine.jobs - decodeJobs.jobs);
    setup.threadsPerJob = machine.threadsPerJob;
    setup.token = context.cancelToken;
    setup.progress = encodeProgress;
    ParallelSliceEncoder encodes(std::move(setup), framingProbe);
    const auto decoded = gapless->decodeSources(
        sources, codecs, rate, channels, workDir, decodeJobs, context.cancelToken,
        [&progress](double f) { progress(ExportPhase::encoding, kDecodeShare * f); },
        [&encodes](int source, std::int64_t samples) { encodes.sourceDecoded(source, samples); });
    std::vector<std::int64_t> decodedSamples;
    for (const auto& d : decoded)
        decodedSamples.push_back(d.samples);
    const GaplessTimeline timeline = GaplessTimeline::build(chapterPlan, sources, decodedSamples, rate);
    if (timeline.total <= 0)
        throw ExportError::validationFailed(QStringLiteral("Total duration is zero (no valid audio tracks)"));

    const EncoderFraming framing = framingProbe.get();
    progress(ExportPhase::encoding, kDecodeShare);
    const SlicePlan slices = encodes.settle(timeline, decoded, framing);
    encodes.wait();

    const double encodeSeconds = double(phase.elapsed()) / 1000.0;
    Log::write(QStringLiteral("[Transcode] Encoded %1 segments in %2").arg(slices.slices.size()).arg(fixed(encodeSeconds, 2)));
    noteTiming(QStringLiteral("encode"), encodeSeconds);
    phase.restart();
    Log::write(heAAC ? QStringLiteral("[Transcode] ===== HE-AAC MUX PHASE START =====")
                     : QStringLiteral("[Transcode] ===== MUX PHASE START ====="));
    gapless->join(slices, spec, workDir, output, context.token(), [&progress](double f) { progress(ExportPhase::merging, f); });
    const double muxSeconds = double(phase.elapsed()) / 1000.0;
    Log::write((heAAC ? QStringLiteral("[Transcode] HE-AAC mux completed in ") : QStringLiteral("[Transcode] Mux completed in "))
               + fixed(muxSeconds, 2) + u's');
    noteTiming(QStringLiteral("mux"), muxSeconds);

    EncodedBook book;
    book.file = output;
    book.segmentCount = static_cast<int>(slices.slices.size());
    const SegmentTiming outputTiming = FFmpegAudioEncoder::measure(output);
    book.duration = outputTiming.presentedDuration;
    Log::write(QStringLiteral("[Transcode] POST-MUX: AVAsset duration=") + fixed(book.duration, 3));
    Log::write(QStringLiteral("[Transcode] Output file size: %1 wall=%2ms").arg(QFileInfo(output).size()).arg(clock.elapsed()));
    // The presented length must be the plan's, to within one frame.
    if (std::abs(book.duration - double(timeline.total) / rate) > double(framing.frameSize) / rate)
        throw FFmpegEncoderError::executionFailed(QStringLiteral("The book lasts %1 s, the plan %2 s")
                                                      .arg(fixed(book.duration, 3), fixed(double(timeline.total) / rate, 3)));

    // Chapter marks are the sources' own times on the output's sample clock.
    QStringList spans;
    for (std::size_t c = 0; c < timeline.chapterStarts.size(); ++c) {
        ExportedChapter chapter;
        chapter.title = chapters[c].title;
        chapter.start = double(timeline.chapterStarts[c]) / rate;
        chapter.duration = double(timeline.chapterLengths[c]) / rate;
        chapter.planChapter = c < planChapters.size() ? planChapters[c] : static_cast<int>(c);
        spans << fixed(chapter.duration, 3);
        book.chapters.push_back(chapter);
    }
    Log::write(QStringLiteral("[ExportPerf] segmentDurations n=%1 [%2]").arg(spans.size()).arg(spans.join(u',')));
    return book;
}

ExportOutcome TranscodeStrategy::run(ExportContext& context)
{
    QElapsedTimer wall;
    wall.start();
    Log::write(QStringLiteral("[Transcode] ========== STRATEGY STARTED =========="));
    beginProgress(context, {{ExportPhase::preparing, 0.01},
                            {ExportPhase::cover, 0.01},
                            {ExportPhase::encoding, 0.86},
                            {ExportPhase::merging, 0.06},
                            {ExportPhase::metadata, 0.04},
                            {ExportPhase::fastStart, 0.02}});
    report(ExportPhase::preparing, 0);
    if (context.plan.chapters.empty())
        throw ExportError::noSourceFiles();

    WorkDirectory work = makeWorkDirectory();
    const QString output = work.filePath(fileName(context.outputURL));
    std::vector<int> planChapters(context.plan.chapters.size());
    for (std::size_t i = 0; i < planChapters.size(); ++i)
        planChapters[i] = static_cast<int>(i);
    const QByteArray cover = renderCover(context);
    const EncodedBook book = encodeBook(context, context.plan.chapters, planChapters, work.path(), output,
                                        [this](ExportPhase p, double f) { report(p, f); });

    context.throwIfCancelled();
    report(ExportPhase::finalizingChapters, 0);
    Log::write(QStringLiteral("[Transcode] ===== METADATA PHASE START ====="));
    QElapsedTimer phase;
    phase.start();
    const QList<ChapterInfo> infos = chapterInfos(context, book.chapters);
    Log::write(QStringLiteral("[Transcode] Chapter infos: %1").arg(infos.size()));
    for (qsizetype i = 0; i < infos.size(); ++i)
        Log::write(QStringLiteral("[Transcode]   chapter[%1] start=%2 title=%3")
                       .arg(i)
                       .arg(fixed(infos[i].startTime, 3))
                       .arg(infos[i].title));
    finishFile(context, output, context.metadata, infos, cover);
    const double metadataSeconds = double(phase.elapsed()) / 1000.0;
    Log::write(QStringLiteral("[Transcode] Metadata+chapters+FastStart written in ") + fixed(metadataSeconds, 2) + u's');
    noteTiming(QStringLiteral("metadata"), metadataSeconds);

    return completeWithFile(context, output, book.chapters, QStringLiteral("[Transcode]"), wall.elapsed());
}

} // namespace folivox
