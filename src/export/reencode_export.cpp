#include "export/reencode_export.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "composition/audio_renderer.h"
#include "composition/crop_frame.h"
#include "composition/picture_converter.h"
#include "composition/video_renderer.h"
#include "export/colour_conversion.h"
#include "export/movie_file.h"
#include "export/partial_file.h"
#include "media/av_error.h"
#include "media/ff_ptr.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace exporting {

namespace {

namespace fs = std::filesystem;

constexpr composition::AudioFormat kAudioFormat{48000, 2};
constexpr std::int64_t kAacBitRate = 256000;
// AAC takes exactly this many samples per frame but the last; PCM takes any count.
constexpr int kAudioChunk = 1024;
// Reports closer than this are not worth a hop to the user interface.
constexpr double kProgressStep = 0.001;

struct Container {
    const char* muxer;
    bool holdsVideo;
    bool movieFamily;  // MP4 and its kin: the movie box can go in front
};

Container containerFor(model::ExportFormat format) {
    switch (format) {
        case model::ExportFormat::mp4:
            return {"mp4", true, true};
        case model::ExportFormat::mov:
            return {"mov", true, true};
        case model::ExportFormat::m4a:
            return {"ipod", false, true};
        case model::ExportFormat::wav:
            return {"wav", false, false};
    }
    return {"mp4", true, true};
}

struct Rect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool empty() const { return width <= 0 || height <= 0; }
    friend bool operator==(const Rect&, const Rect&) = default;
};

// Which pixels of a source frame go where on the canvas.
struct Window {
    Rect source;
    Rect target;
};

// The part of a `width` x `height` frame placed by `placement` that lands on the canvas,
// in whole pixels. The target's left and top edges lie on the canvas's chroma grid, and so
// do its right and bottom edges unless they are the canvas's own, so that each chroma
// plane is written at whole samples.
Window windowFor(const composition::Placement& placement, int width, int height, const Rect& canvas,
                 const AVPixFmtDescriptor& canvasFormat) {
    const auto edges = [](double start, double scale, int length, int canvasLength, int grid,
                          int& sourceStart, int& sourceEnd, int& targetStart, int& targetEnd) {
        const double from = std::max(start, 0.0);
        const double to = std::min(start + scale * length, static_cast<double>(canvasLength));
        targetStart = static_cast<int>(std::lround(from)) / grid * grid;
        targetEnd = static_cast<int>(std::lround(to));
        if (targetEnd < canvasLength) targetEnd = targetEnd / grid * grid;
        sourceStart = std::clamp(static_cast<int>(std::lround((from - start) / scale)), 0, length);
        sourceEnd = std::clamp(static_cast<int>(std::lround((to - start) / scale)), 0, length);
    };
    Window window;
    int sourceEnd = 0;
    int targetEnd = 0;
    edges(placement.x, placement.scale, width, canvas.width, 1 << canvasFormat.log2_chroma_w,
          window.source.x, sourceEnd, window.target.x, targetEnd);
    window.source.width = sourceEnd - window.source.x;
    window.target.width = targetEnd - window.target.x;
    edges(placement.y, placement.scale, height, canvas.height, 1 << canvasFormat.log2_chroma_h,
          window.source.y, sourceEnd, window.target.y, targetEnd);
    window.source.height = sourceEnd - window.source.y;
    window.target.height = targetEnd - window.target.y;
    return window;
}

// Which decoded frame the canvas holds, so a frame shown again is not converted again.
struct CanvasContent {
    bool black = true;
    std::size_t segmentIndex = 0;
    std::int64_t sourceTimestamp = 0;

    friend bool operator==(const CanvasContent&, const CanvasContent&) = default;
};

// What the scaler was made for.
struct ScalerKey {
    AVPixelFormat sourceFormat = AV_PIX_FMT_NONE;
    int sourceWidth = 0;
    int sourceHeight = 0;
    int targetWidth = 0;
    int targetHeight = 0;
    bool fullRangeSource = false;
    AVColorSpace colorSpace = AVCOL_SPC_UNSPECIFIED;

