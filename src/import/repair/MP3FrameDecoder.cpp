#include "import/repair/MP3FrameDecoder.h"

#include "container/mp3/MP3FrameHeader.h"
#include "platform/Error.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

namespace folivox {

namespace {

struct CodecFreer {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct PacketFreer {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameFreer {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};

// Counts the errors libav logs for the decoder contexts registered with it.
// libav has one process-wide log callback; this one counts the messages of
// registered contexts and hands every other message to libav's default
// callback, as if none were installed.
class ErrorTap {
public:
    // Never destroyed: libav may log while other static objects go away.
    static ErrorTap& instance()
    {
        static ErrorTap* tap = new ErrorTap;
        return *tap;
    }

    void watch(const void* context, int* counter)
    {
        std::lock_guard lock(mutex_);
        counters_[context] = counter;
    }
    void unwatch(const void* context)
    {
        std::lock_guard lock(mutex_);
        counters_.erase(context);
    }

private:
    ErrorTap() { av_log_set_callback(&ErrorTap::callback); }

    static void callback(void* avcl, int level, const char* fmt, va_list vl)
    {
        ErrorTap& tap = instance();
        {
            std::lock_guard lock(tap.mutex_);
            const auto it = tap.counters_.find(avcl);
            if (it != tap.counters_.end()) {
                if (level <= AV_LOG_ERROR)
                    ++*it->second;
                return;
            }
        }
        av_log_default_callback(avcl, level, fmt, vl);
    }

    std::mutex mutex_;
    std::map<const void*, int*> counters_;
};

// Registers a context with the tap for as long as it lives.
class Watch {
public:
    Watch(const void* context, int* counter) : context_(context) { ErrorTap::instance().watch(context, counter); }
    ~Watch() { ErrorTap::instance().unwatch(context_); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

private:
    const void* context_;
};

constexpr std::size_t kCancelCheckFrames = 4096;

// n samples of each channel of a decoded frame, interleaved into out (when
// given) as float; returns their peak. The float and 16-bit decoders'
// formats are read.
float copySamples(const AVFrame& frame, std::size_t n, std::size_t channels, float* out)
{
    const auto format = AVSampleFormat(frame.format);
    float peak = 0.0f;
    for (std::size_t c = 0; c < channels; ++c) {
        for (std::size_t s = 0; s < n; ++s) {
            float v = 0.0f;
            switch (format) {
            case AV_SAMPLE_FMT_FLTP:
                v = reinterpret_cast<const float*>(frame.extended_data[c])[s];
                break;
            case AV_SAMPLE_FMT_FLT:
                v = reinterpret_cast<const float*>(frame.extended_data[0])[s * channels + c];
                break;
            case AV_SAMPLE_FMT_S16P:
                v = float(reinterpret_cast<const std::int16_t*>(frame.extended_data[c])[s]) / 32768.0f;
                break;
            case AV_SAMPLE_FMT_S16:
                v = float(reinterpret_cast<const std::int16_t*>(frame.extended_data[0])[s * channels + c]) / 32768.0f;
                break;
            default:
                break;
            }
            peak = std::max(peak, std::abs(v));
            if (out)
                out[s * channels + c] = v;
        }
    }
    return peak;
}

} // namespace

std::optional<MP3FrameDecoder::Result> MP3FrameDecoder::decode(const std::vector<MP3FrameSequence::Frame>& frames,
                                                               std::size_t from, std::size_t to, bool keepSamples,
                                                               const std::function<bool()>& cancelled,
                                                               const std::function<void(double)>& progress)
{
    to = std::min(to, frames.size());
    from = std::min(from, to);
    Result result;
    if (from == to)
        return result;
    const auto first = MP3FrameHeader::decode(frames[from].data, frames[from].length);
    result.samplesPerFrame = first ? first->samplesPerFrame : 1152;
    result.channels = first && first->channelMode == 3 ? 1 : 2;

    const AVCodec* codec = avcodec_find_decoder_by_name("mp3float");
    if (!codec)
        codec = avcodec_find_decoder(AV_CODEC_ID_MP3);
    if (!codec)
        throw GenericError(QStringLiteral("libavcodec has no MP3 decoder"));
    std::unique_ptr<AVCodecContext, CodecFreer> ctx(avcodec_alloc_context3(codec));
    if (!ctx)
        throw GenericError(QStringLiteral("cannot set up the MP3 decoder"));
    ctx->thread_count = 1;
    int errors = 0;
    const Watch watch(ctx.get(), &errors);
    if (avcodec_open2(ctx.get(), codec, nullptr) < 0)
        throw GenericError(QStringLiteral("cannot open the MP3 decoder"));
    std::unique_ptr<AVPacket, PacketFreer> packet(av_packet_alloc());
    std::unique_ptr<AVFrame, FrameFreer> frame(av_frame_alloc());
    if (!packet || !frame)
        throw GenericError(QStringLiteral("cannot set up the MP3 decoder"));

    const std::size_t spf = std::size_t(result.samplesPerFrame);
    const auto channels = std::size_t(result.channels);
    if (keepSamples)
        result.samples.assign((to - from) * spf * channels, 0.0f);
    std::vector<std::uint8_t> buffer;
    const std::size_t start = from >= kWarmUpFrames ? from - kWarmUpFrames : 0;
    for (std::size_t i = start; i < to; ++i) {
        if ((i - start) % kCancelCheckFrames == kCancelCheckFrames - 1) {
            if (cancelled && cancelled())
                return std::nullopt;
            if (progress)
                progress(double(i - start) / double(to - start));
        }
        buffer.assign(frames[i].data, frames[i].data + frames[i].length);
        buffer.resize(frames[i].length + AV_INPUT_BUFFER_PADDING_SIZE, 0);
        av_packet_unref(packet.get());
        packet->data = buffer.data();
        packet->size = int(frames[i].length);
        errors = 0;
        bool failed = avcodec_send_packet(ctx.get(), packet.get()) < 0;
        std::size_t got = 0;
        float peak = 0.0f;
        while (true) {
            const int r = avcodec_receive_frame(ctx.get(), frame.get());
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF)
                break;
            if (r < 0) {
                failed = true;
                break;
            }
            if (i >= from && std::size_t(frame->ch_layout.nb_channels) == channels) {
                // The frame's samples, at most one frame's worth.
                const std::size_t n = std::min<std::size_t>(std::size_t(frame->nb_samples), spf - got);
                float* out = keepSamples ? result.samples.data() + ((i - from) * spf + got) * channels : nullptr;
                peak = std::max(peak, copySamples(*frame, n, channels, out));
                got += n;
            }
            av_frame_unref(frame.get());
        }
        if (i < from)
            continue;
        if (failed || errors > 0 || peak > kImplausiblePeak)
            result.undecodable.push_back(std::int64_t(i));
        else if (peak < kSilentPeak)
            result.silent.push_back(std::int64_t(i));
    }
    return result;
}

} // namespace folivox
