#include "media/waveform.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <span>
#include <utility>

#include "media/media_input.h"

namespace media::waveform {

namespace {

// Audio decoders gain nothing from more threads.
constexpr int kDecoderThreads = 1;

// Bucket sizes tried at once around the one the stream's stated length predicts. A stated
// length is off by the codec's priming and padding, a few thousand frames; one guessed from
// the bit rate of a variable-rate file is off by more than any slack worth scanning for,
// and takes the second pass. Each candidate costs one more scan of the samples.
constexpr double kLengthSlack = 0.001;
constexpr std::int64_t kSlackFramesPerChannel = 8192;
constexpr std::int64_t kMostCandidates = 64;
// Candidates for a long file hold many maxima each; past this many in all (64 MB), fewer
// candidates are tried and a miss takes the second pass.
constexpr std::int64_t kMostMaximaHeld = std::int64_t{1} << 25;

using SampleSink = std::function<void(std::span<const std::int16_t>)>;

// Scanning the samples is most of what a pass costs beyond decoding. Loops over blocks of
// this many samples, each copied into a local array so that it cannot alias the output,
// are ones that GCC turns into vector instructions at -O2.
constexpr std::size_t kBlock = 16;
using Block = std::array<std::int16_t, kBlock>;

std::int16_t magnitude(std::int16_t sample) {
    return static_cast<std::int16_t>(std::min(std::abs(static_cast<int>(sample)), 32767));
}

// The magnitudes of `samples` on the 0...32767 scale, −32768 counting as 32767, into `out`.
void magnitudes(std::span<const std::int16_t> samples, std::vector<std::int16_t>& out) {
    out.resize(samples.size());
    std::size_t i = 0;
    for (; i + kBlock <= samples.size(); i += kBlock) {
        Block block;
        std::memcpy(block.data(), samples.data() + i, sizeof block);
        for (std::size_t j = 0; j < kBlock; ++j) block[j] = magnitude(block[j]);
        std::memcpy(out.data() + i, block.data(), sizeof block);
    }
    for (; i < samples.size(); ++i) out[i] = magnitude(samples[i]);
}

// The largest of `values`, or 0 when there are none.
std::int16_t largestOf(std::span<const std::int16_t> values) {
    Block lanes{};
    std::size_t i = 0;
    for (; i + kBlock <= values.size(); i += kBlock) {
        Block block;
        std::memcpy(block.data(), values.data() + i, sizeof block);
        for (std::size_t j = 0; j < kBlock; ++j) lanes[j] = std::max(lanes[j], block[j]);
    }
    std::int16_t largest = *std::max_element(lanes.begin(), lanes.end());
    for (; i < values.size(); ++i) largest = std::max(largest, values[i]);
    return largest;
}

// The largest magnitude in each of `count` buckets of `bucket` samples, fed the samples in
// order: bucket i covers samples [i × bucket, (i + 1) × bucket), and samples past the last
// bucket are ignored. A bucket that no sample reaches stays 0.
class BucketMaxima {
  public:
    BucketMaxima(std::int64_t bucket, int count) : bucket_(bucket), maxima_(count, 0) {}

    void add(std::span<const std::int16_t> magnitudes) {
        std::size_t offset = 0;
        while (offset < magnitudes.size() && index_ < maxima_.size()) {
            const std::size_t take = static_cast<std::size_t>(
                std::min<std::int64_t>(magnitudes.size() - offset, bucket_ - filled_));
            maxima_[index_] =
                std::max(maxima_[index_], largestOf(magnitudes.subspan(offset, take)));
            offset += take;
            filled_ += static_cast<std::int64_t>(take);
            if (filled_ == bucket_) {
                ++index_;
                filled_ = 0;
            }
        }
    }

    std::int64_t bucket() const { return bucket_; }
    const std::vector<std::int16_t>& maxima() const { return maxima_; }

  private:
    std::int64_t bucket_;
    std::vector<std::int16_t> maxima_;
    std::size_t index_ = 0;    // the bucket being filled
    std::int64_t filled_ = 0;  // samples in it so far
};

// Converts decoded frames to interleaved signed 16-bit samples at the rate and channel
// layout of the first frame.
class PcmConverter {
  public:
    static std::optional<PcmConverter> make() {
        SwrPtr resampler{swr_alloc()};
        FramePtr input{av_frame_alloc()};
        FramePtr output{av_frame_alloc()};
        if (!resampler || !input || !output) return std::nullopt;
        return PcmConverter(std::move(resampler), std::move(input), std::move(output));
    }