    friend bool operator==(const ScalerKey&, const ScalerKey&) = default;
};

bool isFullRange(const AVFrame& frame) {
    return frame.color_range == AVCOL_RANGE_JPEG ||
           composition::isFullRange(static_cast<AVPixelFormat>(frame.format));
}

void dropSideData(AVFrame& frame) {
    while (frame.nb_side_data > 0) av_frame_remove_side_data(&frame, frame.side_data[0]->type);
}

std::string sizeText(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

// One export run: the output file, its encoders, the renderers feeding them. Lives on the
// exporting thread only.
class Reencoder {
  public:
    Reencoder(const composition::Composition& composition, fs::path destination,
              const Container& container, const ProgressCallback& progress, std::stop_token stop)
        : composition_(composition),
          destination_(std::move(destination)),
          container_(container),
          progress_(progress),
          stop_(std::move(stop)),
          durationSeconds_(composition.duration().seconds()) {}

    common::Status open();
    common::Status addVideo(const composition::OutputFrame& frame, AVRational rate);
    common::Status addAudio(model::ExportFormat format);
    common::Status run();

  private:
    struct Output {
        media::CodecContextPtr encoder;
        AVStream* stream = nullptr;  // owned by output_
        double writtenSeconds = 0;   // the end of the latest packet written
    };

    std::string name() const { return destination_.string(); }
    // "file:" keeps a colon in the name from being read as a protocol.
    std::string url() const { return "file:" + destination_.string(); }
    common::Status writeHeader();
    common::Status send(Output& output, AVFrame* frame, const char* what);
    common::Status encodeAudioUntil(std::int64_t sample);
    common::Status encodeVideoFrame(std::int64_t index);
    common::Status paintBlack();
    void fillCodedMargin();
    common::Status place(const AVFrame& picture, const Window& window);
    media::FramePtr directFrame(composition::RenderedFrame& rendered, const Window& window);
    common::Status finish();
    common::Status cutToShownSize(Mp4Box& moov) const;
    void report();

    const composition::Composition& composition_;
    fs::path destination_;
    Container container_;
    const ProgressCallback& progress_;
    std::stop_token stop_;
    double durationSeconds_ = 0;
    double reported_ = 0;

    // Declared before the output so that it dies after it: the file is closed, then removed.
    std::optional<PartialFile> partial_;
    media::OutputFormatPtr output_;
    media::PacketPtr packet_;

    std::optional<Output> video_;
    std::optional<composition::VideoRenderer> videoRenderer_;
    composition::OutputFrame frame_;
    AVRational frameTimeBase_{1, 30};  // one output frame
    std::int64_t frameCount_ = 0;
    media::FramePtr canvas_;  // the encoder's picture, reused while the encoder lets go of it
    Rect shown_;              // the part of the canvas that players show: the render size
    std::optional<CanvasContent> canvasContent_;
    media::SwsPtr scaler_;
    ScalerKey scalerKey_;
    OutputColour outputColour_;
    ColourConverter colours_;

    std::optional<Output> audio_;
    std::optional<composition::AudioRenderer> audioRenderer_;
    media::FramePtr sound_;
    std::vector<float> mix_;
    std::int64_t sampleCount_ = 0;
    std::int64_t samplesDone_ = 0;
};

common::Status Reencoder::open() {
    AVFormatContext* raw = nullptr;
    if (int rc = avformat_alloc_output_context2(&raw, nullptr, container_.muxer, url().c_str());
        rc < 0)
        return media::avError(
            rc, "Cannot make a " + std::string(container_.muxer) + " file at " + name());
    output_.reset(raw);
    packet_.reset(av_packet_alloc());
    if (!packet_) return media::avError(AVERROR(ENOMEM), "Cannot write " + name());
    return common::success();
}

common::Status Reencoder::addVideo(const composition::OutputFrame& frame, AVRational rate) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    if (!codec)
        return common::Error{"There is no H.264 encoder (libx264) to make the video of " + name() +
                             "."};
    // H.264 crops 4:2:0 pictures in steps of two pixels only, so an odd side is coded one
    // pixel longer and the movie's clean aperture cuts that pixel off again.
    shown_ = Rect{0, 0, static_cast<int>(frame.renderWidth), static_cast<int>(frame.renderHeight)};
    const int width = shown_.width + shown_.width % 2;
    const int height = shown_.height + shown_.height % 2;
    constexpr AVPixelFormat pixelFormat = AV_PIX_FMT_YUV420P;

    Output out;
    out.encoder.reset(avcodec_alloc_context3(codec));
    if (!out.encoder)
        return media::avError(AVERROR(ENOMEM), "Cannot encode the video of " + name());
    AVCodecContext& encoder = *out.encoder;
    encoder.width = width;
    encoder.height = height;
    encoder.pix_fmt = pixelFormat;
    encoder.time_base = av_inv_q(rate);
    encoder.framerate = rate;
    encoder.sample_aspect_ratio = {1, 1};
    outputColour_ = outputColourFor(shown_.width, shown_.height);
    encoder.color_range = AVCOL_RANGE_MPEG;
    encoder.colorspace = outputColour_.matrix;
    encoder.color_primaries = outputColour_.primaries;
    encoder.color_trc = outputColour_.transfer;
    encoder.thread_count = 0;  // as many as x264 finds worthwhile
    if (output_->oformat->flags & AVFMT_GLOBALHEADER) encoder.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const std::string preset{kX264Preset};
    const std::string crf = std::to_string(kX264Crf);
    const std::string lookahead = std::to_string(kX264Lookahead);
    for (const auto& [key, value] :
         {std::pair{"preset", preset.c_str()}, std::pair{"crf", crf.c_str()},
          std::pair{"rc-lookahead", lookahead.c_str()}, std::pair{"profile", "high"}}) {
        if (int rc = av_opt_set(encoder.priv_data, key, value, 0); rc < 0)
            return media::avError(
                rc, "Cannot set the H.264 " + std::string(key) + " " + value + " for " + name());
    }
    if (int rc = avcodec_open2(&encoder, codec, nullptr); rc < 0)
        return media::avError(rc, "Cannot start the H.264 encoder for a " +
                                      sizeText(width, height) + " picture in " + name());
    out.stream = avformat_new_stream(output_.get(), nullptr);
    if (!out.stream) return media::avError(AVERROR(ENOMEM), "Cannot add video to " + name());
    if (int rc = avcodec_parameters_from_context(out.stream->codecpar, &encoder); rc < 0)
        return media::avError(rc, "Cannot describe the video of " + name());
    out.stream->time_base = encoder.time_base;
    out.stream->avg_frame_rate = rate;

    canvas_.reset(av_frame_alloc());
    if (!canvas_) return media::avError(AVERROR(ENOMEM), "Cannot encode the video of " + name());
    canvas_->format = pixelFormat;
    canvas_->width = width;
    canvas_->height = height;
    if (int rc = av_frame_get_buffer(canvas_.get(), 0); rc < 0)
        return media::avError(
            rc, "Cannot hold a " + sizeText(width, height) + " picture for " + name());
    canvas_->sample_aspect_ratio = {1, 1};
    canvas_->color_range = AVCOL_RANGE_MPEG;
    canvas_->colorspace = outputColour_.matrix;
    canvas_->color_primaries = outputColour_.primaries;
    canvas_->color_trc = outputColour_.transfer;

    // Frame k starts at k / rate; the last one starts before the end.
    const std::int64_t durationTicks = composition_.duration().ticks;
    const std::int64_t perFrame =
        static_cast<std::int64_t>(rate.den) * common::MediaTime::kTicksPerSecond;
    frameCount_ = (durationTicks * rate.num + perFrame - 1) / perFrame;
    frameTimeBase_ = encoder.time_base;
    frame_ = frame;
    videoRenderer_.emplace(composition_);
    video_ = std::move(out);
    return common::success();
}

