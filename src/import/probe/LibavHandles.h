#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <memory>

namespace folivox {

// Owners of libav's handles, freed with libav's own functions.
struct LibavFormatCloser {
    void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct LibavCodecFreer {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct LibavPacketFreer {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct LibavFrameFreer {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};

using LibavFormat = std::unique_ptr<AVFormatContext, LibavFormatCloser>;
using LibavCodec = std::unique_ptr<AVCodecContext, LibavCodecFreer>;
using LibavPacket = std::unique_ptr<AVPacket, LibavPacketFreer>;
using LibavFrame = std::unique_ptr<AVFrame, LibavFrameFreer>;

} // namespace folivox
