#pragma once

#include <filesystem>
#include <optional>

#include "common/result.h"
#include "common/uuid.h"
#include "model/clip.h"

namespace media {

// Whether probeClip also decodes the poster thumbnail; `skip` leaves `thumbnail` null and
// reads no picture data.
enum class ThumbnailPolicy { make = 1, skip };

// Reads one media file into a new live clip under `id`: streams, duration, frame rate,
// stored size, rotation, fingerprint and (unless skipped) the poster thumbnail. Edit
// fields start at their defaults, with the whole file in use. Fails, naming the file and
// saying why, when the file can't be opened, isn't a regular file, or isn't media by the
// rules of media_check.h: a stream must decode, and the length and picture size must be
// believable. Touches nothing but the file; safe on any thread.
common::Result<model::Clip> probeClip(const std::filesystem::path& url,
                                      std::optional<model::Bytes> bookmark, common::Uuid id,
                                      ThumbnailPolicy thumbnail = ThumbnailPolicy::make);

}  // namespace media