common::Status Reencoder::addAudio(model::ExportFormat format) {
    const bool pcm = format == model::ExportFormat::wav;
    const AVCodec* codec =
        pcm ? avcodec_find_encoder(AV_CODEC_ID_PCM_S16LE) : avcodec_find_encoder_by_name("aac");
    if (!codec)
        return common::Error{std::string("There is no ") + (pcm ? "PCM" : "AAC") +
                             " encoder to make the sound of " + name() + "."};
    Output out;
    out.encoder.reset(avcodec_alloc_context3(codec));
    if (!out.encoder)
        return media::avError(AVERROR(ENOMEM), "Cannot encode the sound of " + name());
    AVCodecContext& encoder = *out.encoder;
    encoder.sample_fmt = pcm ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_FLTP;
    encoder.sample_rate = kAudioFormat.sampleRateHz;
    av_channel_layout_default(&encoder.ch_layout, kAudioFormat.channelCount);
    encoder.time_base = {1, kAudioFormat.sampleRateHz};
    if (!pcm) encoder.bit_rate = kAacBitRate;
    if (output_->oformat->flags & AVFMT_GLOBALHEADER) encoder.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (int rc = avcodec_open2(&encoder, codec, nullptr); rc < 0)
        return media::avError(rc, std::string("Cannot start the ") + (pcm ? "PCM" : "AAC") +
                                      " encoder for " + name());
    out.stream = avformat_new_stream(output_.get(), nullptr);
    if (!out.stream) return media::avError(AVERROR(ENOMEM), "Cannot add sound to " + name());
    if (int rc = avcodec_parameters_from_context(out.stream->codecpar, &encoder); rc < 0)
        return media::avError(rc, "Cannot describe the sound of " + name());
    out.stream->time_base = encoder.time_base;

    sound_.reset(av_frame_alloc());
    if (!sound_) return media::avError(AVERROR(ENOMEM), "Cannot encode the sound of " + name());
    sound_->format = encoder.sample_fmt;
    sound_->sample_rate = encoder.sample_rate;
    sound_->nb_samples = kAudioChunk;
    if (int rc = av_channel_layout_copy(&sound_->ch_layout, &encoder.ch_layout); rc < 0)
        return media::avError(rc, "Cannot encode the sound of " + name());
    if (int rc = av_frame_get_buffer(sound_.get(), 0); rc < 0)
        return media::avError(rc, "Cannot encode the sound of " + name());
    mix_.resize(static_cast<std::size_t>(kAudioChunk) * kAudioFormat.channelCount);

    audioRenderer_.emplace(composition_, kAudioFormat);
    sampleCount_ = audioRenderer_->sampleAt(composition_.duration());
    audio_ = std::move(out);
    return common::success();
}

