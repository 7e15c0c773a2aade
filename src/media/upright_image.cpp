#include "media/upright_image.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

namespace media {

namespace {

struct Extent {
    int width = 0;
    int height = 0;
};

// The upright image's size: the display shape (sample aspect and rotation applied), scaled
// down to fit the box.
Extent fittedExtent(const AVFrame& frame, AVRational sampleAspect, int rotation, Extent box) {
    double width = frame.width;
    double height = frame.height;
    if (sampleAspect.num > 0 && sampleAspect.den > 0) width *= av_q2d(sampleAspect);
    if (rotation % 180 != 0) std::swap(width, height);
    const double scale = std::min({1.0, box.width / width, box.height / height});
    return {std::clamp(static_cast<int>(std::lround(width * scale)), 1, box.width),
            std::clamp(static_cast<int>(std::lround(height * scale)), 1, box.height)};
}

// Copies the scaled picture into `image`, turned `rotation` degrees clockwise.
void copyUpright(const AVFrame& rgba, int rotation, model::ImageData& image) {
    const int lastX = rgba.width - 1;
    const int lastY = rgba.height - 1;
    // Where the upright pixel (x, y) lies in the stored picture.
    const auto sourceOf = [&](int x, int y) -> std::pair<int, int> {
        switch (rotation) {
            case 90:
                return {y, lastY - x};
            case 180:
                return {lastX - x, lastY - y};
            case 270:
                return {lastX - y, x};
            default:
                return {x, y};
        }
    };
    std::uint8_t* out = image.rgba.data();
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x, out += 4) {
            const auto [sx, sy] = sourceOf(x, y);
            const std::uint8_t* row =
                rgba.data[0] + static_cast<std::ptrdiff_t>(sy) * rgba.linesize[0];
            std::memcpy(out, row + sx * 4, 4);
        }
    }
}

}  // namespace

model::Image uprightImage(const AVFrame& frame, AVRational sampleAspect, int rotationDegrees,
                          int maxWidth, int maxHeight) {
    if (frame.width <= 0 || frame.height <= 0 || maxWidth <= 0 || maxHeight <= 0) return nullptr;
    const Extent upright =
        fittedExtent(frame, sampleAspect, rotationDegrees, Extent{maxWidth, maxHeight});
    const Extent scaled =
        rotationDegrees % 180 != 0 ? Extent{upright.height, upright.width} : upright;
    SwsPtr scaler{sws_getContext(
        frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), scaled.width,
        scaled.height, AV_PIX_FMT_RGBA, SWS_BILINEAR, nullptr, nullptr, nullptr)};
    if (!scaler) return nullptr;
    // Without this swscale reads every source as standard-definition, limited-range video.
    const int source =
        frame.colorspace == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : frame.colorspace;
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(source),
                             frame.color_range == AVCOL_RANGE_JPEG,
                             sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);

    FramePtr rgba{av_frame_alloc()};
    if (!rgba) return nullptr;
    rgba->format = AV_PIX_FMT_RGBA;
    rgba->width = scaled.width;
    rgba->height = scaled.height;
    if (av_frame_get_buffer(rgba.get(), 0) < 0) return nullptr;
    if (sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, rgba->data,
                  rgba->linesize) != scaled.height)
        return nullptr;

    auto image = std::make_shared<model::ImageData>();
    image->width = upright.width;
    image->height = upright.height;
    image->rgba.resize(static_cast<std::size_t>(upright.width) * upright.height * 4);
    copyUpright(*rgba, rotationDegrees, *image);
    return image;
}

}  // namespace media
