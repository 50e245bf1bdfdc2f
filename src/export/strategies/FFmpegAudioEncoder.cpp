#include "export/strategies/FFmpegAudioEncoder.h"

#include "export/strategies/MP4GaplessTrim.h"

#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4MoovReader.h"
#include "process/AnyOfCancellationToken.h"
#include "export/strategies/ConcatList.h"
#include "export/engine/ExportError.h"
#include "export/strategies/FFmpegEncoderError.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "platform/Log.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <thread>

namespace folivox {

namespace {

QString sixDecimals(double value)
{
    return QString::asprintf("%.6f", value);
}

QString kbps(int rate)
{
    return QString::number(rate) + u'k';
}

QString threeDigits(int value)
{
    return QString::asprintf("%03d", value);
}

constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}

const MP4BoxTree::Node* audioTrack(const MP4BoxTree::Node& moov)
{
    for (const MP4BoxTree::Node& trak : moov.children) {
        if (trak.type != fc("trak"))
            continue;
        const MP4BoxTree::Node* mdia = trak.child(fc("mdia"));
        const MP4BoxTree::Node* hdlr = mdia ? mdia->child(fc("hdlr")) : nullptr;
        // hdlr: version/flags (4), pre_defined (4), handler_type (4).
        if (hdlr && hdlr->payload.size() >= 12 && MP4Bytes::be32(hdlr->payload.constData() + 8) == fc("soun"))
            return &trak;
    }
    return nullptr;
}

[[noreturn]] void unreadable(const QString& path, const QString& why)
{
    throw GenericError(QStringLiteral("Cannot read the audio timing of ") + QFileInfo(path).fileName()
                       + QStringLiteral(": ") + why);
}

} // namespace

FFmpegAudioEncoder::FFmpegAudioEncoder(std::shared_ptr<const FFmpegWrapper> wrapper, std::optional<EncoderCatalog> catalog,
                                       QString logPrefix)
    : wrapper_(std::move(wrapper))
    , catalog_(std::move(catalog))
    , logPrefix_(std::move(logPrefix))
{
}

QString FFmpegAudioEncoder::muxerName(OutputFormat format)
{
    return format == OutputFormat::mp3 ? QStringLiteral("mp3") : QStringLiteral("ipod");
}

QString FFmpegAudioEncoder::segmentExtension(OutputFormat format)
{
    return format == OutputFormat::mp3 ? QStringLiteral("mp3") : QStringLiteral("m4a");
}

QStringList FFmpegAudioEncoder::encoderBlock(const OutputSpec& spec, bool copy) const
{
    if (copy)
        return {QStringLiteral("-c:a"), QStringLiteral("copy")};
    QStringList args;
    if (spec.channels)
        args << QStringLiteral("-ac") << QString::number(*spec.channels);
    if (spec.sampleRate)
        args << QStringLiteral("-ar") << QString::number(*spec.sampleRate);
    if (spec.format == OutputFormat::mp3)
        args << catalog().requireMp3().codecArguments();
    else if (spec.codec == AudioCodec::heAAC)
        args << catalog().requireHeAAC().codecArguments();
    else
        args << catalog().requireAacLC().codecArguments();
    args << QStringLiteral("-b:a") << kbps(spec.bitrateKbps);
    return args;
}

QStringList FFmpegAudioEncoder::stretchArguments(const SegmentPiece& piece, const QStringList& encoderBlock,
                                                 int threads, const QString& muxer, const QString& output,
                                                 const QStringList& inputDecoder)
{
    QStringList args{QStringLiteral("-ss"), sixDecimals(piece.start)};
    args << inputDecoder;
    args << QStringLiteral("-i") << piece.path;
    args << QStringLiteral("-vn") << QStringLiteral("-map_chapters") << QStringLiteral("-1");
    args << QStringLiteral("-threads") << QString::number(std::max(1, threads));
    args << encoderBlock;
    if (!piece.fullTrack)
        args << QStringLiteral("-t") << sixDecimals(piece.length);
    args << QStringLiteral("-f") << muxer << QStringLiteral("-y") << output;
    return args;
}