common::Status Reencoder::writeHeader() {
    if (!(output_->oformat->flags & AVFMT_NOFILE)) {
        if (int rc = avio_open(&output_->pb, url().c_str(), AVIO_FLAG_WRITE); rc < 0)
            return media::avError(rc, "Cannot create " + name());
        // From here on there is a file to remove should anything fail.
        partial_.emplace(destination_);
    }
    AVDictionary* raw = nullptr;
    const int rc = avformat_write_header(output_.get(), &raw);
    av_dict_free(&raw);
    if (rc < 0) return media::avError(rc, "Cannot start writing " + name());
    return common::success();
}

common::Status Reencoder::cutToShownSize(Mp4Box& moov) const {
    Mp4Box* trak = findMp4Track(moov, fourCC("vide"));
    if (!trak) return common::Error{"The movie has no video track."};
    return setMp4CleanAperture(*trak, static_cast<std::uint32_t>(shown_.width),
                               static_cast<std::uint32_t>(shown_.height));
}

void Reencoder::report() {
    if (!progress_ || durationSeconds_ <= 0) return;
    double done = durationSeconds_;
    for (const auto* out : {&video_, &audio_})
        if (*out) done = std::min(done, (*out)->writtenSeconds);
    const double fraction = std::clamp(done / durationSeconds_, 0.0, 1.0);
    if (fraction <= reported_ || (fraction < 1.0 && fraction < reported_ + kProgressStep)) return;
    reported_ = fraction;
    progress_(fraction);
}

