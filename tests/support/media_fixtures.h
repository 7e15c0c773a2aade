#pragma once

#include <filesystem>
#include <string>

namespace testing_support {

// A folder for generated media, shared by all tests of a run and made on first use.
std::filesystem::path scratchDir();

// Runs a shell command; answers its exit status.
int run(const std::string& command);

// Runs the ffmpeg tool with `args` (after "-y -loglevel error") to make `name` in the
// scratch folder, unless a file of that name is already there from an earlier test of
// the same run. Fails the calling test (ADD_FAILURE) if ffmpeg fails.
std::filesystem::path makeMedia(const std::string& name, const std::string& args);

// A fresh empty folder under the scratch folder, for one test's outputs.
std::filesystem::path freshDir(const std::string& name);

// Shell-quotes a path or word.
std::string quote(const std::string& text);

}  // namespace testing_support
