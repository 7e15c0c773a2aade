#pragma once

#include "media/ff_ptr.h"
#include "model/image.h"

namespace media {

// A decoded picture as a small upright RGBA image: turned `rotationDegrees` clockwise (0,
// 90, 180 or 270), shown in its display shape (`sampleAspect` applied; 0/1 or 1/1 means
// square pixels), and scaled down to fit inside maxWidth × maxHeight, never enlarged. Null
// if the picture cannot be converted. Touches nothing but its arguments.
model::Image uprightImage(const AVFrame& frame, AVRational sampleAspect, int rotationDegrees,
                          int maxWidth, int maxHeight);

}  // namespace media
