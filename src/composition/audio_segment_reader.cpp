#include "composition/audio_segment_reader.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "composition/source_container.h"
#include "media/av_error.h"
#include "media/media_input.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

namespace composition {

namespace {

// Decoding starts this long before the first sample wanted: transform codecs need the
// frame before to rebuild a sample exactly, and MP3 may borrow bits from earlier frames.
constexpr double kPrerollSeconds = 0.2;

// One stage of FFmpeg's atempo changes the tempo by a factor in this range.
constexpr double kLowestTempo = 0.5;
constexpr double kHighestTempo = 100.0;

// atempo's output runs up to a few tens of milliseconds short or long of input ÷ tempo, so
// the stretcher is given this much more of the source (or silence where it ends) and the
// result trimmed to length.
constexpr double kStretchTailSeconds = 0.1;

AVChannelLayout outputLayout(int channels) {
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, channels);
    return layout;
}

// The decoded frame's layout, or the default one for its channel count where the file
// names none; never one that owns memory.
AVChannelLayout inputLayout(const AVFrame& frame) {
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_NATIVE) return frame.ch_layout;
    return outputLayout(frame.ch_layout.nb_channels);
}

// The atempo stages whose product is `factor`.
std::vector<double> tempoStages(double factor) {
    std::vector<double> stages;
    while (factor > kHighestTempo) {
        stages.push_back(kHighestTempo);
        factor /= kHighestTempo;
    }
    while (factor < kLowestTempo) {
        stages.push_back(kLowestTempo);
        factor /= kLowestTempo;
    }
    stages.push_back(factor);
    return stages;
}

}  // namespace

common::Result<AudioSegmentReader> AudioSegmentReader::open(const Segment& segment,
                                                            std::int64_t from, std::int64_t end,
                                                            const AudioFormat& format) {
    assert(segment.source && from < end);
    const SegmentSource& source = *segment.source;
    AudioSegmentReader reader;
    reader.file_ = source.url;
    reader.streamIndex_ = source.streamIndex;
    reader.format_ = format;
    reader.end_ = end;
    reader.outputLeft_ = end - from;
    reader.sourceStart_ = sourceSecondsAt(segment, exactSeconds(from, format.sampleRateHz));
    const bool scaled = segment.duration != source.assetRange.duration;
    const double factor = static_cast<double>(source.assetRange.duration.ticks) /
                          static_cast<double>(segment.duration.ticks);
    if (scaled) {
        // The stretcher gets the source from the first sample wanted to the range's end,
        // and a tail.
        const ExactSeconds rest =
            difference(exactSeconds(source.assetRange.end()), reader.sourceStart_);
        reader.stretchTail_ = static_cast<std::int64_t>(
            kStretchTailSeconds * std::max(1.0, factor) * format.sampleRateHz);
        reader.toPass_ = std::max<std::int64_t>(0, roundToTimeBase(rest, 1, format.sampleRateHz)) +
                         reader.stretchTail_;
    } else {
        reader.toPass_ = reader.outputLeft_;
    }

    auto input = openStreamOnly(source.url, source.streamIndex, AVMEDIA_TYPE_AUDIO);
    if (!input) return input.error();
    AVStream& stream = *input.value()->streams[source.streamIndex];
    // Audio decoders gain nothing from threads, and frame threads would only add delay.
    auto decoder = media::openDecoder(*input.value(), stream, 1);
    if (!decoder) return decoder.error();
    reader.prerollSeconds_ = kPrerollSeconds;
    if (stream.codecpar->seek_preroll > 0 && stream.codecpar->sample_rate > 0)
        reader.prerollSeconds_ +=
            static_cast<double>(stream.codecpar->seek_preroll) / stream.codecpar->sample_rate;
    reader.startPts_ = media::movieOrigin(*input.value(), stream);
    reader.input_ = std::move(input.value());
    reader.decoder_ = std::move(decoder.value());
    reader.packet_.reset(av_packet_alloc());
    reader.frame_.reset(av_frame_alloc());
    if (!reader.packet_ || !reader.frame_)
        return media::avError(AVERROR(ENOMEM), "Cannot read " + source.url.string());

    if (scaled) {
        if (auto made = reader.makeStretcher(factor); !made) return made.error();
    }
    if (auto sought = reader.seekBefore(); !sought) return sought.error();
    return reader;
}

