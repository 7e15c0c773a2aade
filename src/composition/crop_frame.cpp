#include "composition/crop_frame.h"

#include <algorithm>
#include <cmath>

namespace composition {

OutputFrame outputFrame(const VideoSettings& settings) {
    const double width = settings.largestSize.width;
    const double height = settings.largestSize.height;
    // std::round takes halves away from zero, so 500.5 pixels become 501.
    return OutputFrame{std::round(width * (1 - settings.cropLeading - settings.cropTrailing)),
                       std::round(height * (1 - settings.cropTop - settings.cropBottom)),
                       width * settings.cropLeading,
                       height * settings.cropTop,
                       width,
                       height};
}

Placement placeFrame(const OutputFrame& frame, double width, double height) {
    if (std::abs(width - frame.largestWidth) < 1 && std::abs(height - frame.largestHeight) < 1)
        return Placement{1, -frame.cropX, -frame.cropY};
    const double scale = std::min(frame.renderWidth / width, frame.renderHeight / height);
    return Placement{scale, (frame.renderWidth - scale * width) * 0.5,
                     (frame.renderHeight - scale * height) * 0.5};
}

}  // namespace composition
