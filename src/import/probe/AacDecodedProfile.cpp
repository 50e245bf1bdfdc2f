#include "import/probe/AacDecodedProfile.h"

#include "import/probe/LibavHandles.h"

#include <QFile>

namespace folivox {

namespace {

// Enough frames for the decoder to have met the first SBR and PS payloads.
constexpr int kFramesToDecode = 8;
constexpr int kPacketsToRead = 64;

} // namespace

std::optional<QString> AacDecodedProfile::of(const QString& path)
{
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
        return std::nullopt;
    LibavFormat format(raw);
    if (avformat_find_stream_info(format.get(), nullptr) < 0)
        return std::nullopt;
    const int index = av_find_best_stream(format.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (index < 0)
        return std::nullopt;
    const AVCodecParameters* par = format->streams[index]->codecpar;
    if (par->codec_id != AV_CODEC_ID_AAC)
        return std::nullopt;
    const AVCodec* decoder = avcodec_find_decoder(AV_CODEC_ID_AAC);
    if (!decoder)
        return std::nullopt;
    LibavCodec ctx(avcodec_alloc_context3(decoder));
    if (!ctx || avcodec_parameters_to_context(ctx.get(), par) < 0 || avcodec_open2(ctx.get(), decoder, nullptr) < 0)
        return std::nullopt;
    // What the container declares, before the decoder has seen any audio.
    const int declaredRate = par->sample_rate;
    const int declaredChannels = par->ch_layout.nb_channels;

    LibavPacket packet(av_packet_alloc());
    LibavFrame frame(av_frame_alloc());
    int decoded = 0;
    int outputRate = 0;
    int outputChannels = 0;
    for (int read = 0; read < kPacketsToRead && decoded < kFramesToDecode; ++read) {
        if (av_read_frame(format.get(), packet.get()) < 0)
            break;
        if (packet->stream_index == index && avcodec_send_packet(ctx.get(), packet.get()) == 0) {
            while (avcodec_receive_frame(ctx.get(), frame.get()) == 0) {
                ++decoded;
                outputRate = frame->sample_rate;
                outputChannels = frame->ch_layout.nb_channels;
                av_frame_unref(frame.get());
            }
        }
        av_packet_unref(packet.get());
    }
    if (decoded == 0)
        return std::nullopt;
    const bool sbr = ctx->profile == FF_PROFILE_AAC_HE || ctx->profile == FF_PROFILE_AAC_HE_V2
                     || (declaredRate > 0 && outputRate >= 2 * declaredRate);
    const bool ps = ctx->profile == FF_PROFILE_AAC_HE_V2 || (declaredChannels == 1 && outputChannels == 2);
    if (sbr && ps)
        return QStringLiteral("he-aacv2");
    if (sbr)
        return QStringLiteral("he-aac");
    return QStringLiteral("aac-lc");
}

} // namespace folivox