// Gives `frame` (null: the end) to the encoder and writes every packet that comes out.
common::Status Reencoder::send(Output& output, AVFrame* frame, const char* what) {
    if (int rc = avcodec_send_frame(output.encoder.get(), frame); rc < 0)
        return media::avError(rc, std::string("Cannot encode the ") + what + " of " + name());
    while (true) {
        const int rc = avcodec_receive_packet(output.encoder.get(), packet_.get());
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) break;
        if (rc < 0)
            return media::avError(rc, std::string("Cannot encode the ") + what + " of " + name());
        // Each picture lasts one frame at the constant rate; x264 leaves it unsaid.
        if (packet_->duration == 0 && output.encoder->codec_type == AVMEDIA_TYPE_VIDEO)
            packet_->duration = 1;
        packet_->stream_index = output.stream->index;
        av_packet_rescale_ts(packet_.get(), output.encoder->time_base, output.stream->time_base);
        if (packet_->pts != AV_NOPTS_VALUE) {
            const double end = static_cast<double>(packet_->pts + packet_->duration) *
                               av_q2d(output.stream->time_base);
            output.writtenSeconds = std::max(output.writtenSeconds, end);
        }
        if (int written = av_interleaved_write_frame(output_.get(), packet_.get()); written < 0)
            return media::avError(written,
                                  std::string("Cannot write the ") + what + " of " + name());
    }
    report();
    return common::success();
}

common::Status Reencoder::encodeAudioUntil(std::int64_t sample) {
    const std::int64_t until = std::min(sample, sampleCount_);
    const int channels = kAudioFormat.channelCount;
    while (samplesDone_ < until) {
        const auto frames =
            static_cast<int>(std::min<std::int64_t>(kAudioChunk, sampleCount_ - samplesDone_));
        std::span<float> mix{mix_.data(), static_cast<std::size_t>(frames) * channels};
        if (auto read = audioRenderer_->read(mix); !read) return read;
        if (int rc = av_frame_make_writable(sound_.get()); rc < 0)
            return media::avError(rc, "Cannot encode the sound of " + name());
        sound_->nb_samples = frames;
        sound_->pts = samplesDone_;
        if (sound_->format == AV_SAMPLE_FMT_S16) {
            auto* to = reinterpret_cast<std::int16_t*>(sound_->data[0]);
            for (std::size_t i = 0; i < mix.size(); ++i)
                to[i] = static_cast<std::int16_t>(std::lrint(mix[i] * 32767.0f));
        } else {
            for (int c = 0; c < channels; ++c) {
                auto* to = reinterpret_cast<float*>(sound_->data[c]);
                for (int i = 0; i < frames; ++i)
                    to[i] = mix[static_cast<std::size_t>(i) * channels + c];
            }
        }
        if (auto sent = send(*audio_, sound_.get(), "sound"); !sent) return sent;
        samplesDone_ += frames;
        if (stop_.stop_requested()) return exportCancelled();
    }
    return common::success();
}