QStringList FFmpegAudioEncoder::concatArguments(const QString& listPath, const QStringList& encoderBlock, int threads,
                                                const QString& muxer, const QString& output)
{
    QStringList args{QStringLiteral("-fflags"), QStringLiteral("+genpts+igndts"),
                     QStringLiteral("-f"),      QStringLiteral("concat"),
                     QStringLiteral("-safe"),   QStringLiteral("0"),
                     QStringLiteral("-i"),      listPath,
                     QStringLiteral("-vn"),     QStringLiteral("-map_metadata"),
                     QStringLiteral("-1"),      QStringLiteral("-threads"),
                     QString::number(std::max(1, threads))};
    args << encoderBlock;
    args << QStringLiteral("-f") << muxer << QStringLiteral("-y") << output;
    return args;
}

QStringList FFmpegAudioEncoder::extractArguments(const SegmentPiece& piece, const QString& output,
                                                 std::optional<double> fadeOutSeconds)
{
    QString filter = QStringLiteral("atrim=start=") + sixDecimals(piece.start) + QStringLiteral(":end=")
        + sixDecimals(piece.start + piece.length) + QStringLiteral(",asetpts=PTS-STARTPTS");
    if (fadeOutSeconds && *fadeOutSeconds > 0) {
        const double d = std::min(*fadeOutSeconds, piece.length);
        filter += QStringLiteral(",afade=t=out:st=") + sixDecimals(std::max(0.0, piece.length - d))
            + QStringLiteral(":d=") + sixDecimals(d);
    }
    return {QStringLiteral("-i"),
            piece.path,
            QStringLiteral("-vn"),
            QStringLiteral("-af"),
            filter,
            QStringLiteral("-ac"),
            QStringLiteral("2"),
            QStringLiteral("-ar"),
            QStringLiteral("44100"),
            QStringLiteral("-c:a"),
            QStringLiteral("flac"),
            QStringLiteral("-sample_fmt"),
            QStringLiteral("s16"),
            QStringLiteral("-compression_level"),
            QStringLiteral("0"),
            QStringLiteral("-y"),
            output};
}

QStringList FFmpegAudioEncoder::mergeArguments(const QString& listPath, const QString& output)
{
    return {QStringLiteral("-fflags"), QStringLiteral("+genpts"), QStringLiteral("-f"), QStringLiteral("concat"),
            QStringLiteral("-safe"),   QStringLiteral("0"),       QStringLiteral("-i"), listPath,
            QStringLiteral("-c"),      QStringLiteral("copy"),    QStringLiteral("-f"), QStringLiteral("mp4"),
            QStringLiteral("-y"),      output};
}

QStringList FFmpegAudioEncoder::joinArguments(const QString& listPath, const QString& output, const QString& muxer)
{
    return {QStringLiteral("-f"),     QStringLiteral("concat"), QStringLiteral("-safe"),
            QStringLiteral("0"),      QStringLiteral("-i"),     listPath,
            QStringLiteral("-c"),     QStringLiteral("copy"),   QStringLiteral("-map_metadata"),
            QStringLiteral("-1"),     QStringLiteral("-map"),   QStringLiteral("0:a"),
            QStringLiteral("-f"),     muxer,                    QStringLiteral("-y"),
            output};
}

