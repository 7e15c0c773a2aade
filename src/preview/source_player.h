#pragma once

#include <filesystem>

#include "common/result.h"
#include "composition/composition.h"

namespace preview {

// A composition that shows one file's own picture: its first video stream from its
// start, upright by its rotation, with no crop and no retime, so composition time is the
// file's time. The last frame holds for a second past the file's end, where an edge
// dragged to the very end asks for it. Opens the file: call it off the UI thread.
common::Result<composition::Composition> sourceComposition(const std::filesystem::path& file);

}  // namespace preview
