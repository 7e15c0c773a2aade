#pragma once

#include <QString>
#include <filesystem>
#include <vector>

namespace app {

// The document and every folder above it, the document first and the root last.
std::vector<std::filesystem::path> ancestorPaths(const std::filesystem::path& document);

// How the path menu names one item: the file or folder name, or for the root the name of
// its volume, else "File System".
QString pathMenuDisplayName(const std::filesystem::path& item);

}  // namespace app