SegmentTiming FFmpegAudioEncoder::measure(const QString& path)
{
    const MP4MoovReader::MoovBuffer buffer = MP4MoovReader::read(path);
    const MP4BoxTree::Node moov = MP4BoxTree::parse(buffer.data);
    const MP4BoxTree::Node* trak = audioTrack(moov);
    if (!trak)
        unreadable(path, QStringLiteral("no audio track"));
    const MP4BoxTree::Node* mdia = trak->child(fc("mdia"));
    const MP4BoxTree::Node* mdhd = mdia ? mdia->child(fc("mdhd")) : nullptr;
    if (!mdhd || mdhd->payload.size() < 24)
        unreadable(path, QStringLiteral("no media header"));
    const char* h = mdhd->payload.constData();
    const int version = static_cast<unsigned char>(h[0]);
    SegmentTiming t;
    if (version == 1) {
        if (mdhd->payload.size() < 32)
            unreadable(path, QStringLiteral("short media header"));
        t.timescale = MP4Bytes::be32(h + 20);
    } else {
        t.timescale = MP4Bytes::be32(h + 12);
    }
    if (t.timescale == 0)
        unreadable(path, QStringLiteral("timescale not set"));

    const MP4BoxTree::Node* minf = mdia->child(fc("minf"));
    const MP4BoxTree::Node* stbl = minf ? minf->child(fc("stbl")) : nullptr;
    const MP4BoxTree::Node* stts = stbl ? stbl->child(fc("stts")) : nullptr;
    if (!stts || stts->payload.size() < 8)
        unreadable(path, QStringLiteral("no sample table"));
    const char* s = stts->payload.constData();
    const std::uint32_t entries = MP4Bytes::be32(s + 4);
    if (stts->payload.size() < 8 + qsizetype(entries) * 8)
        unreadable(path, QStringLiteral("short sample table"));
    // A decoder turns every frame into a whole frame of samples, but
    // encoders store the last frame with only the samples it holds (1024
    // samples a frame, the last one 136, say). Joined behind each other the
    // frames play whole, so a file's span is its frame count times the
    // frame length: the sample duration most of the table uses.
    std::uint32_t frameTicks = 0;
    std::uint32_t frameTicksCount = 0;
    std::uint64_t ticks = 0;
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::uint32_t count = MP4Bytes::be32(s + 8 + i * 8);
        const std::uint32_t delta = MP4Bytes::be32(s + 12 + i * 8);
        ticks += std::uint64_t(count) * delta;
        t.sampleCount += count;
        if (count > frameTicksCount) {
            frameTicksCount = count;
            frameTicks = delta;
        }
    }
    const std::uint64_t wholeFrames = std::uint64_t(t.sampleCount) * frameTicks;
    t.span = double(std::max(ticks, wholeFrames)) / double(t.timescale);
    t.presentedDuration = t.span;

    // The movie timescale, for edit durations.
    std::uint32_t movieScale = 0;
    if (const MP4BoxTree::Node* mvhd = moov.child(fc("mvhd")); mvhd && mvhd->payload.size() >= 24) {
        const char* m = mvhd->payload.constData();
        movieScale = static_cast<unsigned char>(m[0]) == 1 && mvhd->payload.size() >= 32 ? MP4Bytes::be32(m + 20)
                                                                                         : MP4Bytes::be32(m + 12);
    }
    const MP4BoxTree::Node* edts = trak->child(fc("edts"));
    const MP4BoxTree::Node* elst = edts ? edts->child(fc("elst")) : nullptr;
    if (elst && elst->payload.size() >= 8 && movieScale > 0) {
        const char* e = elst->payload.constData();
        const bool wide = static_cast<unsigned char>(e[0]) == 1;
        const std::uint32_t count = MP4Bytes::be32(e + 4);
        const qsizetype entrySize = wide ? 20 : 12;
        double presented = 0;
        bool sawMedia = false;
        for (std::uint32_t i = 0; i < count && 8 + qsizetype(i + 1) * entrySize <= elst->payload.size(); ++i) {
            const char* p = e + 8 + i * entrySize;
            const std::uint64_t editDuration = wide ? MP4Bytes::be64(p) : MP4Bytes::be32(p);
            const std::int64_t mediaTime = wide ? std::int64_t(MP4Bytes::be64(p + 8))
                                                : std::int64_t(std::int32_t(MP4Bytes::be32(p + 4)));
            if (mediaTime < 0) {
                if (!sawMedia)
                    t.startTime += double(editDuration) / double(movieScale);
                continue;
            }
            if (!sawMedia)
                t.priming = mediaTime;
            sawMedia = true;
            presented += double(editDuration) / double(movieScale);
        }
        if (sawMedia && presented > 0)
            t.presentedDuration = presented;
    }
    return t;
}