    // Converts `frame` (or, when null, whatever the resampler still holds) and hands the
    // samples to `sink`; answers how many it handed over, or a negative FFmpeg code.
    std::int64_t convert(const AVFrame* frame, const SampleSink& sink) {
        std::int64_t flushed = 0;
        if (frame && !sameShape(*frame, *input_)) {
            if (output_->sample_rate) {
                // A stream that changes format midway keeps its first rate and layout.
                flushed = convert(nullptr, sink);
                if (flushed < 0) return flushed;
            } else if (int rc = copyShape(*frame, AV_SAMPLE_FMT_S16, *output_); rc < 0) {
                return rc;
            }
            if (int rc = reconfigure(*frame); rc < 0) return rc;
        }
        if (!output_->sample_rate) return 0;
        const int inCount = frame ? frame->nb_samples : 0;
        const int capacity = swr_get_out_samples(resampler_.get(), inCount);
        if (capacity < 0) return capacity;
        const int channels = output_->ch_layout.nb_channels;
        samples_.resize(static_cast<std::size_t>(capacity) * channels);
        auto* out = reinterpret_cast<std::uint8_t*>(samples_.data());
        const int converted = swr_convert(
            resampler_.get(), &out, capacity,
            frame ? const_cast<const std::uint8_t**>(frame->extended_data) : nullptr, inCount);
        if (converted < 0) return converted;
        const auto count = static_cast<std::size_t>(converted) * channels;
        sink({samples_.data(), count});
        return flushed + static_cast<std::int64_t>(count);
    }

  private:
    PcmConverter(SwrPtr resampler, FramePtr input, FramePtr output)
        : resampler_(std::move(resampler)), input_(std::move(input)), output_(std::move(output)) {}

    static bool sameShape(const AVFrame& a, const AVFrame& b) {
        return a.format == b.format && a.sample_rate == b.sample_rate &&
               av_channel_layout_compare(&a.ch_layout, &b.ch_layout) == 0;
    }

    static int copyShape(const AVFrame& from, int format, AVFrame& to) {
        to.format = format;
        to.sample_rate = from.sample_rate;
        return av_channel_layout_copy(&to.ch_layout, &from.ch_layout);
    }

    int reconfigure(const AVFrame& frame) {
        if (int rc = copyShape(frame, frame.format, *input_); rc < 0) return rc;
        swr_close(resampler_.get());
        if (int rc = swr_config_frame(resampler_.get(), output_.get(), input_.get()); rc < 0)
            return rc;
        return swr_init(resampler_.get());
    }