common::Status AudioSegmentReader::makeStretcher(double factor) {
    stretcher_.reset(avfilter_graph_alloc());
    if (!stretcher_) return media::avError(AVERROR(ENOMEM), "Cannot retime " + file_.string());
    const AVChannelLayout layout = outputLayout(format_.channelCount);
    std::string channels = "channels=" + std::to_string(format_.channelCount);
    if (layout.order == AV_CHANNEL_ORDER_NATIVE) {
        char name[64] = {};
        av_channel_layout_describe(&layout, name, sizeof name);
        channels = std::string("channel_layout=") + name;
    }
    const std::string rate = std::to_string(format_.sampleRateHz);
    const std::string in =
        "sample_rate=" + rate + ":sample_fmt=flt:" + channels + ":time_base=1/" + rate;
    const std::string what = "Cannot retime the sound of " + file_.string();
    if (int rc = avfilter_graph_create_filter(&stretchIn_, avfilter_get_by_name("abuffer"), "in",
                                              in.c_str(), nullptr, stretcher_.get());
        rc < 0)
        return media::avError(rc, what);
    if (int rc = avfilter_graph_create_filter(&stretchOut_, avfilter_get_by_name("abuffersink"),
                                              "out", nullptr, nullptr, stretcher_.get());
        rc < 0)
        return media::avError(rc, what);
    AVFilterContext* previous = stretchIn_;
    int stage = 0;
    for (double tempo : tempoStages(factor)) {
        AVFilterContext* atempo = nullptr;
        const std::string name = "tempo" + std::to_string(stage++);
        char options[64] = {};
        std::snprintf(options, sizeof options, "tempo=%.17g", tempo);
        if (int rc = avfilter_graph_create_filter(&atempo, avfilter_get_by_name("atempo"),
                                                  name.c_str(), options, nullptr, stretcher_.get());
            rc < 0)
            return media::avError(rc, what);
        if (int rc = avfilter_link(previous, 0, atempo, 0); rc < 0) return media::avError(rc, what);
        previous = atempo;
    }
    if (int rc = avfilter_link(previous, 0, stretchOut_, 0); rc < 0)
        return media::avError(rc, what);
    if (int rc = avfilter_graph_config(stretcher_.get(), nullptr); rc < 0)
        return media::avError(rc, what);
    return common::success();
}

common::Status AudioSegmentReader::seekBefore() {
    const AVStream& stream = *input_->streams[streamIndex_];
    const std::int64_t target =
        floorToTimeBase(sourceStart_, stream.time_base.num, stream.time_base.den) -
        av_rescale_q(static_cast<std::int64_t>(prerollSeconds_ * AV_TIME_BASE), AV_TIME_BASE_Q,
                     stream.time_base);
    // A file just opened already stands at its start.
    if (target <= 0) return sought_ ? rewind() : common::success();
    if (!timingKnown_) {
        timingKnown_ = true;
        countsSamples_ = !media::timestampsFollowDurations(*input_, stream);
        sought_ = true;  // the look moved reading on
    }
    // Times that don't follow the samples can't be sought by: read from the start.
    if (countsSamples_) return rewind();
    avcodec_flush_buffers(decoder_.get());
    draining_ = false;
    if (av_seek_frame(input_.get(), streamIndex_, startPts_ + target, AVSEEK_FLAG_BACKWARD) < 0)
        return rewind();
    sought_ = true;
    return common::success();
}

common::Status AudioSegmentReader::rewind() {
    // Read again from the first byte: a seek to the start may land a little further on
    // with demuxers that seek by searching timestamps, and some files can't seek at all.
    auto input = openStreamOnly(file_, streamIndex_, AVMEDIA_TYPE_AUDIO);
    if (!input) return input.error();
    input_ = std::move(input.value());
    avcodec_flush_buffers(decoder_.get());
    draining_ = false;
    sought_ = false;
    return common::success();
}

common::Result<bool> AudioSegmentReader::decodeNext() {
    for (;;) {
        const int received = avcodec_receive_frame(decoder_.get(), frame_.get());
        if (received == 0) return true;
        if (received == AVERROR_EOF || (received == AVERROR(EAGAIN) && draining_)) return false;
        if (received != AVERROR(EAGAIN))
            return media::avError(received, "Cannot decode the sound of " + file_.string());
        const int read = av_read_frame(input_.get(), packet_.get());
        if (read < 0) {
            if (read != AVERROR_EOF && !(input_->pb && avio_feof(input_->pb)))
                return media::avError(read, "Cannot read " + file_.string());
            avcodec_send_packet(decoder_.get(), nullptr);
            draining_ = true;
            continue;
        }
        // A damaged packet is skipped: the decoder picks up again at the next one it can use.
        if (packet_->stream_index == streamIndex_)
            avcodec_send_packet(decoder_.get(), packet_.get());
        av_packet_unref(packet_.get());
    }
}