common::Status Reencoder::paintBlack() {
    if (canvasContent_ && canvasContent_->black) return common::success();
    if (int rc = av_frame_make_writable(canvas_.get()); rc < 0)
        return media::avError(rc, "Cannot paint the video of " + name());
    ptrdiff_t linesizes[4] = {};
    for (int plane = 0; plane < 4; ++plane) linesizes[plane] = canvas_->linesize[plane];
    if (int rc = av_image_fill_black(canvas_->data, linesizes,
                                     static_cast<AVPixelFormat>(canvas_->format), AVCOL_RANGE_MPEG,
                                     canvas_->width, canvas_->height);
        rc < 0)
        return media::avError(rc, "Cannot paint the video of " + name());
    canvasContent_ = CanvasContent{};
    return common::success();
}

// Scales the source part of `picture` into the target part of the canvas, in one pass.
common::Status Reencoder::place(const AVFrame& picture, const Window& window) {
    media::FramePtr view{av_frame_clone(&picture)};
    if (!view) return media::avError(AVERROR(ENOMEM), "Cannot place a picture in " + name());
    Rect source = window.source;
    // Two pixels of packed 4:2:2 share their chroma, so a crop starts at a pair.
    const AVPixFmtDescriptor* sourceFormat =
        av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
    if (sourceFormat && !(sourceFormat->flags & AV_PIX_FMT_FLAG_PLANAR) &&
        sourceFormat->log2_chroma_w > 0)
        source.x -= source.x % 2;
    if (source.x > 0 || source.y > 0 || source.width < picture.width ||
        source.height < picture.height) {
        view->crop_left = static_cast<std::size_t>(source.x);
        view->crop_top = static_cast<std::size_t>(source.y);
        view->crop_right = static_cast<std::size_t>(picture.width - source.x - source.width);
        view->crop_bottom = static_cast<std::size_t>(picture.height - source.y - source.height);
        // Unaligned: a crop by a single pixel must stay a single pixel. An odd offset into
        // subsampled chroma starts at the chroma sample covering it.
        if (int rc = av_frame_apply_cropping(view.get(), AV_FRAME_CROP_UNALIGNED); rc < 0)
            return media::avError(rc, "Cannot crop a picture for " + name());
    }

    const ScalerKey key{static_cast<AVPixelFormat>(view->format),
                        view->width,
                        view->height,
                        window.target.width,
                        window.target.height,
                        isFullRange(*view),
                        outputColour_.matrix};
    if (!scaler_ || !(key == scalerKey_)) {
        scaler_.reset(sws_getContext(
            key.sourceWidth, key.sourceHeight, key.sourceFormat, key.targetWidth, key.targetHeight,
            static_cast<AVPixelFormat>(canvas_->format), SWS_BICUBIC, nullptr, nullptr, nullptr));
        if (!scaler_)
            return common::Error{"Cannot scale a " + sizeText(key.sourceWidth, key.sourceHeight) +
                                 " " + std::string(av_get_pix_fmt_name(key.sourceFormat)) +
                                 " picture into " + name() + "."};
        // YUV pictures come in the output's matrix already (see ColourConverter); RGB ones
        // go into it here. Without this swscale writes standard definition's matrix.
        const int* table = sws_getCoefficients(key.colorSpace);
        sws_setColorspaceDetails(scaler_.get(), table, key.fullRangeSource, table, 0, 0, 1 << 16,
                                 1 << 16);
        scalerKey_ = key;
    }

    if (int rc = av_frame_make_writable(canvas_.get()); rc < 0)
        return media::avError(rc, "Cannot place a picture in " + name());
    if (!(window.target == shown_)) {
        canvasContent_.reset();
        if (auto painted = paintBlack(); !painted) return painted;
    }
    const AVPixFmtDescriptor& format =
        *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(canvas_->format));
    std::uint8_t* planes[4] = {};
    for (int plane = 0; plane < 3; ++plane) {
        const int shiftX = plane == 0 ? 0 : format.log2_chroma_w;
        const int shiftY = plane == 0 ? 0 : format.log2_chroma_h;
        planes[plane] =
            canvas_->data[plane] +
            static_cast<std::ptrdiff_t>(window.target.y >> shiftY) * canvas_->linesize[plane] +
            (window.target.x >> shiftX);
    }
    if (sws_scale(scaler_.get(), view->data, view->linesize, 0, view->height, planes,
                  canvas_->linesize) != window.target.height)
        return common::Error{"Cannot scale a " + sizeText(view->width, view->height) +
                             " picture into " + name() + "."};
    fillCodedMargin();
    return common::success();
}

