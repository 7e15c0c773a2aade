#pragma once

#include <filesystem>

#include "common/result.h"
#include "media/ff_ptr.h"

namespace composition {

// `file` opened for reading its stream `streamIndex`, which must be of `type`, alone: the
// demuxer skips the other streams' packets instead of handing them over.
common::Result<media::InputFormatPtr> openStreamOnly(const std::filesystem::path& file,
                                                     int streamIndex, AVMediaType type);

}  // namespace composition
