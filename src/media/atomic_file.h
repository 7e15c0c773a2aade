#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "common/result.h"

namespace media {

// The default limit of readRegularFile: the project file and the pasteboard hold small
// JSON, so anything this large is not one of them.
inline constexpr std::uint64_t kLargestReadBytes = 64u << 20;

// Replaces `destination` with `contents` so that a reader sees either the old file or
// the whole new one, never a part: the bytes go to a temporary file beside it, are
// flushed to disk and renamed over it. An existing file keeps its permissions.
common::Status writeFileAtomically(const std::filesystem::path& destination,
                                   std::string_view contents);

// The whole content of a regular file of at most `largestBytes`; anything else (a FIFO, a
// device, a folder, a larger file) is refused without waiting or reading it.
common::Result<std::string> readRegularFile(const std::filesystem::path& file,
                                            std::uint64_t largestBytes = kLargestReadBytes);

}  // namespace media