    SwrPtr resampler_;
    FramePtr input_;   // format, rate and layout the resampler takes; no samples
    FramePtr output_;  // format, rate and layout it gives; no samples
    std::vector<std::int16_t> samples_;
};

// Whether the demuxer stopped before the last packet its index lists for `stream`, as it
// does, without an error, in a file cut short. A generic index only lists what was read.
bool endedBeforeIndex(const AVFormatContext& input, AVStream& stream, std::int64_t lastDts) {
    if (input.iformat->flags & AVFMT_GENERIC_INDEX) return false;
    const int entries = avformat_index_get_entries_count(&stream);
    if (entries <= 0) return false;
    const AVIndexEntry* last = avformat_index_get_entry(&stream, entries - 1);
    return last && (lastDts == AV_NOPTS_VALUE || lastDts < last->timestamp);
}

// Decodes all of `stream` to interleaved 16-bit PCM and hands it to `sink` in order.
// Answers the number of samples over all channels, or nothing when anything fails.
std::optional<std::int64_t> decodeAll(AVFormatContext& input, AVStream& stream,
                                      const SampleSink& sink) {
    for (unsigned i = 0; i < input.nb_streams; ++i)
        if (input.streams[i] != &stream) input.streams[i]->discard = AVDISCARD_ALL;
    auto decoder = openDecoder(input, stream, kDecoderThreads);
    if (!decoder) return std::nullopt;
    auto converter = PcmConverter::make();
    PacketPtr packet{av_packet_alloc()};
    FramePtr frame{av_frame_alloc()};
    if (!converter || !packet || !frame) return std::nullopt;

    std::int64_t samples = 0;
    // Hands over every frame the decoder has ready; false on a decoding failure.
    const auto receive = [&] {
        for (;;) {
            const int rc = avcodec_receive_frame(decoder.value().get(), frame.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return true;
            if (rc < 0) return false;
            const std::int64_t converted = converter->convert(frame.get(), sink);
            if (converted < 0) return false;
            samples += converted;
        }
    };

    std::int64_t lastDts = AV_NOPTS_VALUE;
    for (;;) {
        const int rc = av_read_frame(&input, packet.get());
        if (rc == AVERROR_EOF) break;
        if (rc < 0) return std::nullopt;
        if (packet->stream_index == stream.index) {
            // A short read at a cut is flagged corrupt rather than failed.
            if (packet->flags & AV_PKT_FLAG_CORRUPT) return std::nullopt;
            if (packet->dts != AV_NOPTS_VALUE) lastDts = packet->dts;
            if (avcodec_send_packet(decoder.value().get(), packet.get()) < 0) return std::nullopt;
        }
        av_packet_unref(packet.get());
        if (!receive()) return std::nullopt;
    }
    if (avcodec_send_packet(decoder.value().get(), nullptr) < 0 || !receive()) return std::nullopt;
    const std::int64_t flushed = converter->convert(nullptr, sink);
    if (flushed < 0) return std::nullopt;
    samples += flushed;
    if (endedBeforeIndex(input, stream, lastDts)) return std::nullopt;
    return samples;
}

// The sample count over all channels that the stream's stated length implies, if it states
// one. Only a guess: priming, padding and truncation all move the decoded count.
std::optional<std::int64_t> statedSampleCount(const AVFormatContext& input,
                                              const AVStream& stream) {
    double seconds = 0;
    if (stream.duration != AV_NOPTS_VALUE && stream.duration > 0)
        seconds = stream.duration * av_q2d(stream.time_base);
    else if (input.duration != AV_NOPTS_VALUE && input.duration > 0)
        seconds = static_cast<double>(input.duration) / AV_TIME_BASE;
    const double count =
        seconds * stream.codecpar->sample_rate * stream.codecpar->ch_layout.nb_channels;
    if (!(count >= 1) || count > 0x1p62) return std::nullopt;
    return static_cast<std::int64_t>(count);
}

std::int64_t bucketFor(std::int64_t sampleCount, int targetPeakCount) {
    return std::max<std::int64_t>(sampleCount / targetPeakCount, 1);
}

// Maxima for every bucket size that a decoded count near the stated one would give, so that
// one pass serves unless the count lands far from it.
std::vector<BucketMaxima> candidatesAround(std::int64_t stated, int channels, int targetPeakCount) {
    const auto slack = static_cast<std::int64_t>(stated * kLengthSlack) +
                       kSlackFramesPerChannel * std::max(channels, 1);
    std::int64_t first = bucketFor(std::max<std::int64_t>(stated - slack, 0), targetPeakCount);
    std::int64_t last = bucketFor(stated + slack, targetPeakCount);
    const std::int64_t most =
        std::clamp<std::int64_t>(kMostMaximaHeld / targetPeakCount, 1, kMostCandidates);
    if (last - first + 1 > most) {
        const std::int64_t middle = bucketFor(stated, targetPeakCount);
        first = std::max<std::int64_t>(middle - most / 2, 1);
        last = first + most - 1;
    }
    std::vector<BucketMaxima> candidates;
    candidates.reserve(static_cast<std::size_t>(last - first + 1));
    for (std::int64_t bucket = first; bucket <= last; ++bucket)
        candidates.emplace_back(bucket, targetPeakCount);
    return candidates;
}

// Feeds every candidate the magnitudes of each chunk of samples.
SampleSink feeding(std::vector<BucketMaxima>& candidates, std::vector<std::int16_t>& scratch) {
    return [&candidates, &scratch](std::span<const std::int16_t> samples) {
        magnitudes(samples, scratch);
        for (BucketMaxima& candidate : candidates) candidate.add(scratch);
    };
}

std::vector<float> peaksFrom(const std::vector<std::int16_t>& maxima) {
    std::vector<float> peaks(maxima.size());
    std::transform(maxima.begin(), maxima.end(), peaks.begin(), [](std::int16_t largest) {
        return std::min(static_cast<float>(largest) / kFullScale * kDisplayGain, 1.0f);
    });
    return peaks;
}

std::optional<std::vector<float>> peaksOf(const std::filesystem::path& url, int targetPeakCount) {
    auto opened = openInput(url);
    if (!opened) return std::nullopt;
    const AVStream* audio = firstStream(*opened.value(), AVMEDIA_TYPE_AUDIO);
    if (!audio) return std::nullopt;
    AVStream& stream = *opened.value()->streams[audio->index];

    std::vector<BucketMaxima> candidates;
    if (const auto stated = statedSampleCount(*opened.value(), stream))
        candidates =
            candidatesAround(*stated, stream.codecpar->ch_layout.nb_channels, targetPeakCount);
    std::vector<std::int16_t> scratch;
    const auto sampleCount = decodeAll(*opened.value(), stream, feeding(candidates, scratch));
    if (!sampleCount || *sampleCount == 0) return std::nullopt;

    const std::int64_t bucket = bucketFor(*sampleCount, targetPeakCount);
    for (const BucketMaxima& candidate : candidates)
        if (candidate.bucket() == bucket) return peaksFrom(candidate.maxima());

    // The count landed outside every candidate: decode again for the one bucket size now known.
    opened = openInput(url);
    if (!opened) return std::nullopt;
    audio = firstStream(*opened.value(), AVMEDIA_TYPE_AUDIO);
    if (!audio) return std::nullopt;
    std::vector<BucketMaxima> known;
    known.emplace_back(bucket, targetPeakCount);
    const auto again =
        decodeAll(*opened.value(), *opened.value()->streams[audio->index], feeding(known, scratch));
    if (again != sampleCount) return std::nullopt;
    return peaksFrom(known.front().maxima());
}

// One horizontal run of covered pixels in a sub-row of the image, in pixel units.
struct Span {
    double from = 0;
    double to = 0;
};

// A waveform line snapped to its place: centre x and half height in pixels.
struct Line {
    double x = 0;
    double halfHeight = 0;
};

constexpr int kSubdivisions = 16;  // per pixel, for line placement and vertical coverage

// The lines, one per 1/16-pixel position, each the tallest of the peaks placed there: lines
// on one centre nest inside the tallest, so this keeps drawing bounded by the image's size
// whatever the number of peaks.
std::vector<Line> snappedLines(const std::vector<float>& peaks) {
    const int positions = kImageWidth * kSubdivisions + 1;
    std::vector<double> tallest(positions, -1.0);
    const double spacing = static_cast<double>(kImageWidth) / static_cast<double>(peaks.size());
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        const double x = (static_cast<double>(i) + 0.5) * spacing;
        const auto slot = std::clamp<long>(std::lround(x * kSubdivisions), 0, positions - 1);
        const float peak = peaks[i] > 0 ? std::min(peaks[i], 1.0f) : 0.0f;  // NaN counts as 0
        tallest[slot] = std::max(tallest[slot], peak * kGreatestHalfHeight);
    }
    std::vector<Line> lines;
    for (int slot = 0; slot < positions; ++slot)
        if (tallest[slot] >= 0)
            lines.push_back({static_cast<double>(slot) / kSubdivisions, tallest[slot]});
    return lines;
}

// Adds `span` to the disjoint runs in `spans`, which were added in rising order of their
// centres. No run reaches further left than half a pixel before its centre, so only runs
// at the back can overlap the new one.
void addSpan(std::vector<Span>& spans, Span span) {
    while (!spans.empty() && spans.back().to >= span.from) {
        span.from = std::min(span.from, spans.back().from);
        span.to = std::max(span.to, spans.back().to);
        spans.pop_back();
    }
    spans.push_back(span);
}

// Adds the covered length of each pixel column in `spans` to `coverage`, at `weight`.
void accumulate(const std::vector<Span>& spans, double weight, std::vector<double>& coverage) {
    for (const Span& span : spans) {
        const double from = std::max(span.from, 0.0);
        const double to = std::min(span.to, static_cast<double>(kImageWidth));
        for (auto column = static_cast<int>(std::floor(from)); column < to; ++column) {
            const double covered = std::min(to, column + 1.0) - std::max(from, double(column));
            if (covered > 0) coverage[column] += covered * weight;
        }
    }
}

// The union of two lists of disjoint runs, each in rising order, into `merged`.
void unite(const std::vector<Span>& a, const std::vector<Span>& b, std::vector<Span>& merged) {
    merged.clear();
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() || j < b.size()) {
        const bool takeA = j == b.size() || (i < a.size() && a[i].from <= b[j].from);
        const Span next = takeA ? a[i++] : b[j++];
        if (!merged.empty() && merged.back().to >= next.from)
            merged.back().to = std::max(merged.back().to, next.to);
        else
            merged.push_back(next);
    }
}

// How much of each pixel of one row the lines cover, 0...1. The row spans distances
// `nearest` to `farthest` from the centre line. A line whose body spans the whole row
// covers the same run in every sub-row, so only lines that end within the row are
// sampled sub-row by sub-row.
void coverRow(const std::vector<Line>& lines, double nearest, double farthest,
              std::vector<double>& coverage) {
    std::fill(coverage.begin(), coverage.end(), 0.0);
    std::vector<Span> whole;
    std::vector<const Line*> ending;
    for (const Line& line : lines) {
        if (line.halfHeight >= farthest)
            addSpan(whole, {line.x - 0.5, line.x + 0.5});
        else if (line.halfHeight + 0.5 > nearest)
            ending.push_back(&line);
    }
    if (ending.empty()) {
        accumulate(whole, 1.0, coverage);
        return;
    }
    std::vector<Span> partial;
    std::vector<Span> merged;
    for (int sub = 0; sub < kSubdivisions; ++sub) {
        const double distance = farthest - (sub + 0.5) * (farthest - nearest) / kSubdivisions;
        partial.clear();
        for (const Line* line : ending) {
            // Beyond the line's end the round cap narrows to a point half a pixel on.
            const double past = distance - line->halfHeight;
            if (past >= 0.5) continue;
            const double halfWidth = past <= 0 ? 0.5 : std::sqrt(0.25 - past * past);
            addSpan(partial, {line->x - halfWidth, line->x + halfWidth});
        }
        unite(whole, partial, merged);
        accumulate(merged, 1.0 / kSubdivisions, coverage);
    }
}

}  // namespace