common::Status AudioSegmentReader::resample(const AVFrame* frame) {
    const int channels = format_.channelCount;
    const bool changed =
        frame && (!resampler_ || frame->ch_layout.nb_channels != resamplerChannels_ ||
                  inputLayout(*frame).u.mask != resamplerMask_ ||
                  frame->sample_rate != resamplerRate_ || frame->format != resamplerFormat_);
    if (changed) {
        // Samples the old resampler still holds are lost; streams seldom change format.
        AVChannelLayout out = outputLayout(channels);
        AVChannelLayout in = inputLayout(*frame);
        SwrContext* made = nullptr;
        if (int rc = swr_alloc_set_opts2(&made, &out, AV_SAMPLE_FMT_FLT, format_.sampleRateHz, &in,
                                         static_cast<AVSampleFormat>(frame->format),
                                         frame->sample_rate, 0, nullptr);
            rc < 0)
            return media::avError(rc, "Cannot resample the sound of " + file_.string());
        resampler_.reset(made);
        // A downmix adds channels together (5.1's left gets centre and surround too), so
        // its matrix is scaled to keep a full-scale source within full scale.
        if (in.nb_channels > out.nb_channels)
            av_opt_set_double(resampler_.get(), "rematrix_maxval", 1.0, 0);
        if (int rc = swr_init(resampler_.get()); rc < 0)
            return media::avError(rc, "Cannot resample the sound of " + file_.string());
        resamplerChannels_ = frame->ch_layout.nb_channels;
        resamplerMask_ = in.u.mask;
        resamplerRate_ = frame->sample_rate;
        resamplerFormat_ = frame->format;
    }
    if (!resampler_) return common::success();
    const int inputFrames = frame ? frame->nb_samples : 0;
    const int capacity = swr_get_out_samples(resampler_.get(), inputFrames);
    if (capacity <= 0) return common::success();
    scratch_.resize(static_cast<std::size_t>(capacity) * channels);
    std::uint8_t* out[1] = {reinterpret_cast<std::uint8_t*>(scratch_.data())};
    const int made = swr_convert(
        resampler_.get(), out, capacity,
        frame ? const_cast<const std::uint8_t**>(frame->extended_data) : nullptr, inputFrames);
    if (made < 0) return media::avError(made, "Cannot resample the sound of " + file_.string());
    return pass(scratch_.data(), made);
}

common::Status AudioSegmentReader::pass(const float* samples, std::int64_t frames) {
    const int channels = format_.channelCount;
    const std::int64_t dropped = std::min(toDrop_, frames);
    toDrop_ -= dropped;
    samples += dropped * channels;
    frames -= dropped;
    const std::int64_t passed = std::min(frames, toPass_);
    toPass_ -= passed;
    if (passed > 0) {
        if (stretcher_) {
            if (auto stretched = stretch(samples, passed); !stretched) return stretched;
        } else {
            ready_.insert(ready_.end(), samples, samples + passed * channels);
        }
    }
    if (toPass_ == 0 && !finished_) {
        if (stretcher_) return drainStretch();
        finished_ = true;
    }
    return common::success();
}

common::Status AudioSegmentReader::stretch(const float* samples, std::int64_t frames) {
    // atempo fails an internal check on very large frames, so they go in as a decoder's.
    constexpr std::int64_t kPiece = 4096;
    for (std::int64_t done = 0; done < frames; done += kPiece) {
        const std::int64_t piece = std::min(kPiece, frames - done);
        media::FramePtr chunk{av_frame_alloc()};
        if (!chunk) return media::avError(AVERROR(ENOMEM), "Cannot retime " + file_.string());
        chunk->format = AV_SAMPLE_FMT_FLT;
        chunk->sample_rate = format_.sampleRateHz;
        chunk->ch_layout = outputLayout(format_.channelCount);
        chunk->nb_samples = static_cast<int>(piece);
        chunk->pts = stretchedIn_;
        if (int rc = av_frame_get_buffer(chunk.get(), 0); rc < 0)
            return media::avError(rc, "Cannot retime " + file_.string());
        std::memcpy(chunk->data[0], samples + done * format_.channelCount,
                    static_cast<std::size_t>(piece) * format_.channelCount * sizeof(float));
        stretchedIn_ += piece;
        if (int rc = av_buffersrc_add_frame(stretchIn_, chunk.get()); rc < 0)
            return media::avError(rc, "Cannot retime " + file_.string());
        if (auto collected = collectStretched(); !collected) return collected;
    }
    return common::success();
}

