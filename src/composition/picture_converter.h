#pragma once

#include "common/result.h"
#include "media/ff_ptr.h"

namespace composition {

// The pixel format and size a caller wants pictures in.
struct PictureFormat {
    AVPixelFormat pixelFormat = AV_PIX_FMT_NONE;
    int width = 0;
    int height = 0;

    friend bool operator==(const PictureFormat&, const PictureFormat&) = default;
};

// Converts and scales pictures with swscale, keeping one scaler for as long as the
// source and target stay the same. The picture fills the target size whole: fitting and
// letterboxing are the caller's business. Owned and used by one thread at a time.
class PictureConverter {
  public:
    // `source` converted to `target`. The result has its own buffers, unless `source`
    // already is in `target`'s format and size: then it is a new reference to them.
    // Frame properties (timestamps, colour description) are carried over.
    common::Result<media::FramePtr> convert(const AVFrame& source, const PictureFormat& target);

  private:
    struct Key {
        AVPixelFormat sourceFormat = AV_PIX_FMT_NONE;
        int sourceWidth = 0;
        int sourceHeight = 0;
        AVColorSpace colorSpace = AVCOL_SPC_UNSPECIFIED;
        AVColorRange colorRange = AVCOL_RANGE_UNSPECIFIED;
        PictureFormat target;

        friend bool operator==(const Key&, const Key&) = default;
    };

    media::SwsPtr scaler_;
    Key key_;
};

// A new picture of `format`, all black.
common::Result<media::FramePtr> blackPicture(const PictureFormat& format);

// Whether `format` carries full-range values: RGB, grey and the JPEG-range YUV formats.
bool isFullRange(AVPixelFormat format);

}  // namespace composition
