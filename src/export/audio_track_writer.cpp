#include "export/audio_track_writer.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "media/av_error.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/intreadwrite.h>
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

// ALAC's configuration record: a 12-byte box header, the frame length (32 bits), a version
// byte, then the bit depth, three Rice coding parameters and the channel count, which are
// what decoding a frame depends on.
constexpr int kAlacRecordBytes = 36;
constexpr int kAlacFrameLengthAt = 12;
constexpr int kAlacCodingAt = 17;
constexpr int kAlacCodingBytes = 5;

int alacBitDepth(const AVCodecParameters& parameters) {
    return parameters.extradata[kAlacCodingAt];
}

std::int64_t alacFrameLength(const AVCodecParameters& parameters) {
    return AV_RB32(parameters.extradata + kAlacFrameLengthAt);
}

// Frames that decode alone and exactly need no frame before them to sound right.
bool framesDecodeAlone(AVCodecID id) {
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(id);
    return descriptor && (descriptor->props & AV_CODEC_PROP_INTRA_ONLY) &&
           (descriptor->props & AV_CODEC_PROP_LOSSLESS) &&
           !(descriptor->props & AV_CODEC_PROP_LOSSY);
}

// An encoder of `codec` for sound of `parameters`, not yet opened.
common::Result<media::CodecContextPtr> encoderFor(const AVCodec& codec,
                                                  const AVCodecParameters& parameters,
                                                  AVSampleFormat format) {
    media::CodecContextPtr context{avcodec_alloc_context3(&codec)};
    if (!context) return media::avError(AVERROR(ENOMEM), "Cannot make an audio encoder");
    context->sample_rate = parameters.sample_rate;
    if (int rc = av_channel_layout_copy(&context->ch_layout, &parameters.ch_layout); rc < 0)
        return media::avError(rc, "Cannot make an audio encoder");
    if (context->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&context->ch_layout, parameters.ch_layout.nb_channels);
    context->sample_fmt = format;
    context->time_base = {1, parameters.sample_rate};
    return context;
}

common::Result<media::CodecContextPtr> openAlacEncoder(const AVCodecParameters& parameters) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_ALAC);
    if (!codec) return common::Error{"This build has no ALAC encoder to cut the sound with."};
    const int depth = alacBitDepth(parameters);
    auto context =
        encoderFor(*codec, parameters, depth <= 16 ? AV_SAMPLE_FMT_S16P : AV_SAMPLE_FMT_S32P);
    if (!context) return context.error();
    (*context)->bits_per_raw_sample = depth;
    (*context)->frame_size = static_cast<int>(alacFrameLength(parameters));
    if (int rc = avcodec_open2(context->get(), codec, nullptr); rc < 0)
        return media::avError(rc, "Cannot open an ALAC encoder");
    return context;
}

// An empty frame of `samples` samples in the sound form `encoder` takes.
common::Result<media::FramePtr> frameFor(const AVCodecContext& encoder, std::int64_t samples) {
    media::FramePtr frame{av_frame_alloc()};
    if (!frame) return media::avError(AVERROR(ENOMEM), "Cannot make a frame of sound");
    frame->format = encoder.sample_fmt;
    frame->sample_rate = encoder.sample_rate;
    frame->nb_samples = static_cast<int>(samples);
    if (int rc = av_channel_layout_copy(&frame->ch_layout, &encoder.ch_layout); rc < 0)
        return media::avError(rc, "Cannot make a frame of sound");
    if (int rc = av_frame_get_buffer(frame.get(), 0); rc < 0)
        return media::avError(rc, "Cannot make a frame of sound");
    return frame;
}

// `frame` coded as one packet by an encoder that takes nothing more.
common::Result<media::PacketPtr> encodeOnce(AVCodecContext& encoder, const AVFrame& frame) {
    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot encode sound");
    if (int rc = avcodec_send_frame(&encoder, &frame); rc < 0)
        return media::avError(rc, "Cannot encode sound");
    if (int rc = avcodec_send_frame(&encoder, nullptr); rc < 0)
        return media::avError(rc, "Cannot encode sound");
    if (int rc = avcodec_receive_packet(&encoder, packet.get()); rc < 0)
        return media::avError(rc, "Cannot encode sound");
    return packet;
}

}  // namespace

