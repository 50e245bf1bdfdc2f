#include "import/probe/LibavAudioInspector.h"

#include "import/probe/AacDecodedProfile.h"

#include "import/probe/AudioSpecificConfig.h"
#include "import/probe/FFprobeInspector.h"
#include "import/probe/Id3MultiValues.h"
#include "import/probe/InspectionError.h"
#include "import/probe/MP4MediaReferences.h"
#include "import/probe/Mp3PlayedLength.h"
#include "platform/Log.h"

#include <QFile>
#include <QFileInfo>

#include <chrono>
#include <cmath>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
}

namespace folivox {

namespace {

struct InterruptState {
    std::chrono::steady_clock::time_point deadline;
    const std::function<bool()>* abort = nullptr;
    bool timedOut = false;
    bool aborted = false;
};

int interruptCallback(void* opaque)
{
    auto* s = static_cast<InterruptState*>(opaque);
    if (s->abort && *s->abort && (*s->abort)()) {
        s->aborted = true;
        return 1;
    }
    if (std::chrono::steady_clock::now() > s->deadline) {
        s->timedOut = true;
        return 1;
    }
    return 0;
}

// With custom I/O the format context does not own its I/O context; this
// closes it after the format context is gone (declared first, destroyed last).
struct IOContextCloser {
    AVIOContext* pb = nullptr;
    ~IOContextCloser()
    {
        if (pb)
            avio_closep(&pb);
    }
};

struct FormatContextCloser {
    AVFormatContext* ctx = nullptr;
    ~FormatContextCloser()
    {
        if (ctx)
            avformat_close_input(&ctx);
    }
};

std::uint32_t bigEndianTag(std::uint32_t libavTag)
{
    // libavformat stores tags as MKTAG(a,b,c,d) = a | b<<8 | c<<16 | d<<24.
    return ((libavTag & 0xFFu) << 24) | ((libavTag & 0xFF00u) << 8) | ((libavTag >> 8) & 0xFF00u)
        | ((libavTag >> 24) & 0xFFu);
}

std::uint32_t fourCCForCodec(AVCodecID id)
{
    switch (id) {
    case AV_CODEC_ID_AAC:
        return ProbedAudioFormat::fourCC("aac ");
    case AV_CODEC_ID_MP3:
        return ProbedAudioFormat::fourCC(".mp3");
    case AV_CODEC_ID_MP2:
        return ProbedAudioFormat::fourCC(".mp2");
    case AV_CODEC_ID_FLAC:
        return ProbedAudioFormat::fourCC("flac");
    case AV_CODEC_ID_ALAC:
        return ProbedAudioFormat::fourCC("alac");
    case AV_CODEC_ID_OPUS:
        return ProbedAudioFormat::fourCC("opus");
    case AV_CODEC_ID_AC3:
        return ProbedAudioFormat::fourCC("ac-3");
    case AV_CODEC_ID_EAC3:
        return ProbedAudioFormat::fourCC("ec-3");
    default:
        break;
    }
    const AVCodecDescriptor* d = avcodec_descriptor_get(id);
    if (d && QByteArray(d->name).startsWith("pcm_"))
        return ProbedAudioFormat::fourCC("lpcm");
    return 0;
}

// Adds the dictionary's tags that `into` does not have yet. A key the
// dictionary holds more than once (a repeated MP4 item) keeps all its
// values, joined with ';'.
void copyTags(const AVDictionary* dict, QMap<QString, QString>& into)
{
    QMap<QString, QString> found;
    const AVDictionaryEntry* e = nullptr;
    while ((e = av_dict_get(dict, "", e, AV_DICT_IGNORE_SUFFIX))) {
        const QString key = QString::fromUtf8(e->key).toLower();
        const QString value = QString::fromUtf8(e->value);
        auto it = found.find(key);
        if (it == found.end())
            found.insert(key, value);
        else if (!it->split(QLatin1Char(';')).contains(value))
            *it += QLatin1Char(';') + value;
    }
    for (auto it = found.constBegin(); it != found.constEnd(); ++it)
        if (!into.contains(it.key()))
            into.insert(it.key(), it.value());
}

bool isValidDuration(double d)
{
    return std::isfinite(d) && d >= 0;
}

QString formatBitrate(const std::optional<int>& b)
{
    return b ? QString::number(*b) : QStringLiteral("none");
}

// An MP3 whose VBR header promises more frames than the file holds (an
// incomplete download, a copy cut short) is reported by the demuxer at its
// promised length. The bytes actually present give the playable length.
double truncatedMp3Duration(const QString& path, double duration, const std::optional<int>& bitrate,
                            qint64 fileSize)
{
    if (duration <= 0 || !bitrate || *bitrate <= 0 || fileSize <= 0)
        return duration;
    const double expectedBytes = duration * *bitrate / 8.0;
    const double audioBytes = static_cast<double>(fileSize - Mp3PlayedLength::id3v2Size(path));
    if (audioBytes <= 0 || audioBytes >= expectedBytes * 0.9)
        return duration;
    return audioBytes * 8.0 / *bitrate;
}

// A file can open and report a length and still hold no audio that a build
// can read: no decoder for its codec, an MP4 audio track with no samples, or
// one whose samples are in another file or past the end of this one (a
// reference movie, a copy cut short). Such a file is refused here, by name,
// rather than failing a build later on a work file the user never saw.
void checkAudioIsReadable(AVFormatContext* ctx, int audioIndex, const QString& path, const QString& name)
{
    AVStream* st = ctx->streams[audioIndex];
    const AVCodec* decoder = avcodec_find_decoder(st->codecpar->codec_id);
    if (!decoder || decoder->type != AVMEDIA_TYPE_AUDIO)
        throw InspectionError::noDecoder(name, QString::fromUtf8(avcodec_get_name(st->codecpar->codec_id)));

    // The MP4 demuxer lists every sample of the moov's tables when it opens
    // the file; fragmented files list theirs later, as they are read.
    if (!QByteArray(ctx->iformat->name).startsWith("mov,"))
        return;
    const MP4MediaReferences::Facts facts = MP4MediaReferences::read(path);
    if (facts.externalAudio)
        throw InspectionError::externalMedia(name);
    if (facts.fragmented)
        return;
    const int count = avformat_index_get_entries_count(st);
    if (count <= 0)
        throw InspectionError::emptyAudioTrack(name);
    const std::int64_t fileSize = avio_size(ctx->pb);
    if (fileSize <= 0)
        return;
    std::int64_t end = 0;
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry* e = avformat_index_get_entry(st, i);
        if (e && e->pos >= 0)
            end = std::max<std::int64_t>(end, e->pos + e->size);
    }
    if (end > fileSize)
        throw InspectionError::mediaOutsideFile(name, static_cast<double>(fileSize), static_cast<double>(end));
}

} // namespace

