#pragma once

#include "media/ff_ptr.h"
#include "model/image.h"

namespace media {

// The poster frame of a clip is taken this far into its video, and fitted inside the box.
inline constexpr double kThumbnailSeconds = 0.1;
inline constexpr int kThumbnailMaxWidth = 240;
inline constexpr int kThumbnailMaxHeight = 140;

// The frame of the first video stream that shows `seconds` after the stream's start (the
// last frame if the stream is shorter), upright as the stream's rotation says, fitted
// inside kThumbnailMaxWidth × kThumbnailMaxHeight in its display shape and never enlarged.
// Null without video or on any failure. Decodes only from the keyframe at or before that
// time to the frame wanted. Seeks `input`, so whoever reads it afterwards must seek first.
model::Image thumbnailAt(AVFormatContext& input, double seconds);

}  // namespace media
