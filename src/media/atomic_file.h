#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "common/result.h"

namespace media {

// Replaces `destination` with `contents` so that a reader sees either the old file or
// the whole new one, never a part: the bytes go to a temporary file beside it, are
// flushed to disk and renamed over it. An existing file keeps its permissions.
common::Status writeFileAtomically(const std::filesystem::path& destination,
                                   std::string_view contents);

// The whole content of a regular file.
common::Result<std::string> readRegularFile(const std::filesystem::path& file);

}  // namespace media
