#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/uuid.h"
#include "composition/composition.h"
#include "media/ff_ptr.h"
#include "media/media_input.h"
#include "media/probe.h"
#include "model/clip.h"
#include "support/media_fixtures.h"
#include "support/player_decode.h"

extern "C" {
#include <libavutil/imgutils.h>
}

// Tiny media made by the ffmpeg tool, and plain decodes of it (every frame from the start, no
// seeking) to hold the renderers' output against.
namespace render_test {

using testing_support::makeMedia;

inline const std::string kPicture = "-f lavfi -i testsrc2=size=160x120:rate=30 ";

// H.264 with B-frames (some not referenced) and keyframes 40 frames apart.
inline std::filesystem::path h264() {
    return makeMedia("render_h264.mp4", kPicture +
                                            "-t 3 -c:v libx264 -preset veryfast -bf 3 -g 40 "
                                            "-keyint_min 40 -sc_threshold 0 -pix_fmt yuv420p");
}
inline std::filesystem::path vp9Webm() {
    return makeMedia(
        "render_vp9.webm",
        kPicture + "-t 2 -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 20 -b:v 200k");
}
inline std::filesystem::path turnedClockwise(int degrees) {
    return testing_support::turnedCopy("render_cw" + std::to_string(degrees) + ".mp4", h264(),
                                       degrees);
}
inline std::filesystem::path solid(const std::string& colour) {
    return makeMedia("render_" + colour + ".mp4",
                     "-f lavfi -i color=c=" + colour +
                         ":size=160x120:rate=30 -t 2 -c:v libx264 -preset veryfast "
                         "-pix_fmt yuv420p");
}

inline const std::string kTone = "-f lavfi -i sine=frequency=440:sample_rate=48000 ";
inline std::filesystem::path toneWav() {
    return makeMedia("render_tone.wav", kTone + "-t 2 -c:a pcm_s16le");
}
// The clip the probe makes of `file`, placed at `start` and trimmed to in..out.
inline model::Clip clipOf(const std::filesystem::path& file, double start, double inSeconds,
                          double outSeconds) {
    auto probed =
        media::probeClip(file, std::nullopt, common::Uuid::random(), media::ThumbnailPolicy::skip);
    EXPECT_TRUE(probed) << probed.error().message;
    if (!probed) return {};
    model::Clip clip = probed.value();
    clip.startOnTimeline = start;
    clip.inSeconds = inSeconds;
    clip.outSeconds = outSeconds;
    return clip;
}

// One frame of a plain decode, its time counted from the stream's start time.
struct PlainFrame {
    std::int64_t timestamp = 0;
    media::FramePtr frame;
};

struct PlainVideo {
    AVRational timeBase{0, 1};
    std::vector<PlainFrame> frames;
};

// Every frame of the first video stream, decoded on one thread from the start.
inline PlainVideo decodeAllVideo(const std::filesystem::path& file) {
    PlainVideo result;
    auto input = media::openInput(file);
    const AVStream* stream =
        input ? media::firstStream(*input.value(), AVMEDIA_TYPE_VIDEO) : nullptr;
    EXPECT_TRUE(stream) << file;
    if (!stream) return result;
    auto decoder = media::openDecoder(*input.value(), *stream, 1);
    EXPECT_TRUE(decoder);
    if (!decoder) return result;
    result.timeBase = stream->time_base;
    const std::int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
    const auto receive = [&] {
        for (media::FramePtr frame{av_frame_alloc()};
             avcodec_receive_frame(decoder.value().get(), frame.get()) >= 0;
             frame.reset(av_frame_alloc())) {
            // A frame without a time follows the one before by one unit.
            const std::int64_t time = frame->best_effort_timestamp;
            const std::int64_t timestamp =
                time != AV_NOPTS_VALUE
                    ? time - start
                    : (result.frames.empty() ? 0 : result.frames.back().timestamp + 1);
            result.frames.push_back({timestamp, std::move(frame)});
        }
    };
    media::PacketPtr packet{av_packet_alloc()};
    while (av_read_frame(input.value().get(), packet.get()) >= 0) {
        if (packet->stream_index == stream->index)
            avcodec_send_packet(decoder.value().get(), packet.get());
        av_packet_unref(packet.get());
        receive();
    }
    avcodec_send_packet(decoder.value().get(), nullptr);
    receive();
    return result;
}

// The pixels of a picture, packed.
inline std::vector<std::uint8_t> pixels(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    std::vector<std::uint8_t> bytes(
        static_cast<std::size_t>(av_image_get_buffer_size(format, frame.width, frame.height, 1)));
    av_image_copy_to_buffer(bytes.data(), static_cast<int>(bytes.size()), frame.data,
                            frame.linesize, format, frame.width, frame.height, 1);
    return bytes;
}

inline bool samePicture(const AVFrame& a, const AVFrame& b) {
    return a.format == b.format && a.width == b.width && a.height == b.height &&
           pixels(a) == pixels(b);
}

// The index of the frame shown at the source time composition time `value`/`scale`
// seconds maps to within `segment`: the last frame whose time is at or before it, or the
// first frame. Worked out in whole numbers, apart from the renderer's own arithmetic.
inline std::size_t expectedFrame(const PlainVideo& video, const composition::Segment& segment,
                                 std::int64_t value, std::int64_t scale) {
    __extension__ typedef __int128 Wide;
    const auto& source = *segment.source;
    const Wide assetStart = source.assetRange.start.ticks;
    const Wide assetLength = source.assetRange.duration.ticks;
    const Wide start = segment.start.ticks;
    const Wide length = segment.duration.ticks;
    // source seconds = sourceNumerator / sourceDenominator
    const Wide sourceNumerator = assetStart * scale * length +
                                 (static_cast<Wide>(value) * 600 - start * scale) * assetLength;
    const Wide sourceDenominator = static_cast<Wide>(600) * scale * length;
    std::size_t shown = 0;
    for (std::size_t i = 0; i < video.frames.size(); ++i) {
        const Wide frameNumerator =
            static_cast<Wide>(video.frames[i].timestamp) * video.timeBase.num;
        if (frameNumerator * sourceDenominator <= sourceNumerator * video.timeBase.den) shown = i;
    }
    return shown;
}

// Every sample of a 48 kHz mono file's sound as the ffmpeg tool decodes it.
inline std::vector<float> decodeAllAudio(const std::filesystem::path& file) {
    return testing_support::decodeAudio(file, testing_support::Player::ffmpeg, 48000, 1).samples;
}

}  // namespace render_test