bool FFmpegAudioEncoder::isCancellation(const std::exception_ptr& error)
{
    if (!error)
        return false;
    try {
        std::rethrow_exception(error);
    } catch (const FFmpegEncoderError& e) {
        return e.kind() == FFmpegEncoderError::Kind::cancelled;
    } catch (const ExportError& e) {
        return e.kind() == ExportError::Kind::cancelled;
    } catch (...) {
        return false;
    }
}

ExportFailureContext FFmpegAudioEncoder::failureContext(const PlannedSegment& segment, const FFmpegResult& result)
{
    ExportFailureContext c;
    c.sourceFileNames = segment.sourceFileNames();
    c.decodeErrorCount = result.decodeErrorCount;
    c.corruptStreamKilled = result.corruptStreamKilled;
    c.chapterIndex = segment.chapterIndex;
    c.chapterTitle = segment.chapterTitle;
    return c;
}

void FFmpegAudioEncoder::throwFailure(const FFmpegResult& result, const CancellationToken& token, bool copyPath,
                                      const std::optional<ExportFailureContext>& context)
{
    if (token.isCancelled())
        throw FFmpegEncoderError::cancelled();
    if (result.indicatesOutOfSpace())
        throw ExportError::outOfSpace();
    const QString text = result.error.value_or(QString());
    if (copyPath && result.indicatesDamagedSource()) {
        QString details = text;
        if (context && !context->sourceFileNames.isEmpty())
            details = context->sourceFileNames.join(QStringLiteral(", ")) + QStringLiteral(": ") + text;
        throw ExportError::corruptedSourceRequiresTranscode(details);
    }
    auto error = FFmpegEncoderError::executionFailedWithDiagnostics(
        text.isEmpty() ? QStringLiteral("FFmpeg encoding failed") : text, result.decodeErrorCount,
        result.corruptStreamKilled);
    if (context)
        error.withFailureContext(*context);
    throw error;
}

void FFmpegAudioEncoder::runParallel(int count, int jobs, const std::shared_ptr<const CancellationToken>& userToken,
                                     const Job& job, const QString& logTag)
{
    if (count <= 0)
        return;
    auto globalCancel = std::make_shared<ManualCancellationToken>();
    const std::shared_ptr<const CancellationToken> user = userToken
        ? userToken
        : std::shared_ptr<const CancellationToken>(&CancellationToken::never(), [](const CancellationToken*) {});
    const AnyOfCancellationToken combined({user, globalCancel});

    std::atomic<int> next{0};
    std::mutex mutex;
    int completed = 0;
    int errors = 0;
    int opCancelled = 0;
    std::exception_ptr firstError;

    auto worker = [&]() {
        for (;;) {
            const int i = next.fetch_add(1);
            if (i >= count)
                return;
            if (globalCancel->isCancelled() || user->isCancelled()) {
                Log::write(logTag + QStringLiteral(" Segment[%1] skipped: globalCancel=%2")
                                        .arg(i)
                                        .arg(globalCancel->isCancelled() ? QStringLiteral("true")
                                                                         : QStringLiteral("false")));
                std::lock_guard lock(mutex);
                ++opCancelled;
                continue;
            }
            try {
                job(i, combined);
                Log::write(logTag + QStringLiteral(" Segment[%1] completed OK").arg(i));
                std::lock_guard lock(mutex);
                ++completed;
            } catch (...) {
                const std::exception_ptr error = std::current_exception();
                QString text;
                try {
                    std::rethrow_exception(error);
                } catch (const std::exception& e) {
                    text = QString::fromUtf8(e.what());
                } catch (...) {
                    text = QStringLiteral("unknown error");
                }
                Log::write(logTag + QStringLiteral(" Segment[%1] FAILED: ").arg(i) + text);
                std::lock_guard lock(mutex);
                if (isCancellation(error)) {
                    ++opCancelled;
                } else {
                    ++errors;
                    if (!firstError) {
                        firstError = error;
                        Log::write(logTag + QStringLiteral(" First error — cancelling remaining operations"));
                        globalCancel->cancel();
                    }
                }
            }
        }
    };

    const int threads = std::clamp(jobs, 1, count);
    std::vector<std::thread> pool;
    pool.reserve(static_cast<std::size_t>(threads - 1));
    for (int t = 1; t < threads; ++t)
        pool.emplace_back(worker);
    worker();
    for (std::thread& t : pool)
        t.join();

    Log::write(logTag
               + QStringLiteral(" All operations finished: completed=%1 errors=%2 globalCancelled=%3 opCancelled=%4")
                     .arg(completed)
                     .arg(errors)
                     .arg(globalCancel->isCancelled() ? QStringLiteral("true") : QStringLiteral("false"))
                     .arg(opCancelled));
    if (user->isCancelled())
        throw FFmpegEncoderError::cancelled();
    if (firstError)
        std::rethrow_exception(firstError);
    if (completed != count)
        throw FFmpegEncoderError::incompleteEncoding(count, completed);
}