bool recodesExactly(const AVCodecParameters& parameters) {
    if (parameters.codec_id != AV_CODEC_ID_ALAC || parameters.extradata_size < kAlacRecordBytes ||
        alacFrameLength(parameters) <= 0 || !avcodec_find_decoder(AV_CODEC_ID_ALAC))
        return false;
    auto encoder = openAlacEncoder(parameters);
    if (!encoder) return false;
    const AVCodecContext& made = **encoder;
    // A short frame can only be coded as an encoder's last; each cut gets an encoder.
    return (made.codec->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME) &&
           made.frame_size >= alacFrameLength(parameters) &&
           made.extradata_size >= kAlacRecordBytes &&
           std::memcmp(made.extradata + kAlacCodingAt, parameters.extradata + kAlacCodingAt,
                       kAlacCodingBytes) == 0;
}

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
        common::Status written =
            cut_ == AudioCut::framed ? writeFramed(segment) : writeOnTheSample(segment);
        if (!written) return written;
    }
    // A gap, or a source that ran out early.
    if (cut_ != AudioCut::framed) return end > cursor_ ? silence(end - cursor_) : common::success();
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
    if (cut_ == AudioCut::recoded) {
        const std::int64_t frameLength = alacFrameLength(parameters_);
        while (samples > 0) {
            const std::int64_t count = std::min(samples, frameLength);
            samples -= count;
            // Whole frames of silence are all alike: one is coded and copied.
            if (count == frameLength && !silence_) {
                auto made = recodedSilence(frameLength);
                if (!made) return made.error();
                silence_ = std::move(made).value();
            }
            media::PacketPtr packet;
            if (count == frameLength) {
                packet.reset(av_packet_clone(silence_.get()));
            } else {
                auto made = recodedSilence(count);
                if (!made) return made.error();
                packet = std::move(made).value();
            }
            if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot make silence");
            if (auto emitted = emit(std::move(packet), count); !emitted) return emitted;
        }
        return common::success();
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
    auto made = encoderFor(*codec, parameters_,
                           codec->sample_fmts ? codec->sample_fmts[0] : AV_SAMPLE_FMT_FLTP);
    if (!made) return made.error();
    media::CodecContextPtr context = std::move(made).value();
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
        if (first && !started_ && before && !framesDecodeAlone(parameters_.codec_id)) {
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

common::Status AudioTrackWriter::writeOnTheSample(const composition::Segment& segment) {
    const auto& source = *segment.source;
    const std::int64_t in = toOutput(source.assetRange.start);
    const std::int64_t out = toOutput(source.assetRange.end());
    const std::int64_t place = toOutput(segment.start);
    const std::int64_t sampleBytes = parameters_.block_align;
    if (auto sought = seekSource(source, in); !sought) return sought;
    const AVRational sourceBase = source_->stream().time_base;
    while (true) {
        auto read = readSource();
        if (!read) return read.error();
        if (!*read) return common::success();
        auto& [packet, pts] = **read;
        // A coded frame's length as the source times it, which for the last frame of a
        // file may be less than the frame holds; untimed, a whole frame.
        std::int64_t available = 0;
        if (cut_ == AudioCut::pcm)
            available = packet->size / sampleBytes;
        else if (packet->duration > 0)
            available = av_rescale_q(packet->duration, sourceBase, {1, parameters_.sample_rate});
        else
            available = alacFrameLength(parameters_);
        if (available <= 0)
            return common::Error{"An audio packet of " + source.url.string() + " has no length."};
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
        const std::int64_t count = keepEnd - keepStart;
        if (cut_ == AudioCut::pcm) {
            packet->data += (keepStart - pts) * sampleBytes;
            packet->size = static_cast<int>(count * sampleBytes);
        } else if (count != available || count != alacFrameLength(parameters_)) {
            auto part = recode(*packet, keepStart - pts, count);
            if (!part) return part.error();
            packet = std::move(part).value();
        }
        if (auto emitted = emit(std::move(packet), count); !emitted) return emitted;
    }
}

common::Result<media::PacketPtr> AudioTrackWriter::recode(const AVPacket& packet, std::int64_t skip,
                                                          std::int64_t count) {
    const std::string what = "Cannot cut the sound of " + source_->path().string();
    if (!decoder_) {
        const AVCodec* codec = avcodec_find_decoder(parameters_.codec_id);
        if (!codec) return common::Error{what + ": there is no decoder for it."};
        decoder_.reset(avcodec_alloc_context3(codec));
        if (!decoder_) return media::avError(AVERROR(ENOMEM), what);
        if (int rc = avcodec_parameters_to_context(decoder_.get(), &parameters_); rc < 0)
            return media::avError(rc, what);
        if (int rc = avcodec_open2(decoder_.get(), codec, nullptr); rc < 0)
            return media::avError(rc, what);
    }
    media::FramePtr decoded{av_frame_alloc()};
    if (!decoded) return media::avError(AVERROR(ENOMEM), what);
    if (int rc = avcodec_send_packet(decoder_.get(), &packet); rc < 0)
        return media::avError(rc, what);
    if (int rc = avcodec_receive_frame(decoder_.get(), decoded.get()); rc < 0)
        return media::avError(rc, what);
    auto encoder = openAlacEncoder(parameters_);
    if (!encoder) return encoder.error();
    if (decoded->format != (*encoder)->sample_fmt || skip + count > decoded->nb_samples)
        return common::Error{what + ": a frame decodes to other samples than it says."};
    auto part = frameFor(**encoder, count);
    if (!part) return part.error();
    AVFrame& kept = *part.value();
    av_samples_copy(kept.extended_data, decoded->extended_data, 0, static_cast<int>(skip),
                    static_cast<int>(count), kept.ch_layout.nb_channels,
                    static_cast<AVSampleFormat>(kept.format));
    return encodeOnce(**encoder, kept);
}

common::Result<media::PacketPtr> AudioTrackWriter::recodedSilence(std::int64_t samples) {
    auto encoder = openAlacEncoder(parameters_);
    if (!encoder) return encoder.error();
    auto frame = frameFor(**encoder, samples);
    if (!frame) return frame.error();
    AVFrame& quiet = *frame.value();
    av_samples_set_silence(quiet.extended_data, 0, quiet.nb_samples, quiet.ch_layout.nb_channels,
                           (*encoder)->sample_fmt);
    return encodeOnce(**encoder, quiet);
}

}  // namespace exporting
