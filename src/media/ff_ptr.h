#pragma once

// Our ownership vocabulary for FFmpeg objects: one deleter per type, one alias per handle.

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace media {

struct InputFormatFree {
    void operator()(AVFormatContext* c) const noexcept { avformat_close_input(&c); }
};
struct CodecContextFree {
    void operator()(AVCodecContext* c) const noexcept { avcodec_free_context(&c); }
};
struct FrameFree {
    void operator()(AVFrame* f) const noexcept { av_frame_free(&f); }
};
struct PacketFree {
    void operator()(AVPacket* p) const noexcept { av_packet_free(&p); }
};
struct SwsFree {
    void operator()(SwsContext* s) const noexcept { sws_freeContext(s); }
};
struct SwrFree {
    void operator()(SwrContext* s) const noexcept { swr_free(&s); }
};
struct CodecParametersFree {
    void operator()(AVCodecParameters* p) const noexcept { avcodec_parameters_free(&p); }
};
// The graph owns its filter contexts, so they are never held on their own.
struct FilterGraphFree {
    void operator()(AVFilterGraph* g) const noexcept { avfilter_graph_free(&g); }
};

// Output contexts own their AVIOContext too, so they need a different release path.
struct OutputFormatFree {
    void operator()(AVFormatContext* c) const noexcept {
        if (c && !(c->oformat->flags & AVFMT_NOFILE)) avio_closep(&c->pb);
        avformat_free_context(c);
    }
};

using InputFormatPtr = std::unique_ptr<AVFormatContext, InputFormatFree>;
using OutputFormatPtr = std::unique_ptr<AVFormatContext, OutputFormatFree>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextFree>;
using FramePtr = std::unique_ptr<AVFrame, FrameFree>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFree>;
using SwsPtr = std::unique_ptr<SwsContext, SwsFree>;
using SwrPtr = std::unique_ptr<SwrContext, SwrFree>;
using CodecParametersPtr = std::unique_ptr<AVCodecParameters, CodecParametersFree>;
using FilterGraphPtr = std::unique_ptr<AVFilterGraph, FilterGraphFree>;

}  // namespace media
