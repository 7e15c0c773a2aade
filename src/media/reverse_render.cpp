#include "media/reverse_render.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "common/log.h"
#include "common/result.h"
#include "common/uuid.h"
#include "media/av_error.h"
#include "media/ff_ptr.h"
#include "media/media_input.h"

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace media {

namespace {

namespace fs = std::filesystem;
using common::reverseLog;

constexpr AVRational kTickBase{1, static_cast<int>(kReverseTicksPerSecond)};
constexpr std::int64_t kFallbackSpacingTicks = 20;
constexpr std::int64_t kFallbackBitRate = 8'000'000;
constexpr int kFallbackWidth = 1280;
constexpr int kFallbackHeight = 720;
constexpr AVPixelFormat kFallbackPixelFormat = AV_PIX_FMT_YUV420P;
constexpr const char* kEncoderName = "libx264";
// "file:" keeps a colon in the temporary folder's path from being read as a protocol name.
constexpr std::string_view kFileProtocol = "file:";
// 0 lets FFmpeg pick a thread count from the machine's cores.
constexpr int kAutoThreads = 0;

std::string fixed(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%f", value);
    return text;
}

std::int64_t ticksOf(double seconds) {
    return std::llround(seconds * kReverseTicksPerSecond);
}

// The files this process rendered, removed at a normal exit. A function-local static's
// destructor rather than std::atexit: it runs at the same moments (main returning, exit()),
// not on abort or a fatal signal, and keeps the list, its lock and the clean-up in one
// object. A file is listed before it is written, so a render cut short by the exit goes too.
class RenderRegistry {
  public:
    static RenderRegistry& instance() {
        static RenderRegistry registry;
        return registry;
    }

    RenderRegistry(const RenderRegistry&) = delete;
    RenderRegistry& operator=(const RenderRegistry&) = delete;
    RenderRegistry(RenderRegistry&&) = delete;
    RenderRegistry& operator=(RenderRegistry&&) = delete;

    ~RenderRegistry() {
        for (const fs::path& file : files_) {
            std::error_code ignored;
            fs::remove(file, ignored);
        }
    }

    void add(fs::path file) {
        std::lock_guard lock(mutex_);
        files_.push_back(std::move(file));
    }

  private:
    RenderRegistry() = default;

    std::mutex mutex_;
    std::vector<fs::path> files_;  // guarded by mutex_
};

// The source's format when libx264 takes it, so most frames reach the encoder untouched.
AVPixelFormat encoderPixelFormat(const AVCodec& codec, int sourceFormat) {
    for (const AVPixelFormat* format = codec.pix_fmts; format && *format != AV_PIX_FMT_NONE;
         ++format) {
        if (*format == sourceFormat) return *format;
    }
    return kFallbackPixelFormat;
}

// libx264 takes only whole chroma blocks, so an odd edge loses its last row or column.
int wholeChromaBlocks(int size, int log2Block) {
    return size >> log2Block << log2Block;
}

enum class WindowRead { complete = 1, startedLate };

// Frame times are compared with window bounds exactly, as offsets from the stream's start.
class StreamClock {
  public:
    explicit StreamClock(const AVStream& stream)
        : timeBase_(stream.time_base),
          origin_(stream.start_time != AV_NOPTS_VALUE ? stream.start_time : 0) {}

    std::int64_t origin() const { return origin_; }
    std::int64_t timestampOf(std::int64_t ticks) const {
        return origin_ + av_rescale_q(ticks, kTickBase, timeBase_);
    }
    // Negative, zero or positive as `timestamp` lies before, at or after `ticks`.
    int compare(std::int64_t timestamp, std::int64_t ticks) const {
        return av_compare_ts(timestamp - origin_, timeBase_, ticks, kTickBase);
    }

  private:
    AVRational timeBase_;
    std::int64_t origin_;
};

// Decodes on from the current read position and keeps, in rising order, the frames whose
// time lies in [chunk.startTicks, chunk.endTicks). Half-open windows that tile the range
// give each frame to exactly one window. With `lateStartMatters`, a first frame after the
// window's start means the seek landed too late, and nothing is kept.
common::Result<WindowRead> decodeWindow(AVFormatContext& input, const AVStream& stream,
                                        AVCodecContext& decoder, const ReverseChunk& chunk,
                                        bool lateStartMatters, std::vector<FramePtr>& frames) {
    const StreamClock clock(stream);
    const std::string what = "the video of " + sourceName(input);
    PacketPtr packet{av_packet_alloc()};
    FramePtr frame{av_frame_alloc()};
    if (!packet || !frame) return avError(AVERROR(ENOMEM), "Cannot decode " + what);
    bool first = true;
    for (;;) {
        int rc = avcodec_receive_frame(&decoder, frame.get());
        if (rc == 0) {
            const std::int64_t time = frame->best_effort_timestamp;
            // A frame without a time has no place in the order; it is dropped.
            if (time == AV_NOPTS_VALUE) {
                av_frame_unref(frame.get());
                continue;
            }
            if (first && lateStartMatters && clock.compare(time, chunk.startTicks) > 0)
                return WindowRead::startedLate;
            first = false;
            // Frames come out in presentation order, so the first one past the end ends it.
            if (clock.compare(time, chunk.endTicks) >= 0) return WindowRead::complete;
            if (clock.compare(time, chunk.startTicks) < 0) {
                av_frame_unref(frame.get());
                continue;
            }
            frames.push_back(std::move(frame));
            frame.reset(av_frame_alloc());
            if (!frame) return avError(AVERROR(ENOMEM), "Cannot decode " + what);
            continue;
        }
        if (rc == AVERROR_EOF) return WindowRead::complete;
        // A damaged frame is dropped; the decoder picks up again at the next one it can use.
        if (rc == AVERROR_INVALIDDATA) continue;
        if (rc != AVERROR(EAGAIN)) return avError(rc, "Cannot decode " + what);

        rc = av_read_frame(&input, packet.get());
        if (rc == AVERROR_EOF) {
            rc = avcodec_send_packet(&decoder, nullptr);
        } else if (rc < 0) {
            return avError(rc, "Cannot read " + what);
        } else {
            rc = packet->stream_index == stream.index ? avcodec_send_packet(&decoder, packet.get())
                                                      : 0;
            av_packet_unref(packet.get());
        }
        if (rc < 0 && rc != AVERROR_INVALIDDATA && rc != AVERROR_EOF)
            return avError(rc, "Cannot decode " + what);
    }
}

// Reads the frames of one window into `frames` with a decoder of its own, which is gone
// when this returns, so decoding and encoding never hold memory or threads at once.
common::Status readChunk(AVFormatContext& input, const AVStream& stream, const ReverseChunk& chunk,
                         std::vector<FramePtr>& frames) {
    auto decoder = openDecoder(input, stream, kAutoThreads);
    if (!decoder) return decoder.error();
    const StreamClock clock(stream);
    std::int64_t target = clock.timestampOf(chunk.startTicks);
    std::int64_t stepBack =
        std::max<std::int64_t>(1, clock.timestampOf(kReverseTicksPerSecond) - clock.origin());
    for (;;) {
        // Backward: to the keyframe at or before the target. Some demuxers (MPEG-TS) land
        // later than asked, even when asked for the first frame; decodeWindow notices, and
        // the seek goes back further, until it aims before the first frame.
        const bool lastTry = target < clock.origin();
        int rc = av_seek_frame(&input, stream.index, target, AVSEEK_FLAG_BACKWARD);
        // Some demuxers refuse a time before the first frame; the first frame is what it means.
        if (rc < 0 && lastTry)
            rc = av_seek_frame(&input, stream.index, clock.origin(), AVSEEK_FLAG_BACKWARD);
        if (rc < 0) return avError(rc, "Cannot seek in " + sourceName(input));
        avcodec_flush_buffers(decoder->get());
        frames.clear();
        auto read = decodeWindow(input, stream, *decoder.value(), chunk, !lastTry, frames);
        if (!read) return read.error();
        if (*read == WindowRead::complete) return common::success();
        target -= stepBack;
        stepBack *= 2;
    }
}

// The encoder and muxer of one output movie. Frames go in with rising times; finish()
// flushes the encoder and closes the file. Single-threaded use only.
class MovieWriter {
  public:
    static common::Result<MovieWriter> create(const fs::path& path, AVFormatContext& input,
                                              AVStream& source, std::int64_t spacingTicks);

    // Encodes `frame` at `ticks`; it may be cropped in place to the encoder's size.
    common::Status append(AVFrame& frame, std::int64_t ticks);
    common::Status finish();

  private:
    MovieWriter(OutputFormatPtr output, CodecContextPtr encoder, PacketPtr packet, AVStream& stream)
        : output_(std::move(output)),
          encoder_(std::move(encoder)),
          packet_(std::move(packet)),
          stream_(&stream) {}

    common::Result<FramePtr> converted(const AVFrame& frame);
    common::Status drain();

    OutputFormatPtr output_;
    CodecContextPtr encoder_;
    PacketPtr packet_;
    AVStream* stream_;  // owned by output_
    SwsPtr scaler_;
    int scalerWidth_ = 0;
    int scalerHeight_ = 0;
    int scalerFormat_ = AV_PIX_FMT_NONE;
};

common::Result<MovieWriter> MovieWriter::create(const fs::path& path, AVFormatContext& input,
                                                AVStream& source, std::int64_t spacingTicks) {
    const std::string url = std::string(kFileProtocol) + path.string();
    const AVCodec* codec = avcodec_find_encoder_by_name(kEncoderName);
    if (!codec) return common::Error{"There is no libx264 encoder."};
    const AVCodecParameters& parameters = *source.codecpar;

    AVFormatContext* raw = nullptr;
    if (int rc = avformat_alloc_output_context2(&raw, nullptr, "mov", url.c_str()); rc < 0)
        return avError(rc, "Cannot make a QuickTime movie at " + path.string());
    OutputFormatPtr output{raw};

    CodecContextPtr encoder{avcodec_alloc_context3(codec)};
    if (!encoder) return avError(AVERROR(ENOMEM), "Cannot make an H.264 encoder");
    const AVPixelFormat format = encoderPixelFormat(*codec, parameters.format);
    const AVPixFmtDescriptor& layout = *av_pix_fmt_desc_get(format);
    const bool known = parameters.width > 0 && parameters.height > 0;
    encoder->width =
        wholeChromaBlocks(known ? parameters.width : kFallbackWidth, layout.log2_chroma_w);
    encoder->height =
        wholeChromaBlocks(known ? parameters.height : kFallbackHeight, layout.log2_chroma_h);
    encoder->pix_fmt = format;
    encoder->sample_aspect_ratio = av_guess_sample_aspect_ratio(&input, &source, nullptr);
    encoder->time_base = kTickBase;
    av_reduce(&encoder->framerate.num, &encoder->framerate.den, kReverseTicksPerSecond,
              spacingTicks, INT32_MAX);
    encoder->bit_rate = parameters.bit_rate > 0 ? parameters.bit_rate : kFallbackBitRate;
    encoder->thread_count = kAutoThreads;
    encoder->color_primaries = parameters.color_primaries;
    encoder->color_trc = parameters.color_trc;
    if (format == parameters.format) {
        encoder->color_range = parameters.color_range;
        encoder->colorspace = parameters.color_space;
        encoder->chroma_sample_location = parameters.chroma_location;
    } else {
        // What swscale makes by default: limited range, with BT.601 coefficients from RGB.
        const AVPixFmtDescriptor* sourceLayout =
            av_pix_fmt_desc_get(static_cast<AVPixelFormat>(parameters.format));
        const bool fromRgb = sourceLayout && (sourceLayout->flags & AV_PIX_FMT_FLAG_RGB);
        encoder->color_range = AVCOL_RANGE_MPEG;
        encoder->colorspace = fromRgb ? AVCOL_SPC_SMPTE170M : parameters.color_space;
    }
    if (output->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const std::string preset(kReverseEncoderPreset);
    if (int rc = av_opt_set(encoder->priv_data, "preset", preset.c_str(), 0); rc < 0)
        return avError(rc, "Cannot set the libx264 preset " + preset);
    // Slice threads, no lookahead and no B-frames keep the encoder from holding frames of
    // its own on top of the chunk's: that is what keeps a 1080p render near 300 MB.
    if (int rc = av_opt_set(encoder->priv_data, "x264-params",
                            "sliced-threads=1:sync-lookahead=0:rc-lookahead=0:bframes=0", 0);
        rc < 0)
        return avError(rc, "Cannot set the libx264 threading");
    if (int rc = avcodec_open2(encoder.get(), codec, nullptr); rc < 0)
        return avError(rc, "Cannot open the H.264 encoder");

    AVStream* stream = avformat_new_stream(output.get(), nullptr);
    if (!stream) return avError(AVERROR(ENOMEM), "Cannot add a video track");
    if (int rc = avcodec_parameters_from_context(stream->codecpar, encoder.get()); rc < 0)
        return avError(rc, "Cannot describe the video track");
    stream->time_base = encoder->time_base;
    stream->avg_frame_rate = encoder->framerate;
    stream->sample_aspect_ratio = encoder->sample_aspect_ratio;

    if (int rc = avio_open(&output->pb, url.c_str(), AVIO_FLAG_WRITE); rc < 0)
        return avError(rc, "Cannot create " + path.string());
    if (int rc = avformat_write_header(output.get(), nullptr); rc < 0)
        return avError(rc, "Cannot start writing " + path.string());
    PacketPtr packet{av_packet_alloc()};
    if (!packet) return avError(AVERROR(ENOMEM), "Cannot write " + path.string());
    return MovieWriter(std::move(output), std::move(encoder), std::move(packet), *stream);
}

common::Result<FramePtr> MovieWriter::converted(const AVFrame& frame) {
    if (!scaler_ || frame.width != scalerWidth_ || frame.height != scalerHeight_ ||
        frame.format != scalerFormat_) {
        scaler_.reset(sws_getContext(
            frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), encoder_->width,
            encoder_->height, encoder_->pix_fmt, SWS_BICUBIC, nullptr, nullptr, nullptr));
        if (!scaler_) return common::Error{"Cannot convert a frame for the H.264 encoder."};
        scalerWidth_ = frame.width;
        scalerHeight_ = frame.height;
        scalerFormat_ = frame.format;
    }
    FramePtr out{av_frame_alloc()};
    if (!out) return avError(AVERROR(ENOMEM), "Cannot convert a frame");
    out->format = encoder_->pix_fmt;
    out->width = encoder_->width;
    out->height = encoder_->height;
    if (int rc = av_frame_get_buffer(out.get(), 0); rc < 0)
        return avError(rc, "Cannot convert a frame");
    if (int rc = av_frame_copy_props(out.get(), &frame); rc < 0)
        return avError(rc, "Cannot convert a frame");
    if (sws_scale(scaler_.get(), frame.data, frame.linesize, 0, frame.height, out->data,
                  out->linesize) != out->height)
        return common::Error{"Cannot convert a frame for the H.264 encoder."};
    return out;
}

common::Status MovieWriter::append(AVFrame& frame, std::int64_t ticks) {
    const AVPixFmtDescriptor& layout = *av_pix_fmt_desc_get(encoder_->pix_fmt);
    const int extraWidth = frame.width - encoder_->width;
    const int extraHeight = frame.height - encoder_->height;
    if (frame.format == encoder_->pix_fmt && (extraWidth > 0 || extraHeight > 0) &&
        extraWidth >= 0 && extraWidth < (1 << layout.log2_chroma_w) && extraHeight >= 0 &&
        extraHeight < (1 << layout.log2_chroma_h)) {
        frame.crop_right = static_cast<std::size_t>(extraWidth);
        frame.crop_bottom = static_cast<std::size_t>(extraHeight);
        if (int rc = av_frame_apply_cropping(&frame, AV_FRAME_CROP_UNALIGNED); rc < 0)
            return avError(rc, "Cannot crop a frame");
    }
    AVFrame* input = &frame;
    FramePtr conversion;
    if (frame.format != encoder_->pix_fmt || frame.width != encoder_->width ||
        frame.height != encoder_->height) {
        auto made = converted(frame);
        if (!made) return made.error();
        conversion = std::move(made.value());
        input = conversion.get();
    }
    input->pts = ticks;
    // Otherwise libx264 would put keyframes where the source had them.
    input->pict_type = AV_PICTURE_TYPE_NONE;
    if (int rc = avcodec_send_frame(encoder_.get(), input); rc < 0)
        return avError(rc, "Cannot encode a frame");
    return drain();
}

common::Status MovieWriter::drain() {
    for (;;) {
        int rc = avcodec_receive_packet(encoder_.get(), packet_.get());
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return common::success();
        if (rc < 0) return avError(rc, "Cannot encode a frame");
        av_packet_rescale_ts(packet_.get(), encoder_->time_base, stream_->time_base);
        packet_->stream_index = stream_->index;
        // Takes the packet's reference whether or not it succeeds.
        if (rc = av_interleaved_write_frame(output_.get(), packet_.get()); rc < 0)
            return avError(rc, "Cannot write a frame");
    }
}

common::Status MovieWriter::finish() {
    if (int rc = avcodec_send_frame(encoder_.get(), nullptr); rc < 0)
        return avError(rc, "Cannot finish encoding");
    if (auto drained = drain(); !drained) return drained;
    if (int rc = av_write_trailer(output_.get()); rc < 0)
        return avError(rc, "Cannot finish the movie");
    // Closing flushes the last bytes, so its failure is a failed write.
    if (int rc = avio_closep(&output_->pb); rc < 0) return avError(rc, "Cannot close the movie");
    return common::success();
}

// The render after its checks: writes the windows of `chunks`, last first, each backward,
// into `path`. Fails with the log line that tells why.
common::Status writeBackward(AVFormatContext& input, AVStream& video,
                             const std::vector<ReverseChunk>& chunks, double frameRate,
                             const fs::path& path) {
    const std::int64_t spacing = reverseFrameSpacingTicks(frameRate);
    auto writer = MovieWriter::create(path, input, video, spacing);
    if (!writer) return common::Error{"failed to create writer: " + writer.error().message};

    std::int64_t written = 0;
    std::vector<FramePtr> frames;
    for (auto chunk = chunks.rbegin(); chunk != chunks.rend(); ++chunk) {
        if (auto read = readChunk(input, video, *chunk, frames); !read)
            return common::Error{"chunk reader failed: " + read.error().message};
        // Each frame is let go once the encoder has it, so memory falls as the chunk is written.
        for (; !frames.empty(); frames.pop_back(), ++written) {
            if (auto appended = writer->append(*frames.back(), written * spacing); !appended)
                return common::Error{"append failed at frame " + std::to_string(written) + ": " +
                                     appended.error().message};
        }
    }
    if (written == 0) return common::Error{"no frames in the requested range"};
    reverseLog.info("wrote " + std::to_string(written) + " frames at " + fixed(frameRate) + "fps");
    if (auto finished = writer->finish(); !finished)
        return common::Error{"finish writing failed: " + finished.error().message};
    return common::success();
}

}  // namespace

std::int64_t reverseFrameSpacingTicks(double nominalFrameRate) {
    if (!(nominalFrameRate > 0)) return kFallbackSpacingTicks;
    const double ticks = std::round(kReverseTicksPerSecond / nominalFrameRate);
    // Beyond 600 frames a second ticks are too coarse, so 1 keeps times rising; the top
    // keeps the frame rate a rational that FFmpeg can hold.
    return static_cast<std::int64_t>(std::clamp(ticks, 1.0, double{INT32_MAX}));
}

std::vector<ReverseChunk> reverseChunks(double startSeconds, double endSeconds) {
    std::vector<ReverseChunk> chunks;
    if (!std::isfinite(startSeconds) || !std::isfinite(endSeconds) || !(endSeconds > startSeconds))
        return chunks;
    for (double cursor = startSeconds; cursor < endSeconds;) {
        const double next = std::min(cursor + kReverseChunkSeconds, endSeconds);
        chunks.push_back({ticksOf(cursor), ticksOf(next)});
        cursor = next;
    }
    return chunks;
}

std::optional<fs::path> renderReversedMedia(const fs::path& url, double fromSeconds,
                                            double toSeconds) {
    reverseLog.info("start: " + url.filename().string());
    auto opened = openInput(url);
    if (!opened) {
        reverseLog.error("failed to load asset duration");
        return std::nullopt;
    }
    AVFormatContext& input = *opened.value();

    const double total = fileDurationSeconds(input);
    const double start = std::max(std::min(total, fromSeconds), 0.0);
    const double end = std::min(total, toSeconds);
    if (!(std::max(start, end) - start > 0)) {
        reverseLog.error("requested reverse range is empty");
        return std::nullopt;
    }
    const AVStream* found = firstStream(input, AVMEDIA_TYPE_VIDEO);
    if (!found) {
        reverseLog.error("source has no video track");
        return std::nullopt;
    }
    AVStream& video = *input.streams[found->index];

    std::error_code noTemporaryFolder;
    const fs::path folder = fs::temp_directory_path(noTemporaryFolder);
    if (noTemporaryFolder) {
        reverseLog.error("failed to create writer: there is no temporary folder: " +
                         noTemporaryFolder.message());
        return std::nullopt;
    }
    const fs::path path =
        folder / ("vantrell-reversed-" + common::Uuid::random().toString() + ".mov");
    RenderRegistry::instance().add(path);

    const auto chunks = reverseChunks(start, end);
    reverseLog.info("chunked [" + fixed(start) + ".." + fixed(end) + "] into " +
                    std::to_string(chunks.size()) + " windows");
    if (auto written = writeBackward(input, video, chunks, nominalFrameRate(input, video), path);
        !written) {
        reverseLog.error(written.error().message);
        std::error_code ignored;
        fs::remove(path, ignored);
        return std::nullopt;
    }
    reverseLog.info("wrote " + path.string());
    return path;
}

}  // namespace media
