#pragma once

#include <filesystem>

namespace app {

// Shows a file selected in the desktop's file manager through the
// org.freedesktop.FileManager1 service, or, where there is none, opens its folder.
void revealInFileManager(const std::filesystem::path& file);

}  // namespace app
