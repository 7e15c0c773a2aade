#pragma once

#include "common/result.h"
#include "composition/picture_converter.h"
#include "media/ff_ptr.h"

namespace composition {

// `frame` turned `rotationDegrees` (0, 90, 180 or 270) clockwise. A quarter turn swaps
// width, height and the sample aspect. For 0 the result is a new reference to `frame`'s
// buffers; otherwise it has its own, in `frame`'s pixel format where the planes can be
// turned as they are, else first widened through `widener` to a 4:4:4 format of the
// same depth (4:2:2 and packed YUV cannot be turned by a quarter). Frame properties are
// carried over; a display matrix among the side data is dropped, as it is now applied.
common::Result<media::FramePtr> uprightPicture(const AVFrame& frame, int rotationDegrees,
                                               PictureConverter& widener);

}  // namespace composition
