#pragma once

#include <vector>

#include "composition/composition.h"
#include "model/clip.h"

namespace composition {

// A StreamLookup that opens each file with the media layer and answers its first video or
// audio stream; cover art is not a video stream. It remembers each file's answer, so one
// build opens a file once however many slices it has: make a new lookup for each build.
// Like any StreamLookup it is used by one thread at a time.
StreamLookup mediaStreamLookup();

// buildComposition over the files themselves, through a fresh mediaStreamLookup.
Composition buildComposition(const std::vector<model::Clip>& clips);

}  // namespace composition