LibavAudioInspector::LibavAudioInspector(FFprobeFunction ffprobe, double timeLimitSeconds)
    : ffprobe_(std::move(ffprobe))
    , timeLimitSeconds_(timeLimitSeconds)
{
}

MediaProbe LibavAudioInspector::probe(const QString& path, const std::function<bool()>& abort) const
{
    static const bool quietLibav = [] {
        // libavformat's own console chatter would break the CLI's stderr contract.
        av_log_set_level(AV_LOG_QUIET);
        return true;
    }();
    (void)quietLibav;

    const QString name = QFileInfo(path).fileName();
    InterruptState interrupt;
    interrupt.deadline = std::chrono::steady_clock::now()
        + std::chrono::milliseconds(static_cast<long long>(timeLimitSeconds_ * 1000));
    interrupt.abort = &abort;

    // The container is recognised first, on its own, so that a file that
    // is not media at all can be told from media whose header can't be read.
    AVIOInterruptCB interruptCB{&interruptCallback, &interrupt};
    IOContextCloser io;
    const QByteArray encoded = QFile::encodeName(path);
    if (avio_open2(&io.pb, encoded.constData(), AVIO_FLAG_READ, &interruptCB, nullptr) < 0) {
        if (interrupt.timedOut || interrupt.aborted)
            throw InspectionError::timeout(name, timeLimitSeconds_);
        throw InspectionError::noFormatDescription(name);
    }
    // By content alone first: a name ending in ".mp3" makes anything look
    // like an MP3 to the prober. The name is a hint only when content fails.
    const AVInputFormat* inputFormat = nullptr;
    int probeRc = av_probe_input_buffer2(io.pb, &inputFormat, nullptr, nullptr, 0, 0);
    const bool recognisedByContent = probeRc >= 0 && inputFormat;
    if (!recognisedByContent && !interrupt.timedOut && !interrupt.aborted) {
        inputFormat = nullptr;
        probeRc = av_probe_input_buffer2(io.pb, &inputFormat, encoded.constData(), nullptr, 0, 0);
    }
    if (interrupt.timedOut || interrupt.aborted)
        throw InspectionError::timeout(name, timeLimitSeconds_);
    if (probeRc < 0 || !inputFormat)
        throw InspectionError::noFormatDescription(name);

    FormatContextCloser holder;
    holder.ctx = avformat_alloc_context();
    if (!holder.ctx)
        throw InspectionError::noFormatDescription(name);
    holder.ctx->interrupt_callback = interruptCB;
    holder.ctx->pb = io.pb;
    holder.ctx->flags |= AVFMT_FLAG_CUSTOM_IO;

    AVFormatContext* ctx = holder.ctx;
    const int openRc = avformat_open_input(&ctx, encoded.constData(), inputFormat, nullptr);
    holder.ctx = ctx;  // freed by libavformat on failure (ctx is then null)
    if (interrupt.timedOut || interrupt.aborted)
        throw InspectionError::timeout(name, timeLimitSeconds_);
    if (openRc < 0) {
        // Media whose header can't be read (cut short, damaged) against a
        // file that only its name made look like media.
        if (recognisedByContent)
            throw InspectionError::noStreamDescription(name);
        throw InspectionError::noFormatDescription(name);
    }

    const int infoRc = avformat_find_stream_info(ctx, nullptr);
    if (interrupt.timedOut || interrupt.aborted)
        throw InspectionError::timeout(name, timeLimitSeconds_);
    (void)infoRc;  // a partial answer is still an answer; the checks below decide

    MediaProbe p;
    p.path = path;
    p.container = QString::fromUtf8(ctx->iformat->name);
    copyTags(ctx->metadata, p.tags);

    const int audioIndex = av_find_best_stream(ctx, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        const AVStream* st = ctx->streams[i];
        if (st->codecpar->codec_type != AVMEDIA_TYPE_VIDEO)
            continue;
        if (st->disposition & AV_DISPOSITION_ATTACHED_PIC) {
            if (p.coverImage.isEmpty() && st->attached_pic.size > 0)
                p.coverImage = QByteArray(reinterpret_cast<const char*>(st->attached_pic.data),
                                          st->attached_pic.size);
        } else {
            p.hasVideo = true;
        }
    }
    if (audioIndex < 0)
        throw InspectionError::noAudioTrack(name);

    const AVStream* st = ctx->streams[audioIndex];
    const AVCodecParameters* par = st->codecpar;
    p.codecName = QString::fromUtf8(avcodec_get_name(par->codec_id));
    p.codecProfile = par->profile;
    if (const char* profile = avcodec_profile_name(par->codec_id, par->profile))
        p.profileName = QString::fromUtf8(profile);
    p.codecTag = par->codec_tag ? bigEndianTag(par->codec_tag) : 0;
    if (par->extradata && par->extradata_size > 0)
        p.extradata = QByteArray(reinterpret_cast<const char*>(par->extradata), par->extradata_size);
    p.sampleRate = par->sample_rate;
    p.channels = par->ch_layout.nb_channels;
    if (par->bit_rate > 0)
        p.streamBitrate = static_cast<int>(par->bit_rate);
    if (ctx->bit_rate > 0)
        p.containerBitrate = static_cast<int>(ctx->bit_rate);
    copyTags(st->metadata, p.tags);
    if (par->codec_id == AV_CODEC_ID_MP3) {
        // libavformat keeps the first of an ID3v2 frame's values only.
        const QMap<QString, QString> multi = Id3MultiValues::of(path);
        for (auto it = multi.constBegin(); it != multi.constEnd(); ++it)
            p.tags.insert(it.key(), it.value());
    }

    const std::uint32_t tag = p.codecTag;
    p.encrypted = tag == ProbedAudioFormat::fourCC("drms") || tag == ProbedAudioFormat::fourCC("aavd")
        || tag == ProbedAudioFormat::fourCC("enca") || p.container == u"aa";
    p.probed.formatID = tag ? tag : fourCCForCodec(par->codec_id);
    p.probed.sampleRate = par->sample_rate;
    p.probed.channels = static_cast<std::uint32_t>(std::max(0, p.channels));

    if (st->duration != AV_NOPTS_VALUE && st->duration > 0)
        p.duration = static_cast<double>(st->duration) * av_q2d(st->time_base);
    else if (ctx->duration != AV_NOPTS_VALUE && ctx->duration > 0)
        p.duration = static_cast<double>(ctx->duration) / AV_TIME_BASE;
    // The MP3 demuxer counts the encoder delay, which it reports as the
    // stream's start time, in the duration; the playable length is without it.
    if (p.container == u"mp3" && st->start_time != AV_NOPTS_VALUE && st->start_time > 0) {
        const double delay = static_cast<double>(st->start_time) * av_q2d(st->time_base);
        if (delay < p.duration)
            p.duration -= delay;
    }
    if (p.container == u"mp3") {
        const double whole = truncatedMp3Duration(path, p.duration, p.streamBitrate, avio_size(ctx->pb));
        // A whole file with a LAME header plays its frames less the encoder's
        // delay and padding, which the build's decode drops too.
        const std::optional<double> played = whole == p.duration ? Mp3PlayedLength::fromLameHeader(path) : std::nullopt;
        p.duration = played && std::abs(*played - whole) < 0.1 ? *played : whole;
    }

    checkAudioIsReadable(ctx, audioIndex, path, name);

    for (unsigned i = 0; i < ctx->nb_chapters; ++i) {
        const AVChapter* ch = ctx->chapters[i];
        MediaChapterMark m;
        const AVDictionaryEntry* t = av_dict_get(ch->metadata, "title", nullptr, 0);
        m.title = t ? QString::fromUtf8(t->value) : QString();
        m.start = static_cast<double>(ch->start) * av_q2d(ch->time_base);
        m.end = static_cast<double>(ch->end) * av_q2d(ch->time_base);
        p.chapters.append(m);
    }
    return p;
}