// Repeats the last shown column and row of brightness into the coded pixel beyond them, so
// that a player that ignores the clean aperture shows an edge rather than a line. The
// chroma planes already cover that pixel: the scaler writes a 4:2:0 picture of odd size
// with its chroma rounded up.
void Reencoder::fillCodedMargin() {
    std::uint8_t* luma = canvas_->data[0];
    const std::ptrdiff_t stride = canvas_->linesize[0];
    if (shown_.width < canvas_->width)
        for (int y = 0; y < shown_.height; ++y)
            luma[y * stride + shown_.width] = luma[y * stride + shown_.width - 1];
    if (shown_.height < canvas_->height)
        std::copy_n(luma + (shown_.height - 1) * stride, canvas_->width,
                    luma + shown_.height * stride);
}

// The rendered picture itself, when it already is what the encoder wants: no copy at all.
// Null otherwise.
media::FramePtr Reencoder::directFrame(composition::RenderedFrame& rendered, const Window& window) {
    const AVFrame& picture = *rendered.picture;
    const Rect whole{0, 0, canvas_->width, canvas_->height};
    if (!(shown_ == whole) || picture.format != canvas_->format ||
        picture.width != canvas_->width || picture.height != canvas_->height ||
        !(window.source == whole) || !(window.target == whole) || isFullRange(picture))
        return nullptr;
    return std::move(rendered.picture);
}

common::Status Reencoder::encodeVideoFrame(std::int64_t index) {
    auto rendered = videoRenderer_->uprightFrameAt(index, frameTimeBase_);
    if (!rendered) return rendered.error();
    AVFrame* frame = canvas_.get();
    media::FramePtr direct;
    if (!rendered->picture) {
        if (auto painted = paintBlack(); !painted) return painted;
    } else if (const CanvasContent content{false, rendered->origin->segmentIndex,
                                           rendered->origin->sourceTimestamp};
               !(canvasContent_ == content)) {
        // Each source in its own colours, the output in one.
        auto converted = colours_.convert(*rendered->picture, outputColour_);
        if (!converted) return converted.error();
        if (converted.value()) rendered->picture = std::move(converted.value());
        const AVFrame& picture = *rendered->picture;
        const auto placement = composition::placeFrame(frame_, picture.width, picture.height);
        const Window window =
            windowFor(placement, picture.width, picture.height, shown_,
                      *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(canvas_->format)));
        direct = directFrame(rendered.value(), window);
        if (direct) {
            frame = direct.get();
            dropSideData(*frame);
            frame->sample_aspect_ratio = canvas_->sample_aspect_ratio;
        } else if (window.source.empty() || window.target.empty()) {
            if (auto painted = paintBlack(); !painted) return painted;
        } else {
            if (auto placed = place(picture, window); !placed) return placed;
            canvasContent_ = content;
        }
    }
    frame->pts = index;
    // A decoded picture keeps its source's frame type, which x264 would obey.
    frame->pict_type = AV_PICTURE_TYPE_NONE;
    return send(*video_, frame, "video");
}

