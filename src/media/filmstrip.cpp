#include "media/filmstrip.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>

#include "common/media_time.h"
#include "media/media_input.h"
#include "media/upright_image.h"

namespace media {

namespace {

// 0 lets FFmpeg pick one frame thread per core (and one more): decoding on from a keyframe
// to a time is where nearly all of a filmstrip's time goes.
constexpr int kDecoderThreads = 0;

// Durations beyond this are no real file's, and their times would not fit a MediaTime.
constexpr double kLongestSeconds = 1e12;

// Where one filmstrip frame may come from, in the stream's time base, both ends included.
struct Window {
    std::int64_t from = 0;
    std::int64_t to = 0;

    bool contains(std::int64_t time) const { return time >= from && time <= to; }
};

// A keyframe the demuxer's index knows of.
struct IndexedKeyframe {
    std::int64_t time = 0;      // stream time base; some formats index decode times
    std::int64_t position = 0;  // byte offset in the file
};

// Decodes one video stream for a series of rising windows. It decodes on from where it
// stands when the keyframe it would seek to has already been passed, and seeks otherwise,
// so each stretch of the file is decoded at most once while the windows rise. When the
// index puts a keyframe inside the window, only keyframes are decoded until one arrives.
class FrameWalker {
  public:
    static std::optional<FrameWalker> make(AVFormatContext& input, AVStream& stream) {
        auto decoder = openDecoder(input, stream, kDecoderThreads);
        if (!decoder) return std::nullopt;
        PacketPtr packet{av_packet_alloc()};
        FramePtr incoming{av_frame_alloc()};
        FramePtr latest{av_frame_alloc()};
        FramePtr previous{av_frame_alloc()};
        if (!packet || !incoming || !latest || !previous) return std::nullopt;
        return FrameWalker(input, stream, std::move(decoder.value()), std::move(packet),
                           std::move(incoming), std::move(latest), std::move(previous));
    }

    // A frame showing somewhere in `window`, or null if none can be served. The frame
    // stays valid until the next call.
    AVFrame* frameWithin(Window window) {
        if (haveLatest_ && window.contains(timeOf(*latest_))) return latest_.get();
        if (haveLatest_ && timeOf(*latest_) > window.to) {
            // The frame before the latest one shows from before the window to after it.
            if (havePrevious_ && timeOf(*previous_) < window.from) return previous_.get();
            return seekAndDecode(window);
        }
        const auto key = indexedKeyframe(window.to);
        if (continuous_ && key && key->position <= lastSentPosition_) return decodeForward(window);
        return seekAndDecode(window);
    }

  private:
    FrameWalker(AVFormatContext& input, AVStream& stream, CodecContextPtr decoder, PacketPtr packet,
                FramePtr incoming, FramePtr latest, FramePtr previous)
        : input_(&input),
          stream_(&stream),
          decoder_(std::move(decoder)),
          packet_(std::move(packet)),
          incoming_(std::move(incoming)),
          latest_(std::move(latest)),
          previous_(std::move(previous)) {}

    static std::int64_t timeOf(const AVFrame& frame) { return frame.best_effort_timestamp; }

    // The last keyframe at or before `time`, if the index can tell.
    std::optional<IndexedKeyframe> indexedKeyframe(std::int64_t time) const {
        // A generic index grows only as the file is read, so it cannot tell what lies ahead.
        if (input_->iformat->flags & AVFMT_GENERIC_INDEX) return std::nullopt;
        const int entries = avformat_index_get_entries_count(stream_);
        const AVIndexEntry* last =
            entries > 0 ? avformat_index_get_entry(stream_, entries - 1) : nullptr;
        // Neither reaching the time nor lying beyond what was read, the index may have been
        // built while reading, as for fragmented files, and knows nothing of what lies ahead.
        if (!last || (last->timestamp < time && last->pos <= lastSentPosition_))
            return std::nullopt;
        const AVIndexEntry* entry =
            avformat_index_get_entry_from_timestamp(stream_, time, AVSEEK_FLAG_BACKWARD);
        if (!entry) return std::nullopt;
        return IndexedKeyframe{entry->timestamp, entry->pos};
    }

    AVFrame* seekAndDecode(Window window) {
        // The index may give decode times, so a keyframe it places inside the window is
        // only a hint: its frame is checked, and on a miss the window is decoded in full.
        const auto key = indexedKeyframe(window.to);
        if (key && window.contains(key->time)) {
            seek(window.to, AVDISCARD_NONKEY);
            if (AVFrame* frame = decodeForward(window)) return frame;
        }
        seek(window.to, AVDISCARD_DEFAULT);
        return decodeForward(window);
    }

    void seek(std::int64_t time, AVDiscard skip) {
        // A reader that cannot seek reads on from where it stands; times are checked anyway.
        av_seek_frame(input_, stream_->index, time, AVSEEK_FLAG_BACKWARD);
        avcodec_flush_buffers(decoder_.get());
        decoder_->skip_frame = skip;
        haveLatest_ = false;
        havePrevious_ = false;
        lastSentPosition_ = -1;
        // Frames decoded with non-keyframes skipped are no base for decoding on.
        continuous_ = skip == AVDISCARD_DEFAULT;
    }

