#include "export/strategies/GaplessSliceEncoder.h"

#include "export/engine/ExportError.h"
#include "export/strategies/FFmpegEncoderError.h"
#include "process/FFmpegWrapper.h"
#include "export/strategies/MP4GaplessTrim.h"
#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <mutex>

namespace folivox {

namespace {

constexpr int kBytesPerSample = 2; // s16le

QString threeDigits(int value)
{
    return QString::asprintf("%03d", value);
}

QStringList rawInput(int sampleRate, int channels)
{
    return {QStringLiteral("-f"), QStringLiteral("s16le"), QStringLiteral("-ar"), QString::number(sampleRate),
            QStringLiteral("-ac"), QString::number(channels)};
}

[[noreturn]] void failJob(const FFmpegResult& r, const CancellationToken& token, const QStringList& names,
                          const QString& what)
{
    ExportFailureContext context;
    context.sourceFileNames = names;
    context.decodeErrorCount = r.decodeErrorCount;
    context.corruptStreamKilled = r.corruptStreamKilled;
    if (token.isCancelled())
        throw FFmpegEncoderError::cancelled();
    if (r.indicatesOutOfSpace())
        throw ExportError::outOfSpace();
    auto error = FFmpegEncoderError::executionFailed(what + QStringLiteral(": ") + r.error.value_or(QString()));
    error.withFailureContext(context);
    throw error;
}

} // namespace

GaplessSliceEncoder::GaplessSliceEncoder(std::shared_ptr<const FFmpegAudioEncoder> encoder)
    : encoder_(std::move(encoder))
{
}

std::vector<GaplessSliceEncoder::DecodedSource>
GaplessSliceEncoder::decodeSources(const QStringList& sources, const std::vector<QString>& codecs, int sampleRate,
                                   int channels, const QString& workDir, const ConcurrencyPlan& concurrency,
                                   const std::shared_ptr<const CancellationToken>& token, const Progress& progress,
                                   const SourceDecoded& decodedOne) const
{
    const int count = static_cast<int>(sources.size());
    std::vector<DecodedSource> decoded(static_cast<std::size_t>(count));
    std::mutex mutex;
    std::vector<double> done(static_cast<std::size_t>(count), 0.0);
    auto report = [&](int i, double f) {
        if (!progress)
            return;
        double sum = 0;
        {
            std::lock_guard lock(mutex);
            done[std::size_t(i)] = std::max(done[std::size_t(i)], f);
            for (double d : done)
                sum += d;
        }
        progress(sum / std::max(1, count));
    };
    Log::write(QStringLiteral("[BatchEncoding] Decoding %1 sources to %2 Hz, %3 ch PCM").arg(count).arg(sampleRate).arg(channels));
    FFmpegAudioEncoder::runParallel(
        count, concurrency.jobs, token,
        [&](int i, const CancellationToken& jobToken) {
            DecodedSource& d = decoded[std::size_t(i)];
            d.path = sources[i];
            d.pcm = pcmPath(workDir, i);
            QStringList args;
            const QString codec = std::size_t(i) < codecs.size() ? codecs[std::size_t(i)].toLower() : QString();
            if (codec == u"xhe-aac" && encoder_->catalog().has(QStringLiteral("aac_at")))
                args << QStringLiteral("-c:a") << QStringLiteral("aac_at");
            args << QStringLiteral("-i") << d.path << QStringLiteral("-vn") << QStringLiteral("-map")
                 << QStringLiteral("0:a:0") << QStringLiteral("-threads") << QString::number(concurrency.threadsPerJob)
                 << QStringLiteral("-ac") << QString::number(channels) << QStringLiteral("-ar")
                 << QString::number(sampleRate) << QStringLiteral("-c:a") << QStringLiteral("pcm_s16le")
                 << QStringLiteral("-f") << QStringLiteral("s16le") << QStringLiteral("-y") << d.pcm;
            const FFmpegResult r = encoder_->wrapper().run(args, std::nullopt, jobToken, [&, i](double f) { report(i, f); });
            if (!r.succeeded())
                failJob(r, jobToken, {QFileInfo(d.path).fileName()},
                        QStringLiteral("Cannot decode ") + QFileInfo(d.path).fileName());
            d.samples = QFileInfo(d.pcm).size() / (kBytesPerSample * channels);
            if (d.samples <= 0) {
                auto error = FFmpegEncoderError::executionFailed(QStringLiteral("No audio could be decoded from ")
                                                                 + QFileInfo(d.path).fileName());
                ExportFailureContext context;
                context.sourceFileNames = {QFileInfo(d.path).fileName()};
                error.withFailureContext(context);
                throw error;
            }
            if (decodedOne)
                decodedOne(i, d.samples);
            report(i, 1.0);
        },
        QStringLiteral("[BatchEncoding]"));
    return decoded;
}

QString GaplessSliceEncoder::pcmPath(const QString& workDir, int source)
{
    return QDir(workDir).filePath(QStringLiteral("source_%1.pcm").arg(threeDigits(source)));
}

QString GaplessSliceEncoder::sliceFile(const QString& workDir, int slice)
{
    return QDir(workDir).filePath(QStringLiteral("segment_%1.aac").arg(threeDigits(slice)));
}

QStringList GaplessSliceEncoder::sourceNames(const PlannedSlice& slice, const std::vector<Stretch>& timeline,
                                             const std::vector<DecodedSource>& sources)
{
    QStringList names;
    std::int64_t at = 0;
    for (const Stretch& st : timeline) {
        if (at < slice.inputEnd() && at + st.count > slice.inputStart()) {
            const QString name = QFileInfo(sources[std::size_t(st.source)].path).fileName();
            if (!names.contains(name))
                names << name;
        }
        at += st.count;
    }
    return names;
}

void GaplessSliceEncoder::encodeSlice(const SlicePlan& plan, int i, const std::vector<Stretch>& timeline,
                                      const std::vector<DecodedSource>& sources,
                                      const FFmpegAudioEncoder::OutputSpec& spec, const QString& workDir, int threads,
                                      const CancellationToken& token, const Progress& progress) const
{
    const PlannedSlice& s = plan.slices[std::size_t(i)];
    const int channels = spec.channels.value_or(2);
    const QStringList names = sourceNames(s, timeline, sources);
    Log::write(QStringLiteral("[BatchEncoding] Segment[%1] started: ").arg(i) + names.join(QStringLiteral(", "))
               + QStringLiteral(" strategy=encode isConcat=%1 pendingExtract=false samples=[%2,%3) margins=%4/%5")
                     .arg(names.size() > 1 ? QStringLiteral("true") : QStringLiteral("false"))
                     .arg(s.start)
                     .arg(s.end)
                     .arg(s.marginBefore)
                     .arg(s.marginAfter));
    QStringList args = rawInput(plan.sampleRate, channels);
    args << QStringLiteral("-i") << inputURL(timeline, sources, s.inputStart(), s.inputEnd(), channels);
    args << QStringLiteral("-threads") << QString::number(threads) << encoder_->encoderBlock(spec, false);
    args << QStringLiteral("-f") << QStringLiteral("adts") << QStringLiteral("-y") << sliceFile(workDir, i);
    const FFmpegResult r = encoder_->wrapper().run(args, double(s.inputLength()) / plan.sampleRate, token, progress);
    if (!r.succeeded())
        failJob(r, token, names, QStringLiteral("Segment %1 failed").arg(i));
}

EncoderFraming GaplessSliceEncoder::probeFraming(const FFmpegAudioEncoder::OutputSpec& spec, const QString& workDir,
                                                 const CancellationToken& token) const
{
    const QString out = QDir(workDir).filePath(QStringLiteral("framing_probe.m4a"));
    const int rate = spec.sampleRate.value_or(44100);
    const int channels = spec.channels.value_or(2);
    QStringList args{QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                     QStringLiteral("anullsrc=r=%1:cl=%2").arg(rate).arg(channels == 1 ? QStringLiteral("mono")
                                                                                       : QStringLiteral("stereo")),
                     QStringLiteral("-t"), QStringLiteral("0.2")};
    args << encoder_->encoderBlock(spec, false);
    args << QStringLiteral("-f") << QStringLiteral("ipod") << QStringLiteral("-y") << out;
    const FFmpegResult r = encoder_->wrapper().run(args, std::nullopt, token);
    if (!r.succeeded())
        failJob(r, token, {}, QStringLiteral("The encoder could not be started"));
    const MP4GaplessTrim::Layout layout = MP4GaplessTrim::read(out);
    QFile::remove(out);
    Log::write(QStringLiteral("[BatchEncoding] Encoder framing: %1 samples per packet, priming %2")
                   .arg(layout.framing.frameSize)
                   .arg(layout.framing.priming));
    return layout.framing;
}

QString GaplessSliceEncoder::inputURL(const std::vector<Stretch>& timeline, const std::vector<DecodedSource>& sources,
                                      std::int64_t from, std::int64_t to, int channels)
{
    const std::int64_t frameBytes = std::int64_t(kBytesPerSample) * channels;
    QStringList parts;
    std::int64_t at = 0;
    for (const Stretch& s : timeline) {
        const std::int64_t a = std::max(from, at);
        const std::int64_t b = std::min(to, at + s.count);
        if (b > a) {
            const QString pcm = sources[std::size_t(s.source)].pcm;
            if (pcm.contains(u'|'))
                throw FFmpegEncoderError::invalidPath(pcm);
            const std::int64_t offset = s.start + (a - at);
            parts << QStringLiteral("subfile,,start,%1,end,%2,,:%3")
                         .arg(offset * frameBytes)
                         .arg((offset + (b - a)) * frameBytes)
                         .arg(pcm);
        }
        at += s.count;
        if (at >= to)
            break;
    }
    if (parts.size() == 1)
        return parts.front();
    return QStringLiteral("concat:") + parts.join(u'|');
}

std::vector<std::pair<qsizetype, int>> GaplessSliceEncoder::adtsFrames(const QByteArray& data)
{
    std::vector<std::pair<qsizetype, int>> frames;
    const auto* d = reinterpret_cast<const unsigned char*>(data.constData());
    qsizetype at = 0;
    while (at + 7 <= data.size()) {
        if (d[at] != 0xFF || (d[at + 1] & 0xF6) != 0xF0)
            break;
        const int length = ((d[at + 3] & 0x03) << 11) | (d[at + 4] << 3) | (d[at + 5] >> 5);
        if (length < 7 || at + length > data.size())
            break;
        frames.emplace_back(at, length);
        at += length;
    }
    return frames;
}

void GaplessSliceEncoder::join(const SlicePlan& plan, const FFmpegAudioEncoder::OutputSpec& spec, const QString& workDir,
                               const QString& output, const CancellationToken& token, const Progress& joinProgress) const
{
    const int count = static_cast<int>(plan.slices.size());
    const int rate = plan.sampleRate;
    // Join: each slice's own packets, in order.
    if (token.isCancelled())
        throw FFmpegEncoderError::cancelled();
    const QString joined = QDir(workDir).filePath(QStringLiteral("book.aac"));
    QFile out(joined);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw FFmpegEncoderError::executionFailed(QStringLiteral("Cannot write the joined audio: ") + out.errorString());
    std::int64_t packets = 0;
    for (int i = 0; i < count; ++i) {
        const PlannedSlice& s = plan.slices[std::size_t(i)];
        QFile in(sliceFile(workDir, i));
        if (!in.open(QIODevice::ReadOnly))
            throw FFmpegEncoderError::executionFailed(QStringLiteral("Segment %1 produced no audio").arg(i));
        const QByteArray data = in.readAll();
        in.close();
        const auto frames = adtsFrames(data);
        const std::int64_t first = s.firstKeptFrame;
        const std::int64_t wanted = s.keptFrames >= 0 ? s.keptFrames : std::int64_t(frames.size()) - first;
        if (wanted <= 0 || first + wanted > std::int64_t(frames.size()))
            throw FFmpegEncoderError::executionFailed(QStringLiteral("Segment %1 holds %2 packets, %3 expected")
                                                          .arg(i)
                                                          .arg(frames.size())
                                                          .arg(first + wanted));
        const qsizetype from = frames[std::size_t(first)].first;
        const auto& lastFrame = frames[std::size_t(first + wanted - 1)];
        if (out.write(data.constData() + from, lastFrame.first + lastFrame.second - from) < 0)
            throw FFmpegEncoderError::executionFailed(QStringLiteral("Cannot write the joined audio: ") + out.errorString());
        packets += wanted;
        QFile::remove(sliceFile(workDir, i));
        if (joinProgress)
            joinProgress(0.3 * double(i + 1) / count);
    }
    out.close();
    Log::write(QStringLiteral("[Mux] Joined %1 segments: %2 packets kept").arg(count).arg(packets));

    const QStringList args{QStringLiteral("-f"),   QStringLiteral("aac"),  QStringLiteral("-i"),
                           joined,                 QStringLiteral("-c"),   QStringLiteral("copy"),
                           QStringLiteral("-map_metadata"), QStringLiteral("-1"), QStringLiteral("-map"),
                           QStringLiteral("0:a"),  QStringLiteral("-f"),   FFmpegAudioEncoder::muxerName(spec.format),
                           QStringLiteral("-y"),   output};
    const FFmpegResult r = encoder_->wrapper().run(args, double(plan.totalSamples) / rate, token, [&](double f) {
        if (joinProgress)
            joinProgress(0.3 + 0.6 * f);
    });
    if (!r.succeeded()) {
        if (token.isCancelled())
            throw FFmpegEncoderError::cancelled();
        if (r.indicatesOutOfSpace())
            throw ExportError::outOfSpace();
        throw FFmpegEncoderError::executionFailed(QStringLiteral("FFmpeg mux failed: ") + r.error.value_or(QString()));
    }
    QFile::remove(joined);

    // The joined packets must hold the plan's samples: one frame of encoder
    // padding at most beyond them.
    const MP4GaplessTrim::Layout layout = MP4GaplessTrim::read(output);
    const std::int64_t held = layout.mediaSamples - plan.framing.priming;
    Log::write(QStringLiteral("[Mux] Joined packets hold %1 samples after priming; plan %2").arg(held).arg(plan.totalSamples));
    if (held < plan.totalSamples || held - plan.totalSamples >= plan.framing.frameSize)
        throw FFmpegEncoderError::executionFailed(
            QStringLiteral("The joined audio holds %1 samples, the plan %2").arg(held).arg(plan.totalSamples));
    MP4GaplessTrim::apply(output, plan.framing.priming, plan.totalSamples);
    if (joinProgress)
        joinProgress(1.0);
}

} // namespace folivox
