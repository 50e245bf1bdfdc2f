#include "import/probe/AudioStreamProbe.h"

#include "import/probe/LibavHandles.h"
#include "platform/Log.h"
#include "process/CancellationToken.h"

#include <QFile>
#include <QFileInfo>

namespace folivox {

namespace {

// Packets read at most, whatever they hold: a stream whose packets decode to
// nothing must not keep the probe reading the whole file.
constexpr int kMaxPackets = 4000;

int interruptWhenCancelled(void* opaque)
{
    return static_cast<const CancellationToken*>(opaque)->isCancelled() ? 1 : 0;
}

} // namespace

bool AudioStreamProbe::appliesTo(const QString& path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    return ext != u"ogg" && ext != u"oga" && ext != u"opus" && ext != u"spx";
}

AudioStreamProbe::Result AudioStreamProbe::probe(const QString& path, const CancellationToken& token)
{
    Result result;
    AVFormatContext* raw = avformat_alloc_context();
    if (!raw)
        return result;
    raw->interrupt_callback.callback = interruptWhenCancelled;
    raw->interrupt_callback.opaque = const_cast<CancellationToken*>(&token);
    // On failure avformat_open_input frees the context itself.
    if (avformat_open_input(&raw, QFile::encodeName(path).constData(), nullptr, nullptr) < 0) {
        result.ran = !token.isCancelled();
        return result;
    }
    LibavFormat format(raw);
    const AVCodec* decoder = nullptr;
    const int index = avformat_find_stream_info(format.get(), nullptr) < 0
                          ? -1
                          : av_find_best_stream(format.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    LibavCodec ctx(decoder ? avcodec_alloc_context3(decoder) : nullptr);
    if (index < 0 || !ctx || avcodec_parameters_to_context(ctx.get(), format->streams[index]->codecpar) < 0
        || avcodec_open2(ctx.get(), decoder, nullptr) < 0) {
        result.ran = !token.isCancelled();
        return result;
    }

    LibavPacket packet(av_packet_alloc());
    LibavFrame frame(av_frame_alloc());
    std::int64_t samples = 0;
    std::int64_t wanted = -1;
    // One error per packet the decoder refuses, either when it is handed
    // over or when its audio is taken out (as the ffmpeg command counts).
    const auto takeFrames = [&]() {
        for (;;) {
            const int rc = avcodec_receive_frame(ctx.get(), frame.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF)
                return true;
            if (rc < 0)
                return false;
            if (wanted < 0)
                wanted = std::max(1, frame->sample_rate);
            samples += frame->nb_samples;
            av_frame_unref(frame.get());
        }
    };
    for (int read = 0; read < kMaxPackets && (wanted < 0 || samples < wanted); ++read) {
        if (token.isCancelled())
            return result;
        if (av_read_frame(format.get(), packet.get()) < 0)
            break;
        if (packet->stream_index == index) {
            const int rc = avcodec_send_packet(ctx.get(), packet.get());
            if ((rc < 0 && rc != AVERROR(EAGAIN) && rc != AVERROR_EOF) || !takeFrames())
                ++result.decodeErrors;
        }
        av_packet_unref(packet.get());
    }
    if (token.isCancelled())
        return result;
    result.ran = true;
    result.corrupt = isCorrupt(result.decodeErrors);
    Log::write(QStringLiteral("[AudioStreamProbe] %1: %2 decode error(s) in %3 samples")
                   .arg(QFileInfo(path).fileName())
                   .arg(result.decodeErrors)
                   .arg(samples));
    if (result.corrupt)
        Log::write(QStringLiteral("[AudioStreamProbe] ❌ ") + QString::number(result.decodeErrors)
                   + QStringLiteral(" decode errors in 1s — stream is corrupt"));
    return result;
}

} // namespace folivox