AudioSourceFormat LibavAudioInspector::formatFromProbe(const MediaProbe& p)
{
    const QString name = QFileInfo(p.path).fileName();
    if (p.codecName.isEmpty() || p.codecName == u"none")
        throw InspectionError::noStreamDescription(name);

    AudioSourceFormat f;
    f.codec = p.codecName.toLower();
    int sampleRate = p.sampleRate;
    if (p.codecName == u"aac") {
        const auto asc = AudioSpecificConfig::parse(p.extradata);
        if (asc) {
            f.codec = asc->codec();
            f.aacSignaledNoSBR = asc->signalsNoSBR();
            if (sampleRate <= 0)
                sampleRate = asc->extensionSampleRate.value_or(asc->sampleRate);
        } else if (p.codecProfile == FF_PROFILE_AAC_HE) {
            f.codec = QStringLiteral("he-aac");
        } else if (p.codecProfile == FF_PROFILE_AAC_HE_V2) {
            f.codec = QStringLiteral("he-aacv2");
        } else if (p.codecProfile == FF_PROFILE_AAC_LOW) {
            f.codec = QStringLiteral("aac-lc");
        }
    }
    f.codecLongName = AudioSourceFormat::longNameForCodec(f.codec);
    f.bitrate = p.streamBitrate ? p.streamBitrate : p.containerBitrate;
    f.sampleRate = sampleRate;
    f.channels = p.channels;
    f.duration = p.duration;
    f.format = p.container;

    if (!isValidDuration(f.duration))
        throw InspectionError::invalidDuration(name, f.duration);
    if (f.sampleRate <= 0 || f.sampleRate > 768000)
        throw InspectionError::invalidSampleRate(name, f.sampleRate);
    if (f.channels <= 0 || f.channels > 64)
        throw InspectionError::invalidChannelCount(name, f.channels);
    return f;
}

