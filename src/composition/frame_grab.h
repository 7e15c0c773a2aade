#pragma once

#include <filesystem>
#include <vector>

#include "common/result.h"
#include "model/clip.h"
#include "model/image.h"

struct AVFrame;

namespace composition {

// The picture of `clips` at `seconds` (to the nearest 1/600 s), frame-exact, as the
// composition shows it: the top clip's frame, upright, uncropped, at the source's full
// stored size (turned with it), as RGBA. Null on any failure and where the video track
// shows nothing: a gap, audio only, past the end. Opens and decodes the files; safe to
// call from any thread, and from several at once.
model::Image grabFrame(const std::vector<model::Clip>& clips, double seconds);

// The pixels of `frame`, which must be AV_PIX_FMT_RGBA, as an image.
model::Image rgbaImage(const AVFrame& frame);

// Writes `image` as a PNG file. A temporary file beside `destination` is renamed over
// it once complete, so no partial PNG is ever left there.
common::Status writePng(const model::Image& image, const std::filesystem::path& destination);

}  // namespace composition