void FFmpegAudioEncoder::encodeSegment(const PlannedSegment& segment, const OutputSpec& spec, const QString& workDir,
                                   int threads, const QString& output, const CancellationToken& token,
                                   const ProgressCallback& progress) const
{
    const QString muxer = muxerName(spec.format);
    const QStringList block = encoderBlock(spec, segment.copy);
    const bool isConcat = segment.kind != PlannedSegment::Kind::stretch;
    const bool pendingExtract = segment.kind == PlannedSegment::Kind::crossFile;
    Log::write(logPrefix_ + QStringLiteral(" Segment[%1] started: ").arg(segment.index)
               + segment.sourceFileNames().join(QStringLiteral(", ")) + QStringLiteral(" strategy=")
               + (segment.copy ? QStringLiteral("copy") : QStringLiteral("encode")) + QStringLiteral(" isConcat=")
               + (isConcat ? QStringLiteral("true") : QStringLiteral("false")) + QStringLiteral(" pendingExtract=")
               + (pendingExtract ? QStringLiteral("true") : QStringLiteral("false")));

    QStringList args;
    if (segment.kind == PlannedSegment::Kind::stretch) {
        const SegmentPiece& piece = segment.pieces.first();
        QStringList decoder;
        // xHE-AAC needs the platform's decoder where ffmpeg offers one.
        if (piece.facts.codec && piece.facts.codec->toLower() == u"xhe-aac" && catalog().has(QStringLiteral("aac_at")))
            decoder << QStringLiteral("-c:a") << QStringLiteral("aac_at");
        args = stretchArguments(piece, block, threads, muxer, output, decoder);
    } else {
        ConcatList list;
        if (segment.kind == PlannedSegment::Kind::concat) {
            Log::write(logPrefix_ + QStringLiteral(" Segment[%1]: %2 full tracks → direct concat (skip PCM intermediate)")
                                        .arg(segment.index)
                                        .arg(segment.pieces.size()));
            for (const SegmentPiece& p : segment.pieces)
                list.add(p.path);
        } else {
            // Each piece to lossless FLAC first, so that the only lossy pass is the final encode.
            for (qsizetype i = 0; i < segment.pieces.size(); ++i) {
                const SegmentPiece& piece = segment.pieces[i];
                const bool last = i == segment.pieces.size() - 1;
                const QString pieceOut = QDir(workDir).filePath(
                    QStringLiteral("xfile_%1_%2.flac").arg(threeDigits(segment.index)).arg(i));
                std::optional<double> fade;
                if (last && !piece.fullTrack)
                    fade = 0.02;
                const FFmpegResult r = wrapper_->run(extractArguments(piece, pieceOut, fade), piece.length, token);
                if (!r.succeeded()) {
                    if (token.isCancelled())
                        throw FFmpegEncoderError::cancelled();
                    if (r.indicatesOutOfSpace())
                        throw ExportError::outOfSpace();
                    auto error = FFmpegEncoderError::segmentExtractionFailed(
                        (segment.pieces.size() > 1 ? QStringLiteral("Failed to extract cross-file segment ")
                                                   : QStringLiteral("Failed to extract segment "))
                        + QFileInfo(piece.path).fileName() + QStringLiteral(": ") + r.error.value_or(QString()));
                    error.withFailureContext(failureContext(segment, r));
                    throw error;
                }
                list.add(pieceOut);
            }
        }
        const QString listPath = QDir(workDir).filePath(QStringLiteral("segment_%1_list.txt").arg(threeDigits(segment.index)));
        list.write(listPath);
        args = concatArguments(listPath, block, threads, muxer, output);
    }

    const FFmpegResult result = wrapper_->run(args, segment.plannedDuration > 0 ? std::optional<double>(segment.plannedDuration)
                                                                               : std::nullopt,
                                              token, progress);
    if (!result.succeeded())
        throwFailure(result, token, segment.copy, failureContext(segment, result));
    if (!QFileInfo::exists(output) || QFileInfo(output).size() == 0) {
        auto error = FFmpegEncoderError::executionFailed(QStringLiteral("Segment %1 produced no audio").arg(segment.index));
        error.withFailureContext(failureContext(segment, result));
        throw error;
    }
}

