#include "export/audio_track_writer.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "media/av_error.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace exporting {

namespace {

// Audio is read from this much before a range, to find the frame that overlaps its start.
constexpr AVRational kLeadIn{1, 2};

// PCM silence comes in packets of at most this many samples.
constexpr std::int64_t kSilenceChunk = 4096;

// The byte of silence of a PCM codec whose zero is not all zero bits.
std::uint8_t silentByte(AVCodecID codec) {
    switch (codec) {
        case AV_CODEC_ID_PCM_U8:
            return 0x80;
        case AV_CODEC_ID_PCM_MULAW:
            return 0xff;
        case AV_CODEC_ID_PCM_ALAW:
            return 0xd5;
        default:
            return 0;
    }
}

}  // namespace

AudioTrackWriter::AudioTrackWriter(const composition::Track& track, AudioCut cut,
                                   const AVCodecParameters& parameters)
    : cut_(cut), parameters_(parameters) {
    for (const auto& segment : track.segments) {
        if (segment.duration.ticks <= 0) continue;
        totalSeconds_ += segment.duration.seconds();
        segments_.push_back(segment);
    }
}

std::int64_t AudioTrackWriter::toOutput(common::MediaTime time) const {
    return time.toTimeBase(1, parameters_.sample_rate);
}

common::Result<std::optional<TrackPacket>> AudioTrackWriter::next() {
    while (ready_.empty()) {
        if (nextSegment_ == segments_.size()) return std::optional<TrackPacket>{};
        const composition::Segment& segment = segments_[nextSegment_++];
        if (auto written = writeSegment(segment); !written) return written.error();
        doneSeconds_ += segment.duration.seconds();
    }
    TrackPacket packet = std::move(ready_.front());
    ready_.pop_front();
    return std::optional{std::move(packet)};
}

common::Status AudioTrackWriter::emit(media::PacketPtr packet, std::int64_t samples) {
    packet->pts = packet->dts = cursor_;
    packet->duration = samples;
    packet->pos = -1;
    packet->flags &= ~AV_PKT_FLAG_DISCARD;
    // Skip counts describe the source's timeline; the output's own edit replaces them.
    av_packet_free_side_data(packet.get());
    const double at = static_cast<double>(cursor_ - preroll_) / parameters_.sample_rate;
    cursor_ += samples;
    started_ = true;
    ready_.push_back({std::move(packet), at});
    return common::success();
}

common::Status AudioTrackWriter::writeSegment(const composition::Segment& segment) {
    const std::int64_t end = toOutput(segment.end()) + preroll_;
    if (segment.source) {
        common::Status written = cut_ == AudioCut::pcm ? writePcm(segment) : writeFramed(segment);
        if (!written) return written;
    }
    // A gap, or a source that ran out early.
    if (cut_ == AudioCut::pcm) return end > cursor_ ? silence(end - cursor_) : common::success();
    while (true) {
        if (!silence_) {
            if (auto made = silentFrame(); !made) return made;
        }
        if (2 * (end - cursor_) < silenceSamples_) return common::success();
        if (auto filled = silence(silenceSamples_); !filled) return filled;
    }
}

common::Status AudioTrackWriter::silence(std::int64_t samples) {
    if (cut_ == AudioCut::framed) {
        media::PacketPtr copy{av_packet_clone(silence_.get())};
        if (!copy) return media::avError(AVERROR(ENOMEM), "Cannot make silence");
        return emit(std::move(copy), silenceSamples_);
    }
    const int sampleBytes = parameters_.block_align;
    while (samples > 0) {
        const std::int64_t count = std::min(samples, kSilenceChunk);
        media::PacketPtr packet{av_packet_alloc()};
        if (!packet || av_new_packet(packet.get(), static_cast<int>(count * sampleBytes)) < 0)
            return media::avError(AVERROR(ENOMEM), "Cannot make silence");
        std::fill_n(packet->data, packet->size, silentByte(parameters_.codec_id));
        if (auto emitted = emit(std::move(packet), count); !emitted) return emitted;
        samples -= count;
    }
    return common::success();
}

