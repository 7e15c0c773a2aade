#include "composition/picture_converter.h"

#include <cstddef>

#include "media/av_error.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace composition {

namespace {

bool isYuv(AVPixelFormat format) {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    return descriptor && !(descriptor->flags & AV_PIX_FMT_FLAG_RGB) &&
           descriptor->nb_components >= 3;
}

common::Result<media::FramePtr> allocatePicture(const PictureFormat& format) {
    media::FramePtr picture{av_frame_alloc()};
    if (!picture) return media::avError(AVERROR(ENOMEM), "Cannot make a picture");
    picture->format = format.pixelFormat;
    picture->width = format.width;
    picture->height = format.height;
    if (int rc = av_frame_get_buffer(picture.get(), 0); rc < 0)
        return media::avError(rc, "Cannot make a picture of " + std::to_string(format.width) + "x" +
                                      std::to_string(format.height) + " pixels");
    return picture;
}

}  // namespace

bool isFullRange(AVPixelFormat format) {
    switch (format) {
        case AV_PIX_FMT_YUVJ420P:
        case AV_PIX_FMT_YUVJ422P:
        case AV_PIX_FMT_YUVJ444P:
        case AV_PIX_FMT_YUVJ440P:
        case AV_PIX_FMT_YUVJ411P:
            return true;
        default:
            return !isYuv(format);
    }
}

common::Result<media::FramePtr> PictureConverter::convert(const AVFrame& source,
                                                          const PictureFormat& target) {
    const auto sourceFormat = static_cast<AVPixelFormat>(source.format);
    if (sourceFormat == target.pixelFormat && source.width == target.width &&
        source.height == target.height) {
        media::FramePtr same{av_frame_clone(&source)};
        if (!same) return media::avError(AVERROR(ENOMEM), "Cannot share a picture");
        return same;
    }
    const Key key{sourceFormat,      source.width,       source.height,
                  source.colorspace, source.color_range, target};
    if (!scaler_ || !(key == key_)) {
        scaler_.reset(sws_getContext(source.width, source.height, sourceFormat, target.width,
                                     target.height, target.pixelFormat, SWS_BICUBIC, nullptr,
                                     nullptr, nullptr));
        if (!scaler_)
            return common::Error{"Cannot convert pictures from " +
                                 std::string(av_get_pix_fmt_name(sourceFormat)) + " to " +
                                 std::string(av_get_pix_fmt_name(target.pixelFormat)) + "."};
        // Without this swscale reads every source as standard-definition, limited-range
        // video; a YUV target keeps the source's matrix.
        const int* table = sws_getCoefficients(
            source.colorspace == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : source.colorspace);
        const bool fullSource = source.color_range == AVCOL_RANGE_JPEG || isFullRange(sourceFormat);
        sws_setColorspaceDetails(scaler_.get(), table, fullSource, table,
                                 isFullRange(target.pixelFormat), 0, 1 << 16, 1 << 16);
        key_ = key;
    }

    auto converted = allocatePicture(target);
    if (!converted) return converted.error();
    AVFrame& picture = *converted.value();
    if (int rc = av_frame_copy_props(&picture, &source); rc < 0)
        return media::avError(rc, "Cannot describe a converted picture");
    if (sws_scale(scaler_.get(), source.data, source.linesize, 0, source.height, picture.data,
                  picture.linesize) != target.height)
        return common::Error{"Cannot convert a picture of " + std::to_string(source.width) + "x" +
                             std::to_string(source.height) + " pixels."};
    picture.color_range = isFullRange(target.pixelFormat) ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (!isYuv(target.pixelFormat)) picture.colorspace = AVCOL_SPC_RGB;
    // A stretched picture no longer has the source's pixel shape.
    if (target.width != source.width || target.height != source.height)
        picture.sample_aspect_ratio = {0, 1};
    return converted;
}

common::Result<media::FramePtr> blackPicture(const PictureFormat& format) {
    auto picture = allocatePicture(format);
    if (!picture) return picture.error();
    AVFrame& frame = *picture.value();
    ptrdiff_t linesizes[4] = {};
    for (int plane = 0; plane < 4; ++plane) linesizes[plane] = frame.linesize[plane];
    const AVColorRange range =
        isFullRange(format.pixelFormat) ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (int rc = av_image_fill_black(frame.data, linesizes, format.pixelFormat, range, format.width,
                                     format.height);
        rc < 0)
        return media::avError(rc, "Cannot paint a black picture");
    frame.color_range = range;
    return picture;
}

}  // namespace composition
