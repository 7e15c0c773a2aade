#include "export/cut_encoder.h"

#include <string>

#include "media/av_error.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

namespace exporting {

namespace {

// Quality at which re-encoded cut frames stay well above 45 dB against the source.
constexpr const char* kX264Quality = "6";
constexpr const char* kX265Params = "crf=6:bframes=0:log-level=error";

}  // namespace

bool canEncode(AVCodecID codec) {
    return avcodec_find_encoder(codec) != nullptr;
}

CutEncoder::CutEncoder(media::CodecContextPtr context, NalFraming framing)
    : context_(std::move(context)), framing_(framing) {}

common::Result<CutEncoder> CutEncoder::open(const AVCodecParameters& source, AVRational frameRate) {
    const AVCodec* codec = avcodec_find_encoder(source.codec_id);
    if (!codec) {
        return common::Error{std::string("This build has no encoder for ") +
                             avcodec_get_name(source.codec_id) + " video."};
    }
    media::CodecContextPtr context{avcodec_alloc_context3(codec)};
    if (!context) return media::avError(AVERROR(ENOMEM), "Cannot make a video encoder");
    AVCodecContext& c = *context;
    c.width = source.width;
    c.height = source.height;
    c.pix_fmt = static_cast<AVPixelFormat>(source.format);
    // The encoder counts frames (see encode), so its clock need only tick once a frame; MPEG-4
    // Part 2 refuses a clock finer than 1/65535 s, which a join's common time base can be.
    const AVRational rate = frameRate.num > 0 && frameRate.den > 0 ? frameRate : AVRational{30, 1};
    av_reduce(&c.time_base.num, &c.time_base.den, rate.den, rate.num, 65535);
    c.framerate = rate;
    c.sample_aspect_ratio = source.sample_aspect_ratio;
    c.color_range = source.color_range;
    c.color_primaries = source.color_primaries;
    c.color_trc = source.color_trc;
    c.colorspace = source.color_space;
    c.chroma_sample_location = source.chroma_location;
    c.field_order = source.field_order;
    c.max_b_frames = 0;
    c.gop_size = 1 << 20;
    c.thread_count = 0;
    AVDictionary* options = nullptr;
    if (std::string(codec->name) == "libx264") {
        av_dict_set(&options, "qp", kX264Quality, 0);
        av_dict_set(&options, "preset", "veryfast", 0);
    } else if (std::string(codec->name) == "libx265") {
        av_dict_set(&options, "x265-params", kX265Params, 0);
        av_dict_set(&options, "preset", "veryfast", 0);
    } else {
        // The finest quantiser; the MPEG encoders clamp it to qmin, 2 unless told, which
        // leaves cut frames a few dB short.
        c.flags |= AV_CODEC_FLAG_QSCALE;
        c.global_quality = FF_QP2LAMBDA;
        c.qmin = 1;
    }
    const int rc = avcodec_open2(&c, codec, &options);
    av_dict_free(&options);
    if (rc < 0) {
        return media::avError(rc, std::string("Cannot open the ") + codec->name +
                                      " encoder for the frames around a cut");
    }
    return CutEncoder(std::move(context), nalFraming(source));
}

common::Status CutEncoder::encode(AVFrame* frame, std::vector<media::PacketPtr>& out) {
    if (frame) {
        frame->pict_type = AV_PICTURE_TYPE_NONE;
        times_[counted_] = frame->pts;
        frame->pts = counted_++;
    }
    if (int rc = avcodec_send_frame(context_.get(), frame); rc < 0)
        return media::avError(rc, "Cannot encode the frames around a cut");
    while (true) {
        media::PacketPtr packet{av_packet_alloc()};
        if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot encode");
        const int rc = avcodec_receive_packet(context_.get(), packet.get());
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return common::success();
        if (rc < 0) return media::avError(rc, "Cannot encode the frames around a cut");
        // Without B-frames each packet is one frame, in order, timed as that frame was.
        if (const auto time = times_.find(packet->pts); time != times_.end()) {
            packet->pts = packet->dts = time->second;
            times_.erase(time);
        }
        if (framing_.nal && framing_.lengthSize > 0) {
            auto bytes = reframed({packet->data, static_cast<std::size_t>(packet->size)}, framing_);
            media::PacketPtr framed{av_packet_alloc()};
            if (!framed || av_new_packet(framed.get(), static_cast<int>(bytes.size())) < 0)
                return media::avError(AVERROR(ENOMEM), "Cannot encode");
            std::copy(bytes.begin(), bytes.end(), framed->data);
            av_packet_copy_props(framed.get(), packet.get());
            packet = std::move(framed);
        }
        out.push_back(std::move(packet));
    }
}

common::Result<media::FramePtr> CutEncoder::blackFrame() const {
    media::FramePtr frame{av_frame_alloc()};
    if (!frame) return media::avError(AVERROR(ENOMEM), "Cannot make a black picture");
    frame->width = context_->width;
    frame->height = context_->height;
    frame->format = context_->pix_fmt;
    frame->color_range = context_->color_range;
    if (int rc = av_frame_get_buffer(frame.get(), 0); rc < 0)
        return media::avError(rc, "Cannot make a black picture");
    std::ptrdiff_t linesizes[4];
    for (int i = 0; i < 4; ++i) linesizes[i] = frame->linesize[i];
    if (int rc = av_image_fill_black(frame->data, linesizes, context_->pix_fmt,
                                     context_->color_range, frame->width, frame->height);
        rc < 0)
        return media::avError(rc, "Cannot make a black picture");
    return frame;
}

}  // namespace exporting