// One coded frame of digital silence from the codec's own encoder: encoders that delay
// their output are fed until a frame past their start comes out.
common::Status AudioTrackWriter::silentFrame() {
    const AVCodec* codec = avcodec_find_encoder(parameters_.codec_id);
    if (!codec) {
        return common::Error{std::string("This build has no ") +
                             avcodec_get_name(parameters_.codec_id) +
                             " encoder to fill a gap in the sound with silence."};
    }
    if (const char* profile = avcodec_profile_name(parameters_.codec_id, parameters_.profile);
        profile && std::string_view(profile).starts_with("HE-AAC")) {
        return common::Error{std::string("This build has no ") + profile +
                             " encoder to fill a gap in the sound with silence."};
    }
    media::CodecContextPtr context{avcodec_alloc_context3(codec)};
    if (!context) return media::avError(AVERROR(ENOMEM), "Cannot make silence");
    context->sample_rate = parameters_.sample_rate;
    if (int rc = av_channel_layout_copy(&context->ch_layout, &parameters_.ch_layout); rc < 0)
        return media::avError(rc, "Cannot make silence");
    if (context->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&context->ch_layout, parameters_.ch_layout.nb_channels);
    context->sample_fmt = codec->sample_fmts ? codec->sample_fmts[0] : AV_SAMPLE_FMT_FLTP;
    context->time_base = {1, parameters_.sample_rate};
    context->bit_rate = parameters_.bit_rate > 0 ? parameters_.bit_rate : 128000;
    context->profile = parameters_.profile;
    if (int rc = avcodec_open2(context.get(), codec, nullptr); rc < 0)
        return media::avError(rc, "Cannot open an encoder for silence");
    const int frameSize = context->frame_size > 0      ? context->frame_size
                          : parameters_.frame_size > 0 ? parameters_.frame_size
                                                       : 1024;
    media::FramePtr frame{av_frame_alloc()};
    if (!frame) return media::avError(AVERROR(ENOMEM), "Cannot make silence");
    frame->nb_samples = frameSize;
    frame->format = context->sample_fmt;
    av_channel_layout_copy(&frame->ch_layout, &context->ch_layout);
    if (int rc = av_frame_get_buffer(frame.get(), 0); rc < 0)
        return media::avError(rc, "Cannot make silence");
    av_samples_set_silence(frame->data, 0, frameSize, context->ch_layout.nb_channels,
                           context->sample_fmt);
    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot make silence");
    for (int i = 0; i < 16; ++i) {
        frame->pts = static_cast<std::int64_t>(i) * frameSize;
        if (int rc = avcodec_send_frame(context.get(), frame.get()); rc < 0)
            return media::avError(rc, "Cannot encode silence");
        const int rc = avcodec_receive_packet(context.get(), packet.get());
        if (rc == AVERROR(EAGAIN)) continue;
        if (rc < 0) return media::avError(rc, "Cannot encode silence");
        if (packet->pts <= 0) continue;  // the encoder's priming
        silenceSamples_ = frameSize;
        silence_ = std::move(packet);
        return common::success();
    }
    return common::Error{"The encoder gave no silence."};
}

common::Status AudioTrackWriter::seekSource(const composition::SegmentSource& source,
                                            std::int64_t from) {
    if (!source_ || source_->path() != source.url ||
        source_->stream().index != source.streamIndex) {
        source_.reset();
        auto opened = SourceStream::open(source.url, source.streamIndex);
        if (!opened) return opened.error();
        source_.emplace(std::move(opened).value());
    }
    const AVRational sourceBase = source_->stream().time_base;
    return source_->seek(av_rescale_q(from, {1, parameters_.sample_rate}, sourceBase) +
                         source_->origin());
}