std::vector<QString> FFmpegAudioEncoder::encodeSegments(const SegmentPlan& plan, const OutputSpec& spec,
                                                        const QString& workDir, const ConcurrencyPlan& concurrency,
                                                        const std::shared_ptr<const CancellationToken>& token,
                                                        const ProgressCallback& progress) const
{
    const int count = static_cast<int>(plan.segments.size());
    // Ask for the encoder before anything starts, so a missing one fails at once.
    if (std::any_of(plan.segments.begin(), plan.segments.end(), [](const PlannedSegment& s) { return !s.copy; }))
        (void)encoderBlock(spec, false);
    std::vector<QString> outputs(static_cast<std::size_t>(count));
    const QString ext = segmentExtension(spec.format);
    for (int i = 0; i < count; ++i)
        outputs[static_cast<std::size_t>(i)] = QDir(workDir).filePath(QStringLiteral("segment_%1.%2").arg(threeDigits(i), ext));

    Log::write(logPrefix_ + QStringLiteral(" Starting parallel encoding: %1 segments, concurrency=%2, threadsPerJob=%3")
                                .arg(count)
                                .arg(concurrency.jobs)
                                .arg(concurrency.threadsPerJob));

    std::mutex progressMutex;
    std::vector<double> done(static_cast<std::size_t>(count), 0.0);
    const double total = std::max(plan.totalDuration, 1e-9);
    auto reportSegment = [&](int i, double fraction) {
        if (!progress)
            return;
        double sum = 0;
        {
            std::lock_guard lock(progressMutex);
            done[static_cast<std::size_t>(i)] = std::max(done[static_cast<std::size_t>(i)], fraction);
            for (int k = 0; k < count; ++k)
                sum += done[static_cast<std::size_t>(k)] * plan.segments[static_cast<std::size_t>(k)].plannedDuration;
        }
        progress(std::clamp(sum / total, 0.0, 1.0));
    };

    runParallel(
        count, concurrency.jobs, token,
        [&](int i, const CancellationToken& jobToken) {
            const PlannedSegment& segment = plan.segments[static_cast<std::size_t>(i)];
            encodeSegment(segment, spec, workDir, concurrency.threadsPerJob, outputs[static_cast<std::size_t>(i)], jobToken,
                      [&, i](double f) { reportSegment(i, f); });
            reportSegment(i, 1.0);
        },
        logPrefix_);
    return outputs;
}

