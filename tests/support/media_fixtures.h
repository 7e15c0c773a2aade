#pragma once

#include <filesystem>
#include <string>

namespace testing_support {

// A folder for generated media, shared by all tests of a run and made on first use.
std::filesystem::path scratchDir();

// Runs a shell command; answers its exit status.
int run(const std::string& command);

// Makes `name` in the scratch folder with the ffmpeg tool's `args`, once per run; fails the
// calling test if the tool fails.
std::filesystem::path makeMedia(const std::string& name, const std::string& args);

// makeMedia from `source`: the ffmpeg tool reads it and applies `args`.
std::filesystem::path makeMediaFrom(const std::string& name, const std::filesystem::path& source,
                                    const std::string& args);

// A copy of `source` that players turn `clockwiseDegrees` for display, as a phone marks it.
std::filesystem::path turnedCopy(const std::string& name, const std::filesystem::path& source,
                                 int clockwiseDegrees);

// Writes `contents` to `name` in the scratch folder, once per run.
std::filesystem::path makeFile(const std::string& name, const std::string& contents);

// The whole contents of a file; empty if it can't be read.
std::string contentsOf(const std::filesystem::path& file);

std::string outputOf(const std::string& command);

std::string ffprobe(const std::filesystem::path& file, const std::string& args);

// A fresh empty folder under the scratch folder, for one test's outputs.
std::filesystem::path freshDir(std::string name);

std::string quote(const std::string& text);

}  // namespace testing_support