common::Result<std::optional<AudioTrackWriter::SourcePacket>> AudioTrackWriter::readSource() {
    const std::string file = source_->path().string();
    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot read " + file);
    auto more = source_->read(*packet);
    if (!more) return more.error();
    if (!*more) return std::optional<SourcePacket>{};
    if (packet->pts == AV_NOPTS_VALUE) {
        return common::Error{"An audio packet of " + file +
                             " has no presentation time, so it cannot be placed."};
    }
    const AVRational sourceBase = source_->stream().time_base;
    const std::int64_t pts =
        av_rescale_q(packet->pts - source_->origin(), sourceBase, {1, parameters_.sample_rate});
    return std::optional{SourcePacket{std::move(packet), pts}};
}

common::Status AudioTrackWriter::writeFramed(const composition::Segment& segment) {
    const auto& source = *segment.source;
    const std::int64_t in = toOutput(source.assetRange.start);
    const std::int64_t out = toOutput(source.assetRange.end());
    const std::int64_t place = toOutput(segment.start);
    const bool first = !started_ && segment.start.ticks == 0;
    if (auto sought =
            seekSource(source, in - av_rescale_q(1, kLeadIn, {1, parameters_.sample_rate}));
        !sought)
        return sought;
    const AVRational sourceBase = source_->stream().time_base;
    media::PacketPtr before;  // the frame before the first one wanted
    std::int64_t beforeSamples = 0;
    while (true) {
        auto read = readSource();
        if (!read) return read.error();
        if (!*read) return common::success();
        auto& [packet, pts] = **read;
        int samples = av_get_audio_frame_duration2(const_cast<AVCodecParameters*>(&parameters_),
                                                   packet->size);
        if (samples <= 0) {
            samples = static_cast<int>(
                av_rescale_q(packet->duration, sourceBase, {1, parameters_.sample_rate}));
        }
        if (samples <= 0)
            return common::Error{"An audio packet of " + source.url.string() + " has no length."};
        const std::int64_t middle = pts + samples / 2;
        if (middle < in) {
            before = std::move(packet);
            beforeSamples = samples;
            continue;
        }
        if (middle >= out) return common::success();
        if (first && !started_ && before) {
            preroll_ = beforeSamples;
            if (auto emitted = emit(std::move(before), beforeSamples); !emitted) return emitted;
        }
        const std::int64_t ideal = place + (pts - in) + preroll_;
        // Behind by half a frame or more: silence until the frame fits.
        while (2 * (ideal - cursor_) >= samples) {
            if (!silence_) {
                if (auto made = silentFrame(); !made) return made;
            }
            if (auto filled = silence(silenceSamples_); !filled) return filled;
        }
        if (2 * (cursor_ - ideal) > samples) continue;  // already late by more than half a frame
        if (auto emitted = emit(std::move(packet), samples); !emitted) return emitted;
    }
}

common::Status AudioTrackWriter::writePcm(const composition::Segment& segment) {
    const auto& source = *segment.source;
    const std::int64_t in = toOutput(source.assetRange.start);
    const std::int64_t out = toOutput(source.assetRange.end());
    const std::int64_t place = toOutput(segment.start);
    const std::int64_t sampleBytes = parameters_.block_align;
    if (auto sought = seekSource(source, in); !sought) return sought;
    while (true) {
        auto read = readSource();
        if (!read) return read.error();
        if (!*read) return common::success();
        auto& [packet, pts] = **read;
        const std::int64_t available = packet->size / sampleBytes;
        if (pts >= out) return common::success();
        std::int64_t keepStart = std::max(pts, in);
        const std::int64_t keepEnd = std::min(pts + available, out);
        // Never before where the track already is.
        keepStart = std::max(keepStart, cursor_ - place - preroll_ + in);
        if (keepEnd <= keepStart) continue;
        const std::int64_t ideal = place + (keepStart - in) + preroll_;
        if (ideal > cursor_) {
            if (auto filled = silence(ideal - cursor_); !filled) return filled;
        }
        packet->data += (keepStart - pts) * sampleBytes;
        packet->size = static_cast<int>((keepEnd - keepStart) * sampleBytes);
        if (auto emitted = emit(std::move(packet), keepEnd - keepStart); !emitted) return emitted;
    }
}

}  // namespace exporting