common::Status Reencoder::finish() {
    if (video_)
        if (auto flushed = send(*video_, nullptr, "video"); !flushed) return flushed;
    if (audio_)
        if (auto flushed = send(*audio_, nullptr, "sound"); !flushed) return flushed;
    if (int rc = av_write_trailer(output_.get()); rc < 0)
        return media::avError(rc, "Cannot finish " + name());
    if (!(output_->oformat->flags & AVFMT_NOFILE))
        if (int rc = avio_closep(&output_->pb); rc < 0)
            return media::avError(rc, "Cannot finish writing " + name());
    if (container_.movieFamily) {
        // Done here rather than by the muxer's faststart, which copies the whole file again.
        const bool cut = video_ && !(shown_ == Rect{0, 0, canvas_->width, canvas_->height});
        auto moved = moveMovieBoxToFront(
            destination_,
            [&](Mp4Box& moov) { return cut ? cutToShownSize(moov) : common::success(); },
            MovieBoxMove::insertRangeOrCopy);
        if (!moved) return common::Error{"Cannot finish " + name() + ". " + moved.error().message};
    }
    if (progress_ && reported_ < 1.0) progress_(1.0);
    if (partial_) partial_->keep();
    return common::success();
}

common::Status Reencoder::run() {
    if (stop_.stop_requested()) return exportCancelled();
    if (auto started = writeHeader(); !started) return started;
    if (video_) {
        const AVRational rate = av_inv_q(frameTimeBase_);
        for (std::int64_t k = 0; k < frameCount_; ++k) {
            if (audio_) {
                // Sound up to the end of this frame, so that the two stay side by side.
                const std::int64_t until = av_rescale_rnd(
                    k + 1, static_cast<std::int64_t>(kAudioFormat.sampleRateHz) * rate.den,
                    rate.num, AV_ROUND_UP);
                if (auto encoded = encodeAudioUntil(until); !encoded) return encoded;
            }
            if (auto encoded = encodeVideoFrame(k); !encoded) return encoded;
            if (stop_.stop_requested()) return exportCancelled();
        }
    }
    if (audio_)
        if (auto encoded = encodeAudioUntil(sampleCount_); !encoded) return encoded;
    return finish();
}

}  // namespace

common::Status exportReencoded(const composition::Composition& composition,
                               const fs::path& destination, model::ExportFormat format,
                               const ReencodeSettings& settings, const ProgressCallback& progress,
                               std::stop_token stop) {
    if (composition.duration().ticks <= 0)
        return common::Error{"There is nothing to export to " + destination.string() +
                             ": the timeline is empty."};
    const Container container = containerFor(format);
    const bool video = container.holdsVideo && composition.video && settings.frame;
    const bool audio = !composition.audio.empty() || !container.holdsVideo;
    if (container.holdsVideo && settings.framing == Framing::crop && !video)
        return common::Error{"There is no picture to crop for " + destination.string() + "."};
    if (!video && !audio)
        return common::Error{"The timeline has nothing that " + destination.string() +
                             " can hold: no sized picture and no sound."};

    AVRational rate{0, 1};
    if (video) {
        const composition::OutputFrame& frame = *settings.frame;
        if (!(frame.renderWidth >= 1 && frame.renderHeight >= 1 && frame.renderWidth <= 16384 &&
              frame.renderHeight <= 16384))
            return common::Error{"A picture of " + std::to_string(frame.renderWidth) + " by " +
                                 std::to_string(frame.renderHeight) + " pixels cannot go into " +
                                 destination.string() + "."};
        if (!(std::isfinite(settings.framesPerSecond) && settings.framesPerSecond > 0 &&
              settings.framesPerSecond <= 1000))
            return common::Error{"A rate of " + std::to_string(settings.framesPerSecond) +
                                 " frames a second cannot go into " + destination.string() + "."};
        // 29.97 and its kin come back as 30000/1001.
        rate = av_d2q(settings.framesPerSecond, 1001000);
    }

    Reencoder reencoder(composition, destination, container, progress, std::move(stop));
    if (auto opened = reencoder.open(); !opened) return opened;
    if (video)
        if (auto added = reencoder.addVideo(*settings.frame, rate); !added) return added;
    if (audio)
        if (auto added = reencoder.addAudio(format); !added) return added;
    return reencoder.run();
}

}  // namespace exporting
