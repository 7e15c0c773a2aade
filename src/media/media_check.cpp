#include "media/media_check.h"

#include <cstdint>
#include <string>
#include <vector>

#include "media/av_error.h"
#include "media/media_input.h"

namespace media {

namespace {

bool gaveMedia(const AVFrame& frame) {
    return (frame.width > 0 && frame.height > 0) || frame.nb_samples > 0;
}

// Receives what `decoder` has ready; true once a frame with pictures or samples came out.
bool receivedMedia(AVCodecContext& decoder, AVFrame& frame) {
    while (avcodec_receive_frame(&decoder, &frame) == 0) {
        const bool media = gaveMedia(frame);
        av_frame_unref(&frame);
        if (media) return true;
    }
    return false;
}

// Reads `input` on from where it stands, feeding `stream`'s packets to `decoder`, until it
// gives a picture or samples, within kMostPacketsBeforeMedia packets or the end.
bool yieldsMedia(AVFormatContext& input, const AVStream& stream, AVCodecContext& decoder,
                 AVPacket& packet, AVFrame& frame) {
    for (int read = 0; read < kMostPacketsBeforeMedia; ++read) {
        if (av_read_frame(&input, &packet) < 0) break;
        const bool ours = packet.stream_index == stream.index;
        // A damaged packet is passed over, as playback would.
        if (ours) avcodec_send_packet(&decoder, &packet);
        av_packet_unref(&packet);
        if (ours && receivedMedia(decoder, frame)) return true;
    }
    // Decoders hold frames back; the end of the input lets them go.
    avcodec_send_packet(&decoder, nullptr);
    return receivedMedia(decoder, frame);
}

}  // namespace

common::Status checkFormatRecognised(const AVFormatContext& input) {
    if (input.probe_score >= kLeastFormatScore) return common::success();
    return common::Error{sourceName(input) +
                         " is not media: its contents match no format, only its name does."};
}

common::Status checkMediaClaims(const model::Clip& clip) {
    const std::string name = clip.url.string();
    if (!(clip.fullDurationSeconds > 0))
        return common::Error{name + " holds no media: its length is 0."};
    if (clip.fullDurationSeconds > kLongestMediaSeconds)
        return common::Error{name + " claims a length of " +
                             std::to_string(clip.fullDurationSeconds) +
                             " seconds, more than the 24 hours a clip may last."};
    const double width = clip.naturalSize.width, height = clip.naturalSize.height;
    if (width > kLargestPictureSide || height > kLargestPictureSide)
        return common::Error{
            name + " claims pictures of " + std::to_string(static_cast<long long>(width)) + "x" +
            std::to_string(static_cast<long long>(height)) + ", more than the " +
            std::to_string(kLargestPictureSide) + " pixels a side that a clip may have."};
    return common::success();
}

common::Status decodesFirstFrame(AVFormatContext& input) {
    const std::string name = sourceName(input);
    PacketPtr packet{av_packet_alloc()};
    FramePtr frame{av_frame_alloc()};
    if (!packet || !frame) return avError(AVERROR(ENOMEM), "Cannot decode " + name);
    // Whatever read the file before (the poster's decode) leaves it past the start.
    const std::int64_t start = input.start_time != AV_NOPTS_VALUE ? input.start_time : 0;
    std::string lastFailure;
    bool opened = false;
    // Sound first: a few samples cost far less to decode than a picture, and either proves
    // the file.
    for (AVMediaType type : {AVMEDIA_TYPE_AUDIO, AVMEDIA_TYPE_VIDEO}) {
        const AVStream* stream = firstStream(input, type);
        if (!stream) continue;
        auto decoder = openDecoder(input, *stream, 1);
        if (!decoder) {
            lastFailure = decoder.error().message;
            continue;
        }
        opened = true;
        avformat_seek_file(&input, -1, INT64_MIN, start, start, 0);
        if (yieldsMedia(input, *stream, *decoder.value(), *packet, *frame))
            return common::success();
    }
    if (!opened)
        return common::Error{lastFailure.empty()
                                 ? name + " holds neither video nor audio."
                                 : name + " holds no stream that can be decoded: " + lastFailure};
    return common::Error{name + " gives no picture and no sound: none of its streams decodes."};
}

}  // namespace media