FFmpegAudioEncoder::TiledList FFmpegAudioEncoder::tile(const QStringList& files)
{
    TiledList tiled;
    std::vector<SegmentTiming> timings;
    timings.reserve(static_cast<std::size_t>(files.size()));
    for (const QString& f : files)
        timings.push_back(measure(f));
    // The demuxer places file k+1's first packet (its priming frame, at
    // -priming) at start(k+1), and file k's last frame ends at
    // start(k) + span(k) - priming(k). Durations are rounded up to the
    // microsecond the list is written in, so rounding can open a gap of
    // a fraction of a sample but never an overlap.
    //
    // A stream copy does not keep the first file's priming skip: ffmpeg moves
    // the joined timeline so that its first packet, the priming frame, starts
    // at 0. Everything therefore lies that frame later in the output than on
    // the demuxer's timeline.
    const double leadIn = timings.empty() || timings.front().startTime != 0.0
        ? 0.0
        : double(timings.front().priming) / double(timings.front().timescale);
    double start = 0;
    for (std::size_t k = 0; k < timings.size(); ++k) {
        const SegmentTiming& t = timings[k];
        const double priming = double(t.priming) / double(t.timescale);
        const double nextPriming = k + 1 < timings.size()
            ? double(timings[k + 1].priming) / double(timings[k + 1].timescale)
            : 0.0;
        const double exact = std::max(0.0, t.span - priming + nextPriming);
        const double duration = std::ceil(exact * 1e6 - 1e-6) / 1e6;
        tiled.list.add(files[qsizetype(k)], t.startTime != 0.0 ? std::optional<double>(t.startTime) : std::nullopt,
                       duration);
        tiled.offsets.push_back(start + leadIn);
        tiled.presentedEnd = start + leadIn + t.presentedDuration;
        start += duration;
    }
    return tiled;
}

QString FFmpegAudioEncoder::mergeChapter(int chapterNumber, const QStringList& parts, const QString& workDir,
                                         const CancellationToken& token) const
{
    const QString output = QDir(workDir).filePath(QStringLiteral("chapter_%1_merged.m4a").arg(threeDigits(chapterNumber)));
    const QString listPath = QDir(workDir).filePath(QStringLiteral("chapter_%1_list.txt").arg(threeDigits(chapterNumber)));
    tile(parts).list.write(listPath);
    const FFmpegResult r = wrapper_->run(mergeArguments(listPath, output), std::nullopt, token);
    if (!r.succeeded()) {
        if (token.isCancelled())
            throw FFmpegEncoderError::cancelled();
        if (r.indicatesOutOfSpace())
            throw ExportError::outOfSpace();
        throw FFmpegEncoderError::executionFailed(QStringLiteral("merge concat failed: ") + r.error.value_or(QString()));
    }
    return output;
}

std::vector<double> FFmpegAudioEncoder::runJoin(const QStringList& files, const QString& listPath,
                                                const QString& output, const QString& muxer,
                                                const CancellationToken& token, const ProgressCallback& progress,
                                                const QString& failurePrefix) const
{
    const TiledList tiled = tile(files);
    tiled.list.write(listPath);
    const FFmpegResult r = wrapper_->run(joinArguments(listPath, output, muxer), tiled.presentedEnd, token, progress);
    if (!r.succeeded()) {
        if (token.isCancelled())
            throw FFmpegEncoderError::cancelled();
        if (r.indicatesOutOfSpace())
            throw ExportError::outOfSpace();
        throw FFmpegEncoderError::executionFailed(failurePrefix + r.error.value_or(QString()));
    }
    return tiled.offsets;
}

