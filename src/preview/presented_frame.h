#pragma once

#include <functional>
#include <memory>

#include "media/ff_ptr.h"

namespace preview {

// A picture of the composition, shared by everything that shows it (the preview and its
// reflection convert it each to their own size). Upright, at the source's size, in the
// decoder's pixel format; null where the composition is black.
using SharedFrame = std::shared_ptr<const AVFrame>;

struct PresentedFrame {
    SharedFrame picture;
    double seconds = 0;  // the composition time it shows
};

// Takes pictures as they are presented; called on a worker thread, so it only hands the
// picture on.
using FrameSink = std::function<void(const PresentedFrame&)>;

}  // namespace preview
