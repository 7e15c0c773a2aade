#include "media/media_check.h"

#include <cstdint>
#include <string>
#include <vector>

#include "media/av_error.h"
#include "media/media_input.h"

namespace media {

namespace {

struct Candidate {
    const AVStream* stream = nullptr;
    CodecContextPtr decoder;
};

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
    // Whatever read the file before (the poster's decode) leaves it past the start.
    const std::int64_t start = input.start_time != AV_NOPTS_VALUE ? input.start_time : 0;
    avformat_seek_file(&input, -1, INT64_MIN, start, start, 0);
    std::vector<Candidate> candidates;
    std::string lastFailure;
    for (AVMediaType type : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}) {
        const AVStream* stream = firstStream(input, type);
        if (!stream) continue;
        auto decoder = openDecoder(input, *stream, 1);
        if (!decoder) {
            lastFailure = decoder.error().message;
            continue;
        }
        candidates.push_back({stream, std::move(decoder).value()});
    }
    if (candidates.empty())
        return common::Error{lastFailure.empty()
                                 ? name + " holds neither video nor audio."
                                 : name + " holds no stream that can be decoded: " + lastFailure};

    PacketPtr packet{av_packet_alloc()};
    FramePtr frame{av_frame_alloc()};
    if (!packet || !frame) return avError(AVERROR(ENOMEM), "Cannot decode " + name);
    for (int read = 0; read < kMostPacketsBeforeMedia; ++read) {
        if (av_read_frame(&input, packet.get()) < 0) break;
        for (Candidate& c : candidates) {
            if (packet->stream_index != c.stream->index) continue;
            // A damaged packet is passed over, as playback would.
            avcodec_send_packet(c.decoder.get(), packet.get());
            if (receivedMedia(*c.decoder, *frame)) return common::success();
        }
        av_packet_unref(packet.get());
    }
    // Decoders hold frames back; the end of the input lets them go.
    for (Candidate& c : candidates) {
        avcodec_send_packet(c.decoder.get(), nullptr);
        if (receivedMedia(*c.decoder, *frame)) return common::success();
    }
    return common::Error{name + " gives no picture and no sound: none of its streams decodes."};
}

}  // namespace media
