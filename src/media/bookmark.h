#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "model/snapshot.h"

namespace media {

// A durable reference to a file: where it was and what it was (device, inode, size,
// modification time), stored as opaque bytes in the project file.
struct FileIdentity {
    std::filesystem::path path;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modifiedNanoseconds = 0;
    friend auto operator<=>(const FileIdentity&, const FileIdentity&) = default;
};

// What `file` is now, following symbolic links; none unless it is a regular file that can
// be examined.
std::optional<FileIdentity> fileIdentity(const std::filesystem::path& file);

// Answers none when the file can't be examined.
std::optional<model::Bytes> makeBookmark(const std::filesystem::path& file);

std::optional<FileIdentity> decodeBookmark(const model::Bytes& bookmark);

// Finds the file again: at its old path if the file there is the same one, else by a
// bounded search of its old folder, that folder's parent and `projectFolder` (each with
// their direct subfolders) for the same device, inode, size and modification time, or
// failing that for the same name, size and modification time. Answers none when nothing
// matches.
std::optional<std::filesystem::path> resolveBookmark(
    const model::Bytes& bookmark, const std::optional<std::filesystem::path>& projectFolder);

}  // namespace media
