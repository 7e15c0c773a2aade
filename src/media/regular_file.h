#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "common/result.h"

namespace media {

// A regular file held open for reading. Opening never blocks: a FIFO, a device, a folder
// or a socket is refused at once, as is a path holding a NUL (which no file name can).
// Move-only; closes the file when it goes.
class RegularFile {
  public:
    static common::Result<RegularFile> open(const std::filesystem::path& path);

    RegularFile(RegularFile&& other) noexcept;
    RegularFile& operator=(RegularFile&& other) noexcept;
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;
    ~RegularFile();

    int fd() const { return fd_; }
    std::uint64_t sizeBytes() const { return sizeBytes_; }
    // A path that opens this very file again, whatever its own path names by then.
    std::string reopenPath() const;

  private:
    RegularFile(int fd, std::uint64_t sizeBytes) : fd_(fd), sizeBytes_(sizeBytes) {}

    int fd_ = -1;
    std::uint64_t sizeBytes_ = 0;
};

// `path` fit for a message: a NUL shows as %00 instead of cutting the text short.
std::string displayPath(const std::filesystem::path& path);

}  // namespace media
