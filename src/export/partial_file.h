#pragma once

#include <filesystem>
#include <system_error>
#include <utility>

namespace exporting {

// Removes the file at `path` when it goes out of scope, unless told to keep it, so that a
// writer that fails or is cancelled part way leaves nothing behind.
class PartialFile {
  public:
    explicit PartialFile(std::filesystem::path path) : path_(std::move(path)) {}
    ~PartialFile() {
        if (keep_) return;
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;
    PartialFile(PartialFile&&) = delete;
    PartialFile& operator=(PartialFile&&) = delete;

    void keep() { keep_ = true; }

  private:
    std::filesystem::path path_;
    bool keep_ = false;
};

}  // namespace exporting