bool LibavAudioInspector::distrusts(const QString& path, const QString& codec)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    const QString c = codec.toLower();
    const bool mp4Family = ext == u"m4b" || ext == u"m4a" || ext == u"mp4" || ext == u"m4r";
    const bool plainAAC = c == u"aac-lc" || c == u"aac" || c == u"mp4a";
    return mp4Family && plainAAC;
}

AudioSourceFormat LibavAudioInspector::inspect(const QString& path) const
{
    return inspect(probe(path));
}

AudioSourceFormat LibavAudioInspector::inspect(const MediaProbe& p) const
{
    const QString name = QFileInfo(p.path).fileName();
    const AudioSourceFormat av = formatFromProbe(p);
    if (!distrusts(p.path, av.codec)) {
        Log::write(QStringLiteral("[Inspect/AV] %1: codec=%2 sampleRate=%3 channels=%4 duration=%5s bitrate=%6")
                       .arg(name, av.codec, QString::number(av.sampleRate), QString::number(av.channels),
                            QString::asprintf("%.2f", av.duration), formatBitrate(av.bitrate)));
        return av;
    }
    // Decoding the first frames tells the profile for certain; ffmpeg's
    // text (and the bitrate rule) are asked only when that is not possible.
    const std::optional<QString> decoded = AacDecodedProfile::of(p.path);
    std::optional<AudioSourceFormat> ff;
    if (!decoded && ffprobe_) {
        try {
            ff = ffprobe_(p.path);
        } catch (const std::exception& e) {
            Log::write(QStringLiteral("[Inspect/AV+FF] %1: ffmpeg inspection failed (%2) — using the in-process answer")
                           .arg(name, QString::fromUtf8(e.what())));
        }
    }
    AudioSourceFormat result = merge(av, ff, name, decoded);
    // Without parametric stereo the stream has the core's channels; the
    // stream facts may say two for mono SBR, as the decoder makes two.
    if (decoded && *decoded != u"he-aacv2") {
        const auto asc = AudioSpecificConfig::parse(p.extradata);
        if (asc && (asc->channelConfiguration == 1 || asc->channelConfiguration == 2))
            result.channels = asc->channelConfiguration;
    }
    return result;
}

