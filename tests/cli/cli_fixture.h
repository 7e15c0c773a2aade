#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/media_fixtures.h"

namespace cli_testing {

using nlohmann::json;
using testing_support::contentsOf;
using testing_support::makeMedia;
namespace fs = std::filesystem;

struct CliRun {
    int status = -1;
    std::string out;
    std::string err;
};

// A path as one shell word.
inline std::string quoted(const fs::path& path) {
    return testing_support::quote(path.string());
}

bool has(const std::string& text, const std::string& part);

std::vector<json> jsonLines(const std::string& text);

// What the ffprobe tool sees in `file`: one line "codec,width,height" per stream (just
// "codec" for audio).
std::string probeStreams(const fs::path& file);

// A fresh folder per test and two small generated media files.
class CliTest : public ::testing::Test {
  protected:
    void SetUp() override;

    // Runs the built vantrell-cli with `args` (already shell-quoted where needed) in the test's
    // folder, after the shell words `prefix` ("timeout 60", a ulimit, ...) that set up how it runs.
    CliRun cli(const std::string& args, const std::string& prefix = "");
    // A new project of `files`, which must succeed.
    fs::path newProject(const std::string& name, const std::vector<fs::path>& files);
    fs::path copyIn(const fs::path& source, const std::string& name);
    json info(const fs::path& project);

    fs::path dir, movie, tone;
};

}  // namespace cli_testing
