#pragma once

#include <filesystem>
#include <vector>

namespace app {

// Files handed to the program, sorted by their lower-cased extension: "vantrell" is a
// project, anything else is media. Order is kept within each list.
struct OpenedFiles {
    std::vector<std::filesystem::path> projects;
    std::vector<std::filesystem::path> media;
};

OpenedFiles sortOpenedFiles(const std::vector<std::filesystem::path>& files);

}  // namespace app