std::optional<std::vector<float>> extractPeaks(const std::filesystem::path& url,
                                               int targetPeakCount) {
    if (targetPeakCount <= 0) return std::nullopt;
    try {
        return peaksOf(url, targetPeakCount);
    } catch (const std::bad_alloc&) {
        // A peak count far beyond any real file's.
        return std::nullopt;
    }
}

model::Image drawWaveform(const std::vector<float>& peaks) {
    auto image = std::make_shared<model::ImageData>();
    image->width = kImageWidth;
    image->height = kImageHeight;
    image->rgba.assign(static_cast<std::size_t>(kImageWidth) * kImageHeight * 4, 0);
    if (peaks.empty()) return image;

    const std::vector<Line> lines = snappedLines(peaks);
    std::vector<double> coverage(kImageWidth);
    // The picture is symmetric about the centre line: each row of the top half is drawn
    // once and mirrored into the bottom half.
    for (int row = 0; row < kImageHeight / 2; ++row) {
        const double farthest = kCentreY - row;
        coverRow(lines, farthest - 1, farthest, coverage);
        for (const int y : {row, kImageHeight - 1 - row}) {
            std::uint8_t* pixel =
                image->rgba.data() + static_cast<std::size_t>(y) * kImageWidth * 4;
            for (int column = 0; column < kImageWidth; ++column, pixel += 4) {
                const auto alpha = static_cast<int>(
                    std::lround(kLineAlpha * 255 * std::min(coverage[column], 1.0)));
                if (alpha == 0) continue;
                pixel[0] = kTeal.r;
                pixel[1] = kTeal.g;
                pixel[2] = kTeal.b;
                pixel[3] = static_cast<std::uint8_t>(alpha);
            }
        }
    }
    return image;
}

}  // namespace media::waveform
