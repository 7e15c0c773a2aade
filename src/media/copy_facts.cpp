#include "media/copy_facts.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "media/media_input.h"

namespace media {

namespace {

// Enough packets to meet a stream's untimed B-frames.
constexpr int kTimestampSample = 120;

// Leading pictures follow their keyframe within the encoder's reorder depth.
constexpr int kLeadingSample = 16;

// What the groups of pictures after the first look like: how many pictures after a keyframe
// in decode order show before it (an open group's leading pictures), and how long a later
// keyframe waits from its decoding to its showing, which in an open-group stream differs from
// the first keyframe's.
class LaterGroups {
  public:
    void add(const AVPacket& packet) {
        if (packet.flags & AV_PKT_FLAG_KEY) {
            if (keyPts_ && !keyDelay_) keyDelay_ = packet.pts - packet.dts;
            keyPts_ = packet.pts;
            inGroup_ = 0;
            return;
        }
        if (keyPts_ && packet.pts < *keyPts_) leading_ = std::max(leading_, ++inGroup_);
    }
    bool seen() const { return keyDelay_.has_value(); }
    int leadingPictures() const { return leading_; }
    std::optional<std::int64_t> keyDelay() const { return keyDelay_; }

  private:
    std::optional<std::int64_t> keyPts_;
    std::optional<std::int64_t> keyDelay_;
    int inGroup_ = 0;
    int leading_ = 0;
};

}  // namespace

model::CopyFacts copyFacts(AVFormatContext& input) {
    model::CopyFacts facts;
    const AVStream* video = firstStream(input, AVMEDIA_TYPE_VIDEO);
    const AVStream* audio = firstStream(input, AVMEDIA_TYPE_AUDIO);
    if (video) facts.videoCodec = avcodec_get_name(video->codecpar->codec_id);
    if (audio) {
        facts.audioCodec = avcodec_get_name(audio->codecpar->codec_id);
        if (const char* profile =
                avcodec_profile_name(audio->codecpar->codec_id, audio->codecpar->profile))
            facts.audioProfile = profile;
    }
    const double origin =
        video ? static_cast<double>(movieOrigin(input, *video)) * av_q2d(video->time_base) : 0;

    if (av_seek_frame(&input, -1, 0, AVSEEK_FLAG_BACKWARD) < 0) return facts;
    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return facts;
    // The index holds decode times; a keyframe shows its decode delay later: the first
    // keyframe's own, later ones the second's.
    std::optional<std::int64_t> delay;
    LaterGroups later;
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
            later.add(*packet);
            if (indexed == 0 && (packet->flags & AV_PKT_FLAG_KEY))
                facts.keyframeSeconds.push_back(packet->pts * av_q2d(stream.time_base) - origin);
        }
        av_packet_unref(packet.get());
        if (indexed > 0 && read >= kTimestampSample && delay) break;
    }
    const auto keyEntry = [&](int i) -> const AVIndexEntry* {
        const AVIndexEntry* entry = avformat_index_get_entry(const_cast<AVStream*>(video), i);
        return entry && (entry->flags & AVINDEX_KEYFRAME) ? entry : nullptr;
    };
    // The first keyframe starts the stream and leads nothing, so an indexed file is looked
    // at just after its second, which the packets read so far may not reach.
    int second = 1;
    while (second < indexed && !keyEntry(second)) ++second;
    if (!later.seen() && second < indexed &&
        av_seek_frame(&input, video->index, keyEntry(second)->timestamp, AVSEEK_FLAG_BACKWARD) >=
            0) {
        for (int read = 0; read < kLeadingSample && av_read_frame(&input, packet.get()) >= 0;) {
            if (packet->stream_index == video->index && packet->pts != AV_NOPTS_VALUE &&
                packet->dts != AV_NOPTS_VALUE) {
                if (read > 0 && (packet->flags & AV_PKT_FLAG_KEY)) break;
                later.add(*packet);
                ++read;
            }
            av_packet_unref(packet.get());
        }
    }
    for (int i = 0; i < indexed; ++i) {
        const AVIndexEntry* entry = keyEntry(i);
        if (!entry) continue;
        const std::int64_t keyDelay =
            i > 0 && later.keyDelay() ? *later.keyDelay() : delay.value_or(0);
        facts.keyframeSeconds.push_back((entry->timestamp + keyDelay) * av_q2d(video->time_base) -
                                        origin);
    }
    std::sort(facts.keyframeSeconds.begin(), facts.keyframeSeconds.end());
    facts.leadingPictures = later.leadingPictures();
    return facts;
}

}  // namespace media
