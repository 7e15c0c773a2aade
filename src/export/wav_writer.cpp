#include "export/wav_writer.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "export/source_stream.h"
#include "media/av_error.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace exporting {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kSilenceChunkSamples = 4096;

// Writes packets of samples one after the other; `written` counts the samples so far.
class WaveOutput {
  public:
    static common::Result<WaveOutput> create(const fs::path& destination,
                                             const AVCodecParameters& format);

    common::Status writeSamples(AVPacket& packet, std::int64_t samples);
    common::Status writeSilence(std::int64_t samples);
    common::Status finish();
    std::int64_t written() const { return written_; }

  private:
    WaveOutput(media::OutputFormatPtr output, media::PacketPtr silence, fs::path destination,
               int sampleBytes)
        : output_(std::move(output)),
          silence_(std::move(silence)),
          destination_(std::move(destination)),
          sampleBytes_(sampleBytes) {}

    media::OutputFormatPtr output_;
    media::PacketPtr silence_;
    fs::path destination_;
    int sampleBytes_;
    std::int64_t written_ = 0;
};

common::Result<WaveOutput> WaveOutput::create(const fs::path& destination,
                                              const AVCodecParameters& format) {
    const std::string url = "file:" + destination.string();
    AVFormatContext* raw = nullptr;
    if (int rc = avformat_alloc_output_context2(&raw, nullptr, "wav", url.c_str()); rc < 0)
        return media::avError(rc, "Cannot make a WAV file at " + destination.string());
    media::OutputFormatPtr output{raw};
    AVStream* stream = avformat_new_stream(output.get(), nullptr);
    if (!stream) return media::avError(AVERROR(ENOMEM), "Cannot add audio to " + url);
    if (int rc = avcodec_parameters_copy(stream->codecpar, &format); rc < 0)
        return media::avError(rc, "Cannot describe the audio of " + destination.string());
    stream->codecpar->codec_tag = 0;
    stream->time_base = {1, format.sample_rate};
    // A plain RIFF file stops at 4 GiB; past that the muxer switches to RF64 by itself.
    if (int rc = av_opt_set(output->priv_data, "rf64", "auto", 0); rc < 0)
        return media::avError(rc, "Cannot allow large WAV files");
    if (int rc = avio_open(&output->pb, url.c_str(), AVIO_FLAG_WRITE); rc < 0)
        return media::avError(rc, "Cannot create " + destination.string());
    if (int rc = avformat_write_header(output.get(), nullptr); rc < 0)
        return media::avError(rc, "Cannot start writing " + destination.string());

    const int sampleBytes = format.block_align;
    media::PacketPtr silence{av_packet_alloc()};
    if (!silence) return media::avError(AVERROR(ENOMEM), "Cannot make silence");
    if (int rc = av_new_packet(silence.get(), static_cast<int>(kSilenceChunkSamples * sampleBytes));
        rc < 0)
        return media::avError(rc, "Cannot make silence");
    // Unsigned 8-bit samples are silent at the middle of their range, all others at zero.
    std::memset(silence->data, format.codec_id == AV_CODEC_ID_PCM_U8 ? 0x80 : 0, silence->size);
    return WaveOutput(std::move(output), std::move(silence), destination, sampleBytes);
}

common::Status WaveOutput::writeSamples(AVPacket& packet, std::int64_t samples) {
    packet.stream_index = 0;
    packet.pts = packet.dts = written_;
    packet.duration = samples;
    packet.pos = -1;
    const int rc = av_write_frame(output_.get(), &packet);
    if (rc < 0) return media::avError(rc, "Cannot write " + destination_.string());
    written_ += samples;
    return common::success();
}

common::Status WaveOutput::writeSilence(std::int64_t samples) {
    while (samples > 0) {
        const std::int64_t chunk = std::min(samples, kSilenceChunkSamples);
        media::PacketPtr packet{av_packet_clone(silence_.get())};
        if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot make silence");
        packet->size = static_cast<int>(chunk * sampleBytes_);
        if (auto written = writeSamples(*packet, chunk); !written) return written;
        samples -= chunk;
    }
    return common::success();
}

common::Status WaveOutput::finish() {
    if (int rc = av_write_trailer(output_.get()); rc < 0)
        return media::avError(rc, "Cannot finish " + destination_.string());
    output_.reset();
    return common::success();
}

}  // namespace

common::Status writeWave(const composition::Track& track, const AVCodecParameters& format,
                         const fs::path& destination, const ProgressCallback& progress,
                         std::stop_token stop) {
    const int rate = format.sample_rate;
    const auto sampleAt = [rate](common::MediaTime time) { return time.toTimeBase(1, rate); };
    const std::int64_t total = sampleAt(track.duration());
    auto created = WaveOutput::create(destination, format);
    if (!created) return created.error();
    WaveOutput& output = *created;
    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot read the sources");
    std::optional<SourceStream> source;
    double reported = -1;
    const auto report = [&] {
        const double fraction = total > 0 ? static_cast<double>(output.written()) / total : 1.0;
        if (progress && fraction >= reported + 0.01) {
            reported = fraction;
            progress(std::min(fraction, 1.0));
        }
    };

    for (const auto& segment : track.segments) {
        if (stop.stop_requested()) return exportCancelled();
        const std::int64_t count = sampleAt(segment.end()) - sampleAt(segment.start);
        if (count <= 0) continue;
        if (!segment.source) {
            if (auto written = output.writeSilence(count); !written) return written;
            report();
            continue;
        }
        const auto& wanted = *segment.source;
        if (!source || source->path() != wanted.url ||
            source->stream().index != wanted.streamIndex) {
            source.reset();
            auto opened = SourceStream::open(wanted.url, wanted.streamIndex);
            if (!opened) return opened.error();
            source.emplace(std::move(opened).value());
        }
        const AVRational base = source->stream().time_base;
        const std::int64_t first = sampleAt(wanted.assetRange.start);
        const std::int64_t end = first + count;
        if (auto sought = source->seek(av_rescale_q(first, {1, rate}, base) + source->origin());
            !sought)
            return sought;
        std::int64_t position = first;  // the next source sample the output wants
        while (position < end) {
            if (stop.stop_requested()) return exportCancelled();
            auto more = source->read(*packet);
            if (!more) return more.error();
            if (!*more) break;
            if (packet->pts == AV_NOPTS_VALUE) {
                return common::Error{"A packet of " + wanted.url.string() +
                                     " has no timestamp, so its samples cannot be placed."};
            }
            const std::int64_t start =
                av_rescale_q(packet->pts - source->origin(), base, {1, rate});
            const std::int64_t samples = packet->size / format.block_align;
            if (start + samples <= position) continue;
            if (start >= end) break;
            if (start > position) {
                if (auto written = output.writeSilence(start - position); !written) return written;
                position = start;
            }
            const std::int64_t keep = std::min(start + samples, end) - position;
            packet->data += (position - start) * format.block_align;
            packet->size = static_cast<int>(keep * format.block_align);
            if (auto written = output.writeSamples(*packet, keep); !written) return written;
            position += keep;
            report();
        }
        if (auto written = output.writeSilence(end - position); !written) return written;
    }
    if (stop.stop_requested()) return exportCancelled();
    return output.finish();
}

}  // namespace exporting
