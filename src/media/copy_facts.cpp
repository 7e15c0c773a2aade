#include "media/copy_facts.h"

#include <algorithm>
#include <optional>

#include "media/media_input.h"

namespace media {

namespace {

// Enough packets to meet a stream's untimed B-frames.
constexpr int kTimestampSample = 120;

}  // namespace

model::CopyFacts copyFacts(AVFormatContext& input) {
    model::CopyFacts facts;
    const AVStream* video = firstStream(input, AVMEDIA_TYPE_VIDEO);
    const AVStream* audio = firstStream(input, AVMEDIA_TYPE_AUDIO);
    if (video) facts.videoCodec = avcodec_get_name(video->codecpar->codec_id);
    if (audio) facts.audioCodec = avcodec_get_name(audio->codecpar->codec_id);
    const double origin =
        video ? static_cast<double>(movieOrigin(input, *video)) * av_q2d(video->time_base) : 0;

    if (av_seek_frame(&input, -1, 0, AVSEEK_FLAG_BACKWARD) < 0) return facts;
    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return facts;
    // The index holds decode times; a keyframe shows its stream's first decode delay later.
    std::optional<std::int64_t> delay;
    const int indexed = video ? avformat_index_get_entries_count(const_cast<AVStream*>(video)) : 0;
    for (int read = 0; av_read_frame(&input, packet.get()) >= 0; ++read) {
        const AVStream& stream = *input.streams[packet->stream_index];
        const bool timed = stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO &&
                                   stream.codecpar->codec_type != AVMEDIA_TYPE_AUDIO
                               ? true
                               : packet->pts != AV_NOPTS_VALUE && packet->dts != AV_NOPTS_VALUE;
        if (!timed) facts.untimedPackets = true;
        if (&stream == video && timed) {
            if (!delay) delay = packet->pts - packet->dts;
            if (indexed == 0 && (packet->flags & AV_PKT_FLAG_KEY))
                facts.keyframeSeconds.push_back(packet->pts * av_q2d(stream.time_base) - origin);
        }
        av_packet_unref(packet.get());
        if (indexed > 0 && read >= kTimestampSample && delay) break;
    }
    for (int i = 0; i < indexed; ++i) {
        const AVIndexEntry* entry = avformat_index_get_entry(const_cast<AVStream*>(video), i);
        if (!entry || !(entry->flags & AVINDEX_KEYFRAME)) continue;
        facts.keyframeSeconds.push_back(
            (entry->timestamp + delay.value_or(0)) * av_q2d(video->time_base) - origin);
    }
    std::sort(facts.keyframeSeconds.begin(), facts.keyframeSeconds.end());
    return facts;
}

}  // namespace media
