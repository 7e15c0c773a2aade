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

// A StreamLookup for build after build, as a preview rebuilds on every edit: it keeps each
// file's answer for as long as the file keeps its size and modification time, so only new
// or changed files are opened. One thread at a time, like any StreamLookup.
StreamLookup lastingStreamLookup();

// buildComposition over the files themselves, through a fresh mediaStreamLookup.
Composition buildComposition(const std::vector<model::Clip>& clips);

}  // namespace composition
