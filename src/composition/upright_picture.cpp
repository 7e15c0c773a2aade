#include "composition/upright_picture.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

#include "media/av_error.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace composition {

namespace {

// Tiles keep both the rows read and the columns written within the cache.
constexpr int kTile = 32;

struct Plane {
    const std::uint8_t* data;
    int stride;
    int width;  // in elements
    int height;
};

struct TargetPlane {
    std::uint8_t* data;
    int stride;
};

// A quarter turn of a plane of `Size`-byte elements.
template <std::size_t Size>
void turnQuarter(const Plane& in, TargetPlane out, bool clockwise) {
    for (int tileY = 0; tileY < in.height; tileY += kTile) {
        const int endY = std::min(tileY + kTile, in.height);
        for (int tileX = 0; tileX < in.width; tileX += kTile) {
            const int endX = std::min(tileX + kTile, in.width);
            for (int y = tileY; y < endY; ++y) {
                const std::uint8_t* row = in.data + static_cast<std::ptrdiff_t>(y) * in.stride;
                // Turned clockwise, row y becomes column height-1-y read top down; turned
                // the other way, column y read bottom up.
                const int column = clockwise ? in.height - 1 - y : y;
                for (int x = tileX; x < endX; ++x) {
                    const int line = clockwise ? x : in.width - 1 - x;
                    std::memcpy(out.data + static_cast<std::ptrdiff_t>(line) * out.stride +
                                    static_cast<std::ptrdiff_t>(column) * Size,
                                row + static_cast<std::ptrdiff_t>(x) * Size, Size);
                }
            }
        }
    }
}

template <std::size_t Size>
void turnHalf(const Plane& in, TargetPlane out) {
    for (int y = 0; y < in.height; ++y) {
        const std::uint8_t* row = in.data + static_cast<std::ptrdiff_t>(y) * in.stride;
        std::uint8_t* target =
            out.data + static_cast<std::ptrdiff_t>(in.height - 1 - y) * out.stride;
        for (int x = 0; x < in.width; ++x)
            std::memcpy(target + static_cast<std::ptrdiff_t>(in.width - 1 - x) * Size,
                        row + static_cast<std::ptrdiff_t>(x) * Size, Size);
    }
}

template <std::size_t Size>
void turnPlane(const Plane& in, TargetPlane out, int rotation) {
    if (rotation == 180)
        turnHalf<Size>(in, out);
    else
        turnQuarter<Size>(in, out, rotation == 90);
}

// The byte size of one element of each plane: all components stored in a plane must
// share it. 0 for a plane the format does not use; empty if the format can't be turned.
struct PlaneLayout {
    int elementSize[4] = {};
    bool subsampled[4] = {};
};

std::optional<PlaneLayout> planeLayout(const AVPixFmtDescriptor& descriptor, int rotation) {
    if (descriptor.flags &
        (AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL))
        return std::nullopt;
    if (rotation != 180 && descriptor.log2_chroma_w != descriptor.log2_chroma_h)
        return std::nullopt;
    PlaneLayout layout;
    for (int c = 0; c < descriptor.nb_components; ++c) {
        const AVComponentDescriptor& component = descriptor.comp[c];
        int& size = layout.elementSize[component.plane];
        if (size != 0 && size != component.step) return std::nullopt;
        size = component.step;
        if (c == 1 || c == 2) layout.subsampled[component.plane] = true;
    }
    for (int size : layout.elementSize) {
        if (size != 0 && size != 1 && size != 2 && size != 3 && size != 4 && size != 6 && size != 8)
            return std::nullopt;
    }
    return layout;
}

// A format of the same depth that can be turned by a quarter.
AVPixelFormat widenedFormat(const AVPixFmtDescriptor& descriptor) {
    const bool deep = descriptor.comp[0].depth > 8;
    const bool alpha = descriptor.flags & AV_PIX_FMT_FLAG_ALPHA;
    if (descriptor.flags & AV_PIX_FMT_FLAG_RGB) {
        if (alpha) return deep ? AV_PIX_FMT_RGBA64 : AV_PIX_FMT_RGBA;
        return deep ? AV_PIX_FMT_GBRP16 : AV_PIX_FMT_GBRP;
    }
    if (alpha) return deep ? AV_PIX_FMT_YUVA444P16 : AV_PIX_FMT_YUVA444P;
    return deep ? AV_PIX_FMT_YUV444P16 : AV_PIX_FMT_YUV444P;
}

common::Result<media::FramePtr> turned(const AVFrame& frame, int rotation,
                                       const AVPixFmtDescriptor& descriptor,
                                       const PlaneLayout& layout) {
    const bool quarter = rotation != 180;
    media::FramePtr result{av_frame_alloc()};
    if (!result) return media::avError(AVERROR(ENOMEM), "Cannot make an upright picture");
    result->format = frame.format;
    result->width = quarter ? frame.height : frame.width;
    result->height = quarter ? frame.width : frame.height;
    if (int rc = av_frame_get_buffer(result.get(), 0); rc < 0)
        return media::avError(rc, "Cannot make an upright picture");
    if (int rc = av_frame_copy_props(result.get(), &frame); rc < 0)
        return media::avError(rc, "Cannot describe an upright picture");
    av_frame_remove_side_data(result.get(), AV_FRAME_DATA_DISPLAYMATRIX);
    if (quarter) std::swap(result->sample_aspect_ratio.num, result->sample_aspect_ratio.den);

    for (int p = 0; p < 4; ++p) {
        const int size = layout.elementSize[p];
        if (size == 0) continue;
        const int shiftX = layout.subsampled[p] ? descriptor.log2_chroma_w : 0;
        const int shiftY = layout.subsampled[p] ? descriptor.log2_chroma_h : 0;
        const Plane in{frame.data[p], frame.linesize[p], AV_CEIL_RSHIFT(frame.width, shiftX),
                       AV_CEIL_RSHIFT(frame.height, shiftY)};
        const TargetPlane out{result->data[p], result->linesize[p]};
        switch (size) {
            case 1:
                turnPlane<1>(in, out, rotation);
                break;
            case 2:
                turnPlane<2>(in, out, rotation);
                break;
            case 3:
                turnPlane<3>(in, out, rotation);
                break;
            case 4:
                turnPlane<4>(in, out, rotation);
                break;
            case 6:
                turnPlane<6>(in, out, rotation);
                break;
            default:
                turnPlane<8>(in, out, rotation);
                break;
        }
    }
    return result;
}

}  // namespace

common::Result<media::FramePtr> uprightPicture(const AVFrame& frame, int rotationDegrees,
                                               PictureConverter& widener) {
    const int rotation = (rotationDegrees % 360 + 360) % 360;
    assert(rotation % 90 == 0);
    if (rotation == 0) {
        media::FramePtr same{av_frame_clone(&frame)};
        if (!same) return media::avError(AVERROR(ENOMEM), "Cannot share a picture");
        return same;
    }
    const AVPixFmtDescriptor* descriptor =
        av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    if (!descriptor) return common::Error{"A decoded picture has no known pixel format."};
    if (auto layout = planeLayout(*descriptor, rotation))
        return turned(frame, rotation, *descriptor, *layout);

    const AVPixelFormat wide = widenedFormat(*descriptor);
    auto widened = widener.convert(frame, {wide, frame.width, frame.height});
    if (!widened) return widened.error();
    const AVPixFmtDescriptor* wideDescriptor = av_pix_fmt_desc_get(wide);
    return turned(*widened.value(), rotation, *wideDescriptor,
                  *planeLayout(*wideDescriptor, rotation));
}

}  // namespace composition