AudioSourceFormat LibavAudioInspector::merge(const AudioSourceFormat& av, const std::optional<AudioSourceFormat>& ff,
                                             const QString& name, const std::optional<QString>& decoded)
{
    AudioSourceFormat result;
    if (decoded) {
        // The decoder has seen the audio itself: SBR and parametric stereo
        // are known, not guessed, so neither the bitrate nor the text of
        // `ffmpeg -i` (which reads only the container) overrides it.
        result = av;
        result.codec = *decoded;
        result.codecLongName = AudioSourceFormat::longNameForCodec(result.codec);
        if (result.codec != u"aac-lc")
            result.aacSignaledNoSBR = false;
        // Parametric stereo decodes to two channels from a mono core.
        if (result.codec == u"he-aacv2")
            result.channels = std::max(2, result.channels);
    } else if (ff && ff->isHEAACFamily()) {
        result = av;
        result.codec = ff->codec;
        result.codecLongName = ff->codecLongName;
        result.channels = ff->channels;
        result.bitrate = av.bitrate ? av.bitrate : ff->bitrate;
        result.aacSignaledNoSBR = false;
    } else if (av.bitrate && av.sampleRate >= 32000
               && static_cast<double>(*av.bitrate) / std::max(1, av.channels) < 40000.0) {
        // A low bitrate per channel at a full sample rate is what SBR looks
        // like from outside: plain AAC-LC at that rate would sound poor, so
        // encoders that get there use HE-AAC.
        result = av;
        result.codec = QStringLiteral("he-aac");
        result.codecLongName = AudioSourceFormat::longNameForCodec(result.codec);
        result.aacSignaledNoSBR = false;
    } else {
        result = av;
    }
    Log::write(QStringLiteral("[Inspect/AV+FF] %1: codec=%2 (av=%3 ff=%4 decoded=%5)")
                   .arg(name, result.codec, av.codec, ff ? ff->codec : QStringLiteral("none"),
                        decoded.value_or(QStringLiteral("none"))));
    return result;
}

FormatProbeFunction LibavAudioInspector::formatProbeFunction(std::shared_ptr<const FFmpegWrapper> ffmpeg)
{
    auto ffprobe = std::make_shared<FFprobeInspector>(std::move(ffmpeg));
    return [ffprobe](const QString& path) -> std::optional<FormatProbe> {
        try {
            const LibavAudioInspector inspector([ffprobe](const QString& p) { return ffprobe->inspect(p); });
            const AudioSourceFormat f = inspector.inspect(path);
            FormatProbe probe;
            probe.codec = f.codec;
            probe.bitrate = f.bitrate;
            probe.sampleRate = f.sampleRate;
            probe.channels = f.channels;
            probe.duration = f.duration;
            return probe;
        } catch (const std::exception& e) {
            Log::write(QStringLiteral("[Inspect] Format of ") + QFileInfo(path).fileName()
                       + QStringLiteral(" could not be read: ") + QString::fromUtf8(e.what()));
            return std::nullopt;
        }
    };
}

} // namespace folivox
