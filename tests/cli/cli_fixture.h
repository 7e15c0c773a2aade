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
using testing_support::freshDir;
using testing_support::makeMedia;
using testing_support::quote;
namespace fs = std::filesystem;

struct CliRun {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs the built vantrell-cli with `args` (already shell-quoted where needed).
CliRun cli(const std::string& args, const fs::path& workDir);

std::vector<json> jsonLines(const std::string& text);

// What the ffprobe tool sees in `file`: one line "codec,width,height" per stream (just
// "codec" for audio).
std::string probeStreams(const fs::path& file);

// A fresh folder per test and two small generated media files.
class CliTest : public ::testing::Test {
  protected:
    void SetUp() override;
    fs::path copyIn(const fs::path& source, const std::string& name);
    json info(const fs::path& project);

    fs::path dir, movie, tone;
};

}  // namespace cli_testing
