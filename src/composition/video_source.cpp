#include "composition/video_source.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <utility>

#include "composition/source_container.h"
#include "media/av_error.h"
#include "media/media_input.h"

namespace composition {

namespace {

// Decoding up to this far ahead costs less than a seek, which throws away what the frame
// threads hold; beyond it a seek pays off if a keyframe stands between.
constexpr double kForwardDecodeSeconds = 1.0;

// After a seek that lands past the wanted frame, the next try starts this much earlier,
// doubling each time.
constexpr double kSeekBackoffSeconds = 1.0;

// 0: one decoding thread per core, frame threads where the codec has them.
constexpr int kDecoderThreads = 0;

std::uint64_t nextSerial() {
    static std::atomic<std::uint64_t> counter{0};
    return ++counter;
}

std::int64_t secondsInTimeBase(double seconds, AVRational timeBase) {
    return av_rescale_q(static_cast<std::int64_t>(seconds * AV_TIME_BASE), AV_TIME_BASE_Q,
                        timeBase);
}

}  // namespace

common::Result<VideoSource> VideoSource::open(const std::filesystem::path& file, int streamIndex) {
    auto input = openStreamOnly(file, streamIndex, AVMEDIA_TYPE_VIDEO);
    if (!input) return input.error();
    AVStream& stream = *input.value()->streams[streamIndex];
    auto decoder = media::openDecoder(*input.value(), stream, kDecoderThreads);
    if (!decoder) return decoder.error();
    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot read " + file.string());

    VideoSource source;
    source.file_ = file;
    source.streamIndex_ = streamIndex;
    source.startPts_ = media::movieOrigin(*input.value(), stream);
    if (stream.start_time != AV_NOPTS_VALUE)
        source.streamStart_ = std::max<std::int64_t>(0, stream.start_time - source.startPts_);
    source.input_ = std::move(input.value());
    source.decoder_ = std::move(decoder.value());
    source.packet_ = std::move(packet);
    return source;
}

AVRational VideoSource::timeBase() const {
    return input_->streams[streamIndex_]->time_base;
}

common::Result<const DecodedFrame*> VideoSource::frameAt(std::int64_t limit) {
    if (mustSeek(limit)) {
        if (auto sought = seekTo(limit); !sought) return sought.error();
    }
    for (;;) {
        if (ahead_.frame) {
            if (ahead_.timestamp > limit) break;
            shown_ = std::move(ahead_);
            ahead_ = {};
        }
        if (ended_) break;
        if (auto decoded = decodeNext(limit); !decoded) return decoded.error();
    }
    if (shown_.frame) return &shown_;
    if (ahead_.frame && fromStart_) return &ahead_;
    return common::Error{"There is no picture in " + file_.string() + "."};
}

bool VideoSource::mustSeek(std::int64_t limit) const {
    if (!decodedAny_) return limit > secondsInTimeBase(kForwardDecodeSeconds, timeBase());
    if (shown_.frame) {
        if (limit < shown_.timestamp) return true;
    } else if (ahead_.frame && limit < ahead_.timestamp && !fromStart_) {
        return true;
    }
    if (ended_) return false;
    const DecodedFrame& latest = ahead_.frame ? ahead_ : shown_;
    if (!latest.frame) return false;
    if (limit - latest.timestamp <= secondsInTimeBase(kForwardDecodeSeconds, timeBase()))
        return false;
    return keyframeAheadOfReading(limit);
}

bool VideoSource::keyframeAheadOfReading(std::int64_t limit) const {
    AVStream* stream = input_->streams[streamIndex_];
    // A generic index only holds the keyframes read so far, so it can't tell what lies
    // ahead; a seek is then the safe bet for a long jump.
    if ((input_->iformat->flags & AVFMT_GENERIC_INDEX) ||
        avformat_index_get_entries_count(stream) == 0)
        return true;
    const AVIndexEntry* keyframe =
        avformat_index_get_entry_from_timestamp(stream, startPts_ + limit, AVSEEK_FLAG_BACKWARD);
    return keyframe && (lastPacketDts_ == AV_NOPTS_VALUE || keyframe->timestamp > lastPacketDts_);
}

void VideoSource::resetDecoding() {
    avcodec_flush_buffers(decoder_.get());
    shown_ = {};
    ahead_ = {};
    learnFirstFrame_ = false;
    awaitingKeyframe_ = false;
    draining_ = false;
    ended_ = false;
    lastPacketDts_ = AV_NOPTS_VALUE;
    highestPacketPts_ = AV_NOPTS_VALUE;
}

common::Status VideoSource::rewind(std::int64_t limit) {
    resetDecoding();
    fromStart_ = true;
    // A seek to the start is trusted only if it lands on the first frame: demuxers that
    // seek by searching timestamps may land a little further on.
    if (firstFrame_ &&
        av_seek_frame(input_.get(), streamIndex_, startPts_, AVSEEK_FLAG_BACKWARD) >= 0) {
        if (auto decoded = decodeNext(limit); !decoded) return decoded;
        if (ahead_.frame && ahead_.timestamp == *firstFrame_) return common::success();
        resetDecoding();
    }
    auto reopened = openStreamOnly(file_, streamIndex_, AVMEDIA_TYPE_VIDEO);
    if (!reopened) return reopened.error();
    input_ = std::move(reopened.value());
    learnFirstFrame_ = true;
    return decodeNext(limit);
}

common::Status VideoSource::seekTo(std::int64_t limit) {
    std::int64_t target = limit;
    std::int64_t backoff = secondsInTimeBase(kSeekBackoffSeconds, timeBase());
    for (;;) {
        if (target <= 0) return rewind(limit);
        resetDecoding();
        fromStart_ = false;
        if (av_seek_frame(input_.get(), streamIndex_, startPts_ + target, AVSEEK_FLAG_BACKWARD) <
            0) {
            target = 0;
            continue;
        }
        // Some demuxers land between keyframes; decoding starts at the next one.
        awaitingKeyframe_ = true;
        if (auto decoded = decodeNext(limit); !decoded) return decoded;
        // Landing there, or on a keyframe shown after the target (open GOPs), puts the
        // frame wanted further back.
        if (ahead_.frame && ahead_.timestamp <= limit) return common::success();
        target -= backoff;
        backoff *= 2;
    }
}

common::Status VideoSource::decodeNext(std::int64_t limit) {
    media::FramePtr frame{av_frame_alloc()};
    if (!frame) return media::avError(AVERROR(ENOMEM), "Cannot decode " + file_.string());
    for (;;) {
        const int received = avcodec_receive_frame(decoder_.get(), frame.get());
        if (received == 0) {
            // The container's pixel shape over the bitstream's, as players show it.
            frame->sample_aspect_ratio = av_guess_sample_aspect_ratio(
                input_.get(), input_->streams[streamIndex_], frame.get());
            const std::int64_t time = frame->best_effort_timestamp;
            // A frame without a time follows the one before by one unit.
            lastTimestamp_ = time != AV_NOPTS_VALUE ? time - startPts_ : lastTimestamp_ + 1;
            ahead_ = {std::move(frame), lastTimestamp_, nextSerial()};
            decodedAny_ = true;
            if (learnFirstFrame_) {
                firstFrame_ = lastTimestamp_;
                learnFirstFrame_ = false;
            }
            return common::success();
        }
        if (received == AVERROR_EOF || (received == AVERROR(EAGAIN) && draining_)) {
            ended_ = true;
            decodedAny_ = true;
            return common::success();
        }
        if (received != AVERROR(EAGAIN))
            return media::avError(received, "Cannot decode the video of " + file_.string());

        const int read = av_read_frame(input_.get(), packet_.get());
        if (read < 0) {
            if (read != AVERROR_EOF && !(input_->pb && avio_feof(input_->pb)))
                return media::avError(read, "Cannot read " + file_.string());
            avcodec_send_packet(decoder_.get(), nullptr);
            draining_ = true;
            continue;
        }
        if (packet_->stream_index != streamIndex_ ||
            (awaitingKeyframe_ && !(packet_->flags & AV_PKT_FLAG_KEY))) {
            av_packet_unref(packet_.get());
            continue;
        }
        awaitingKeyframe_ = false;
        if (packet_->dts != AV_NOPTS_VALUE) lastPacketDts_ = packet_->dts;
        // A frame shown before another frame already read that is itself at or before
        // the limit can't be the one wanted; if nothing refers to it, it needn't be decoded.
        bool passedOver = false;
        if (packet_->pts != AV_NOPTS_VALUE) {
            const std::int64_t time = packet_->pts - startPts_;
            passedOver = highestPacketPts_ != AV_NOPTS_VALUE && time < highestPacketPts_ &&
                         highestPacketPts_ <= limit;
            if (highestPacketPts_ == AV_NOPTS_VALUE || time > highestPacketPts_)
                highestPacketPts_ = time;
        }
        decoder_->skip_frame = passedOver ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
        // A damaged packet is skipped: the decoder picks up again at the next one it can use.
        avcodec_send_packet(decoder_.get(), packet_.get());
        av_packet_unref(packet_.get());
    }
}

}  // namespace composition