common::Status AudioSegmentReader::collectStretched() {
    media::FramePtr out{av_frame_alloc()};
    if (!out) return media::avError(AVERROR(ENOMEM), "Cannot retime " + file_.string());
    for (;;) {
        const int rc = av_buffersink_get_frame(stretchOut_, out.get());
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return common::success();
        if (rc < 0) return media::avError(rc, "Cannot retime " + file_.string());
        assert(out->format == AV_SAMPLE_FMT_FLT);
        const auto* samples = reinterpret_cast<const float*>(out->data[0]);
        ready_.insert(
            ready_.end(), samples,
            samples + static_cast<std::ptrdiff_t>(out->nb_samples) * format_.channelCount);
        av_frame_unref(out.get());
    }
}

common::Status AudioSegmentReader::drainStretch() {
    finished_ = true;
    if (int rc = av_buffersrc_add_frame(stretchIn_, nullptr); rc < 0)
        return media::avError(rc, "Cannot retime " + file_.string());
    return collectStretched();
}

common::Status AudioSegmentReader::finishSource() {
    if (auto flushed = resample(nullptr); !flushed) return flushed;
    if (finished_) return common::success();
    if (!stretcher_) {
        finished_ = true;
        return common::success();
    }
    // The source ended early: silence carries the stretch to its end.
    const std::int64_t silent = std::min(toPass_, stretchTail_);
    const std::vector<float> silence(static_cast<std::size_t>(silent) * format_.channelCount, 0.0f);
    if (auto passed = pass(silence.data(), silent); !passed) return passed;
    return finished_ ? common::success() : drainStretch();
}

common::Status AudioSegmentReader::fill(std::int64_t frames) {
    const auto readyFrames = [&] {
        return static_cast<std::int64_t>((ready_.size() - readyHead_) / format_.channelCount);
    };
    while (readyFrames() < frames && !finished_) {
        auto decoded = decodeNext();
        if (!decoded) return decoded.error();
        if (!decoded.value()) return finishSource();
        if (!anchored_) {
            AVStream& stream = *input_->streams[streamIndex_];
            const std::int64_t pts =
                frame_->best_effort_timestamp == AV_NOPTS_VALUE
                    ? AV_NOPTS_VALUE
                    : media::countedSoundTime(stream, frame_->best_effort_timestamp);
            if (pts == AV_NOPTS_VALUE && sought_) {
                // Without a time the place can't be known: start over from the beginning.
                if (auto rewound = rewind(); !rewound) return rewound;
                continue;
            }
            const ExactSeconds at =
                exactSeconds(pts == AV_NOPTS_VALUE ? 0 : (pts - startPts_) * stream.time_base.num,
                             stream.time_base.den);
            const std::int64_t offset =
                roundToTimeBase(difference(sourceStart_, at), 1, format_.sampleRateHz);
            if (offset < 0 && sought_) {
                // The seek landed after the first sample wanted: try again further back.
                prerollSeconds_ *= 4;
                if (auto sought = seekBefore(); !sought) return sought;
                continue;
            }
            anchored_ = true;
            toDrop_ = std::max<std::int64_t>(offset, 0);
            if (offset < 0) {
                // The source begins after the first sample wanted: silence until it does.
                const std::vector<float> silence(
                    static_cast<std::size_t>(-offset) * format_.channelCount, 0.0f);
                if (auto padded = pass(silence.data(), -offset); !padded) return padded;
            }
        }
        if (auto resampled = resample(frame_.get()); !resampled) return resampled;
        av_frame_unref(frame_.get());
    }
    return common::success();
}

common::Status AudioSegmentReader::mixInto(float* mix, std::int64_t frames) {
    assert(frames <= outputLeft_);
    if (auto filled = fill(frames); !filled) return filled;
    const int channels = format_.channelCount;
    const std::int64_t available =
        static_cast<std::int64_t>((ready_.size() - readyHead_) / channels);
    const std::int64_t taken = std::min(frames, available);
    const float* samples = ready_.data() + readyHead_;
    for (std::int64_t i = 0; i < taken * channels; ++i) mix[i] += samples[i];
    readyHead_ += static_cast<std::size_t>(taken * channels);
    outputLeft_ -= frames;
    if (readyHead_ * 2 > ready_.size()) {
        ready_.erase(ready_.begin(), ready_.begin() + static_cast<std::ptrdiff_t>(readyHead_));
        readyHead_ = 0;
    }
    return common::success();
}

}  // namespace composition
