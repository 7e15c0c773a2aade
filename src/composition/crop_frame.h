#pragma once

#include "model/clip.h"
#include "model/small_clip_mode.h"

namespace composition {

// The crop values of one export. Insets are fractions of `largestSize`, from 0 to below 1,
// 0 meaning none; `largestSize` is the upright frame they refer to. `smallClipMode`
// travels with the rest but changes nothing: every frame of another size is fitted.
struct VideoSettings {
    model::SmallClipMode smallClipMode = model::SmallClipMode::proportional;
    double cropTop = 0;
    double cropLeading = 0;
    double cropTrailing = 0;
    double cropBottom = 0;
    model::Size largestSize;

    friend bool operator==(const VideoSettings&, const VideoSettings&) = default;
};

// The picture an export makes, in pixels. The render size is whole (rounded halves away
// from zero) but may be odd; the crop offsets keep their fractions.
struct OutputFrame {
    double renderWidth = 0;
    double renderHeight = 0;
    double cropX = 0;  // pixels cut from the leading (left) edge of a largest-size frame
    double cropY = 0;  // pixels cut from its top edge
    double largestWidth = 0;
    double largestHeight = 0;

    friend bool operator==(const OutputFrame&, const OutputFrame&) = default;
};

OutputFrame outputFrame(const VideoSettings& settings);

// Where a source frame lands on the output canvas, with the origin at the top left and y
// growing downwards: scale it by `scale`, then put its top-left corner at (x, y). Parts
// outside the canvas are cut off; the canvas is black where nothing lands.
struct Placement {
    double scale = 1;
    double x = 0;
    double y = 0;

    friend bool operator==(const Placement&, const Placement&) = default;
};

// A frame of the largest size (within less than a pixel each way) is cropped: moved up
// and left by the crop offsets, unscaled. Any other frame is shown whole, scaled to fit
// the render size and centred, however the insets are set.
Placement placeFrame(const OutputFrame& frame, double width, double height);

}  // namespace composition
