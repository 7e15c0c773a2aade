#include "app/opened_files.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace app {

OpenedFiles sortOpenedFiles(const std::vector<std::filesystem::path>& files) {
    OpenedFiles sorted;
    for (const auto& file : files) {
        std::string ext = file.extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        (ext == ".vantrell" ? sorted.projects : sorted.media).push_back(file);
    }
    return sorted;
}

}  // namespace app