std::vector<double> FFmpegAudioEncoder::join(const QStringList& files, const QString& output, const QString& workDir,
                                             OutputFormat format, const CancellationToken& token,
                                             const ProgressCallback& progress) const
{
    if (files.isEmpty())
        throw ExportError::noSourceFiles();
    const QString muxer = muxerName(format);
    QDir work(workDir);
    const int n = static_cast<int>(files.size());
    std::vector<double> offsets;
    if (n < kCascadeThreshold) {
        offsets = runJoin(files, work.filePath(QStringLiteral("concat_list.txt")), output, muxer, token, progress,
                          QStringLiteral("FFmpeg mux failed: "));
    } else {
        const int groups = static_cast<int>(std::ceil(std::sqrt(double(n))));
        const int size = (n + groups - 1) / groups;
        Log::write(QStringLiteral("[Mux] Cascaded concat: %1 segments, %2 groups of ~%3").arg(n).arg(groups).arg(size));
        QStringList groupFiles;
        std::vector<std::vector<double>> inner;
        int made = 0;
        for (int g = 0; made < n; ++g) {
            const QStringList members = files.mid(made, size);
            const int before = made;
            made += static_cast<int>(members.size());
            const QString groupOut = work.filePath(QStringLiteral("cascade_group_%1.m4a").arg(threeDigits(g)));
            ProgressCallback groupProgress;
            if (progress) {
                groupProgress = [&progress, before, count = members.size(), n](double f) {
                    progress(0.5 * (double(before) + f * double(count)) / double(n));
                };
            }
            inner.push_back(runJoin(members, work.filePath(QStringLiteral("cascade_list_%1.txt").arg(threeDigits(g))),
                                    groupOut, muxer, token, groupProgress,
                                    QStringLiteral("Cascade group %1 failed: ").arg(g)));
            groupFiles << groupOut;
        }
        Log::write(QStringLiteral("[Mux] Cascaded final concat: %1 groups → 1 file").arg(groupFiles.size()));
        ProgressCallback finalProgress;
        if (progress)
            finalProgress = [&progress](double f) { progress(0.5 + 0.5 * f); };
        const std::vector<double> groupOffsets = runJoin(groupFiles, work.filePath(QStringLiteral("cascade_final_list.txt")),
                                                         output, muxer, token, finalProgress,
                                                         QStringLiteral("Cascade final concat failed: "));
        for (std::size_t g = 0; g < inner.size(); ++g) {
            for (double o : inner[g])
                offsets.push_back(groupOffsets[g] + o);
        }
        Log::write(QStringLiteral("[Mux] Cascaded concat completed: ") + QFileInfo(output).fileName());
    }
    // Every file plays as it does on its own, its priming skipped and its
    // padding cut, by one edit per file (MP4GaplessTrim::applyJoin); the
    // join then adds no silence and each file starts where the ones before
    // it end, to the sample. Files whose packets the join does not hold one
    // for one keep the timing ffmpeg wrote.
    if (format != OutputFormat::mp3) {
        try {
            std::vector<MP4GaplessTrim::JoinedFile> pieces;
            pieces.reserve(static_cast<std::size_t>(files.size()));
            for (const QString& f : files)
                pieces.push_back(MP4GaplessTrim::joinedFile(f));
            const std::vector<std::int64_t> starts = MP4GaplessTrim::applyJoin(output, pieces);
            const double rate = double(measure(output).timescale);
            offsets.clear();
            for (const std::int64_t start : starts)
                offsets.push_back(double(start) / rate);
            Log::write(QStringLiteral("[Mux] Gapless join: %1 edits, %2 samples")
                           .arg(starts.size())
                           .arg(starts.back() + pieces.back().samples));
        } catch (const Error& e) {
            Log::write(QStringLiteral("[Mux] Join keeps ffmpeg's timing: ") + e.description());
        }
    }
    // The book's first chapter begins with the book.
    if (!offsets.empty())
        offsets.front() = 0.0;

    const QFileInfo info(output);
    if (!info.exists())
        throw FFmpegEncoderError::executionFailed(QStringLiteral("Output file was not created"));
    if (info.size() <= 0)
        throw FFmpegEncoderError::executionFailed(QStringLiteral("Re-encoded file is too small or empty"));
    QFile probe(output);
    if (!probe.open(QIODevice::ReadOnly))
        throw FFmpegEncoderError::executionFailed(
            QStringLiteral("Re-encoded file validation failed: file is not readable"));
    if (progress)
        progress(1.0);
    return offsets;
}

} // namespace folivox
