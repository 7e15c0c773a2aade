#include "media/thumbnail.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <thread>
#include <utility>

#include "media/media_input.h"
#include "media/upright_image.h"

namespace media {

namespace {

// Keyframes come at least every few seconds; a stream that shows none within this many
// packets is decoded frame by frame instead.
constexpr int kMostPacketsForKeyframe = 1024;

// Frame threads decode the frames between the keyframe and the poster time side by side.
// On two cores, two threads took a 1080p60 HEVC poster from 101 to 56 ms and cost light
// 1080p H.264 half a millisecond; threads beyond the cores only add start-up.
int decoderThreads() {
    return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 4u));
}

// The frame showing at `target` (in the stream's time base): the last one that starts at
// or before it, or the first one decoded if none does.
FramePtr decodeFrameAt(AVFormatContext& input, const AVStream& stream, AVCodecContext& decoder,
                       std::int64_t target) {
    PacketPtr packet{av_packet_alloc()};
    FramePtr decoded{av_frame_alloc()};
    FramePtr shown{av_frame_alloc()};
    if (!packet || !decoded || !shown) return nullptr;
    bool haveShown = false;
    bool flushed = false;
    for (;;) {
        const int rc = avcodec_receive_frame(&decoder, decoded.get());
        if (rc == 0) {
            const std::int64_t time = decoded->best_effort_timestamp;
            if (time == AV_NOPTS_VALUE) return decoded;
            if (time < target) {
                std::swap(shown, decoded);
                haveShown = true;
                continue;
            }
            return time > target && haveShown ? std::move(shown) : std::move(decoded);
        }
        if (rc != AVERROR(EAGAIN) || flushed) return haveShown ? std::move(shown) : nullptr;
        if (av_read_frame(&input, packet.get()) < 0) {
            avcodec_send_packet(&decoder, nullptr);
            flushed = true;
            continue;
        }
        // A damaged packet is skipped: the decoder picks up again at the next one it can use.
        if (packet->stream_index == stream.index) avcodec_send_packet(&decoder, packet.get());
        av_packet_unref(packet.get());
    }
}

// The first keyframe the decoder gives from where `input` stands, within
// kMostPacketsForKeyframe of the stream's packets.
FramePtr decodeFirstKeyframe(AVFormatContext& input, const AVStream& stream,
                             AVCodecContext& decoder) {
    PacketPtr packet{av_packet_alloc()};
    FramePtr frame{av_frame_alloc()};
    if (!packet || !frame) return nullptr;
    decoder.skip_frame = AVDISCARD_NONKEY;
    // Block edges that the loop filter would smooth vanish when the picture is fitted into
    // the thumbnail's box.
    decoder.skip_loop_filter = AVDISCARD_ALL;
    for (int sent = 0; sent < kMostPacketsForKeyframe; av_packet_unref(packet.get())) {
        const bool end = av_read_frame(&input, packet.get()) < 0;
        if (!end && packet->stream_index != stream.index) continue;
        ++sent;
        if (!end) avcodec_send_packet(&decoder, packet.get());
        if (!end && !(packet->flags & AV_PKT_FLAG_KEY)) continue;
        // A decoder that reorders holds a picture back until later ones arrive, which with
        // the rest skipped may be the next keyframe seconds on; draining lets it go.
        avcodec_send_packet(&decoder, nullptr);
        if (avcodec_receive_frame(&decoder, frame.get()) == 0) return frame;
        if (end) return nullptr;
        avcodec_flush_buffers(&decoder);
    }
    return nullptr;
}

// `seconds` after `stream`'s start, in its time base.
std::int64_t streamTime(const AVStream& stream, double seconds) {
    const std::int64_t start = stream.start_time != AV_NOPTS_VALUE ? stream.start_time : 0;
    return start +
           av_rescale_q(std::llround(seconds * AV_TIME_BASE), AV_TIME_BASE_Q, stream.time_base);
}

FramePtr decodeShownAt(AVFormatContext& input, AVStream& stream, double seconds,
                       FramePrecision precision) {
    const std::int64_t target = streamTime(stream, seconds);
    if (precision == FramePrecision::keyframe) {
        // One keyframe needs no second thread, and one more only adds start-up.
        if (auto decoder = openDecoder(input, stream, 1)) {
            // A reader that cannot seek reads on from where it stands, which for a freshly
            // opened file is its start.
            av_seek_frame(&input, stream.index, target, AVSEEK_FLAG_BACKWARD);
            if (FramePtr frame = decodeFirstKeyframe(input, stream, *decoder.value())) return frame;
        }
        // No keyframe the decoder knows as one (a stream refreshed a stripe at a time):
        // the frame itself, decoded in full.
    }
    auto decoder = openDecoder(input, stream, decoderThreads());
    if (!decoder) return nullptr;
    av_seek_frame(&input, stream.index, target, AVSEEK_FLAG_BACKWARD);
    return decodeFrameAt(input, stream, *decoder.value(), target);
}

}  // namespace

model::Image thumbnailAt(AVFormatContext& input, double seconds, FramePrecision precision) {
    const AVStream* video = firstStream(input, AVMEDIA_TYPE_VIDEO);
    if (!video) return nullptr;
    AVStream* stream = input.streams[video->index];
    FramePtr frame = decodeShownAt(input, *stream, seconds, precision);
    if (!frame || frame->width <= 0 || frame->height <= 0) return nullptr;
    const AVRational sampleAspect = av_guess_sample_aspect_ratio(&input, stream, frame.get());
    return uprightImage(*frame, sampleAspect, displayRotationDegrees(*stream), kThumbnailMaxWidth,
                        kThumbnailMaxHeight);
}

}  // namespace media