    AVFrame* decodeForward(Window window) {
        for (;;) {
            const int rc = avcodec_receive_frame(decoder_.get(), incoming_.get());
            if (rc == 0) {
                std::swap(previous_, latest_);
                std::swap(latest_, incoming_);
                havePrevious_ = haveLatest_;
                haveLatest_ = true;
                const std::int64_t time = timeOf(*latest_);
                if (time == AV_NOPTS_VALUE) return latest_.get();
                if (decoder_->skip_frame != AVDISCARD_DEFAULT)
                    return window.contains(time) ? latest_.get() : nullptr;
                if (time < window.from) continue;
                if (time <= window.to) return latest_.get();
                // Every frame before this one started before the window.
                return havePrevious_ ? previous_.get() : nullptr;
            }
            if (rc == AVERROR_EOF) {
                // With non-keyframes skipped, the latest frame is not the stream's last.
                const bool lastShows = haveLatest_ && decoder_->skip_frame == AVDISCARD_DEFAULT &&
                                       endOfLast(*latest_) > window.from;
                return lastShows ? latest_.get() : nullptr;
            }
            if (rc != AVERROR(EAGAIN)) return nullptr;
            sendNextPacket();
        }
    }

    // Feeds the decoder the next packet of the stream, or the end of the stream.
    void sendNextPacket() {
        for (;;) {
            if (av_read_frame(input_, packet_.get()) < 0) {
                avcodec_send_packet(decoder_.get(), nullptr);
                return;
            }
            const bool ours = packet_->stream_index == stream_->index;
            if (ours) {
                lastSentPosition_ = std::max(lastSentPosition_, packet_->pos);
                // A damaged packet is skipped: the decoder picks up at the next one it can use.
                avcodec_send_packet(decoder_.get(), packet_.get());
            }
            av_packet_unref(packet_.get());
            if (ours) return;
        }
    }

    // The time at which the stream's last frame stops showing: the stream's end, or one
    // frame after the frame's start when the stream's length is not known.
    std::int64_t endOfLast(const AVFrame& last) const {
        const std::int64_t start = stream_->start_time != AV_NOPTS_VALUE ? stream_->start_time : 0;
        if (stream_->duration != AV_NOPTS_VALUE && stream_->duration > 0)
            return std::max(timeOf(last), start + stream_->duration);
        const AVRational rate = stream_->avg_frame_rate;
        if (rate.num <= 0 || rate.den <= 0) return timeOf(last);
        return timeOf(last) + av_rescale_q(1, av_inv_q(rate), stream_->time_base);
    }

    AVFormatContext* input_;
    AVStream* stream_;
    CodecContextPtr decoder_;
    PacketPtr packet_;
    FramePtr incoming_;
    FramePtr latest_;    // the last frame decoded, if haveLatest_
    FramePtr previous_;  // the frame decoded just before it, if havePrevious_
    bool haveLatest_ = false;
    bool havePrevious_ = false;
    // Every frame since the last seek was decoded, so decoding on yields each next frame.
    bool continuous_ = true;
    std::int64_t lastSentPosition_ = -1;  // byte offset of the furthest packet decoded
};

}  // namespace

std::vector<double> filmstripTimes(double fullDurationSeconds) {
    if (!std::isfinite(fullDurationSeconds) || fullDurationSeconds <= 0 ||
        fullDurationSeconds > kLongestSeconds)
        return {};
    const int count = static_cast<int>(std::clamp(
        std::floor(fullDurationSeconds / kFilmstripSecondsPerFrame),
        static_cast<double>(kFilmstripFewestFrames), static_cast<double>(kFilmstripMostFrames)));
    std::vector<double> times;
    times.reserve(count);
    for (int i = 0; i < count; ++i)
        times.push_back(
            common::MediaTime::fromSeconds(fullDurationSeconds * (i + 0.5) / count).seconds());
    return times;
}

std::vector<FilmstripFrame> generateFilmstripFrames(const std::filesystem::path& url,
                                                    double fullDurationSeconds) {
    const std::vector<double> times = filmstripTimes(fullDurationSeconds);
    if (times.empty()) return {};
    auto opened = openInput(url);
    if (!opened) return {};
    AVFormatContext& input = *opened.value();
    const AVStream* video = firstStream(input, AVMEDIA_TYPE_VIDEO);
    if (!video) return {};
    AVStream& stream = *input.streams[video->index];
    const AVRational timeBase = stream.time_base;
    if (timeBase.num <= 0 || timeBase.den <= 0) return {};
    // The demuxer then skips the other streams' packets instead of handing them over.
    for (unsigned i = 0; i < input.nb_streams; ++i)
        if (input.streams[i] != &stream) input.streams[i]->discard = AVDISCARD_ALL;

    auto walker = FrameWalker::make(input, stream);
    if (!walker) return {};
    const int rotation = displayRotationDegrees(stream);
    const std::int64_t start = stream.start_time != AV_NOPTS_VALUE ? stream.start_time : 0;
    const auto tolerance = common::MediaTime::fromSeconds(kFilmstripToleranceSeconds);

    std::vector<FilmstripFrame> frames;
    frames.reserve(times.size());
    for (const double seconds : times) {
        const auto at = common::MediaTime::fromSeconds(seconds);
        const Window window{start + (at - tolerance).toTimeBase(timeBase.num, timeBase.den),
                            start + (at + tolerance).toTimeBase(timeBase.num, timeBase.den)};
        AVFrame* frame = walker->frameWithin(window);
        if (!frame) continue;
        const AVRational sampleAspect = av_guess_sample_aspect_ratio(&input, &stream, frame);
        if (auto image = uprightImage(*frame, sampleAspect, rotation, kFilmstripFrameMaxWidth,
                                      kFilmstripFrameMaxHeight))
            frames.push_back({seconds, std::move(image)});
    }
    return frames;
}

std::vector<model::Image> generateFilmstrip(const std::filesystem::path& url,
                                            double fullDurationSeconds) {
    std::vector<model::Image> images;
    for (auto& frame : generateFilmstripFrames(url, fullDurationSeconds))
        images.push_back(std::move(frame.image));
    return images;
}

}  // namespace media
