#pragma once

#include "media/ff_ptr.h"
#include "model/image.h"

namespace media {

// A clip's poster is the keyframe at or before this far into its video, fitted inside the
// box; a keyframe decodes on its own, without the frames between it and the time.
inline constexpr double kThumbnailSeconds = 0.1;
inline constexpr int kThumbnailMaxWidth = 240;
inline constexpr int kThumbnailMaxHeight = 140;

// Which frame thumbnailAt takes: the one showing at the time asked for, or the keyframe
// at or before it (the first keyframe when none lies before), which decodes on its own.
enum class FramePrecision { exact = 1, keyframe };

// The frame of the first video stream that shows `seconds` after the stream's start (the
// last frame if the stream is shorter), or with `keyframe` the keyframe at or before it,
// upright as the stream's rotation says, fitted inside kThumbnailMaxWidth ×
// kThumbnailMaxHeight in its display shape and never enlarged. Null without video or on
// any failure. Decodes only from the keyframe at or before that time to the frame wanted.
// Seeks `input`, so whoever reads it afterwards must seek first.
model::Image thumbnailAt(AVFormatContext& input, double seconds,
                         FramePrecision precision = FramePrecision::exact);

}  // namespace media
