#include "composition/frame_grab.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "common/media_time.h"
#include "composition/stream_lookup.h"
#include "composition/video_renderer.h"
#include "media/atomic_file.h"
#include "media/av_error.h"
#include "media/ff_ptr.h"

namespace composition {

namespace {

bool isOpaque(const model::ImageData& image) {
    for (std::size_t i = 3; i < image.rgba.size(); i += 4)
        if (image.rgba[i] != 255) return false;
    return true;
}

// The image in a frame of `format`: RGBA, or RGB when every pixel is opaque, which makes
// a smaller file that is quicker to compress and says the same.
common::Result<media::FramePtr> imageFrame(const model::ImageData& image, AVPixelFormat format) {
    media::FramePtr frame{av_frame_alloc()};
    if (!frame) return media::avError(AVERROR(ENOMEM), "Cannot hold an image");
    frame->format = format;
    frame->width = image.width;
    frame->height = image.height;
    if (int rc = av_frame_get_buffer(frame.get(), 0); rc < 0)
        return media::avError(rc, "Cannot hold an image");
    const std::size_t pixelBytes = format == AV_PIX_FMT_RGBA ? 4 : 3;
    for (int y = 0; y < image.height; ++y) {
        const std::uint8_t* from =
            image.rgba.data() + static_cast<std::size_t>(y) * image.width * 4;
        std::uint8_t* to = frame->data[0] + static_cast<std::ptrdiff_t>(y) * frame->linesize[0];
        if (pixelBytes == 4) {
            std::memcpy(to, from, static_cast<std::size_t>(image.width) * 4);
        } else {
            for (int x = 0; x < image.width; ++x, from += 4, to += 3) std::memcpy(to, from, 3);
        }
    }
    return frame;
}

common::Result<std::string> encodePng(const model::ImageData& image) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    if (!codec) return common::Error{"There is no PNG encoder."};
    const AVPixelFormat format = isOpaque(image) ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_RGBA;
    media::CodecContextPtr encoder{avcodec_alloc_context3(codec)};
    if (!encoder) return media::avError(AVERROR(ENOMEM), "Cannot make a PNG encoder");
    encoder->width = image.width;
    encoder->height = image.height;
    encoder->pix_fmt = format;
    encoder->time_base = {1, 1};
    if (int rc = avcodec_open2(encoder.get(), codec, nullptr); rc < 0)
        return media::avError(rc, "Cannot open the PNG encoder");
    auto frame = imageFrame(image, format);
    if (!frame) return frame.error();
    frame.value()->pts = 0;
    if (int rc = avcodec_send_frame(encoder.get(), frame.value().get()); rc < 0)
        return media::avError(rc, "Cannot encode a PNG image");
    if (int rc = avcodec_send_frame(encoder.get(), nullptr); rc < 0)
        return media::avError(rc, "Cannot encode a PNG image");
    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot encode a PNG image");
    if (int rc = avcodec_receive_packet(encoder.get(), packet.get()); rc < 0)
        return media::avError(rc, "Cannot encode a PNG image");
    return std::string(reinterpret_cast<const char*>(packet->data),
                       static_cast<std::size_t>(packet->size));
}

}  // namespace

model::Image grabFrame(const std::vector<model::Clip>& clips, double seconds) {
    if (!(seconds >= 0) || seconds > 1e9) return nullptr;
    const Composition composition = buildComposition(clips);
    if (!composition.video) return nullptr;
    VideoRenderer renderer{composition};
    const common::MediaTime at = common::MediaTime::fromSeconds(seconds);
    auto upright = renderer.uprightFrameAt(at);
    if (!upright || !upright.value().picture) return nullptr;
    const AVFrame& picture = *upright.value().picture;
    auto rgba = renderer.frameAt(at, {AV_PIX_FMT_RGBA, picture.width, picture.height});
    if (!rgba || !rgba.value().picture) return nullptr;
    return rgbaImage(*rgba.value().picture);
}

model::Image rgbaImage(const AVFrame& frame) {
    auto image = std::make_shared<model::ImageData>();
    image->width = frame.width;
    image->height = frame.height;
    image->rgba.resize(static_cast<std::size_t>(frame.width) * frame.height * 4);
    for (int y = 0; y < frame.height; ++y)
        std::memcpy(image->rgba.data() + static_cast<std::size_t>(y) * frame.width * 4,
                    frame.data[0] + static_cast<std::ptrdiff_t>(y) * frame.linesize[0],
                    static_cast<std::size_t>(frame.width) * 4);
    return image;
}

common::Status writePng(const model::Image& image, const std::filesystem::path& destination) {
    if (!image || image->width <= 0 || image->height <= 0 ||
        image->rgba.size() != static_cast<std::size_t>(image->width) * image->height * 4)
        return common::Error{"There is no picture to write to " + destination.string() + "."};
    auto png = encodePng(*image);
    if (!png) return png.error();
    return media::writeFileAtomically(destination, png.value());
}

}  // namespace composition
