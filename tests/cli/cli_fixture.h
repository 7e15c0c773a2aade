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

inline bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// What the ffprobe tool sees in `file`: one line "codec,width,height" per stream (just
// "codec" for audio).
inline std::string probeStreams(const fs::path& file) {
    return testing_support::ffprobe(file,
                                    "-show_entries stream=codec_name,width,height -of csv=p=0");
}

// A fresh folder per test and two small generated media files.
class CliTest : public ::testing::Test {
  protected:
    // Runs the built vantrell-cli with `args` (already shell-quoted where needed) in the test's
    // folder, after the shell words `prefix` ("timeout 60", a ulimit, ...) that set up how it runs.
    CliRun cli(const std::string& args, const std::string& prefix = "") {
        CliRun r;
        r.status =
            testing_support::run("(" + prefix + " " + VANTRELL_CLI + " " + args + ") >" +
                                 quoted(dir / "stdout.txt") + " 2>" + quoted(dir / "stderr.txt"));
        r.out = contentsOf(dir / "stdout.txt");
        r.err = contentsOf(dir / "stderr.txt");
        return r;
    }
    // A new project of `files`, which must succeed.
    fs::path newProject(const std::string& name, const std::vector<fs::path>& files) {
        std::string args = "new " + quoted(dir / name);
        for (const auto& f : files) args += " " + quoted(f);
        const auto r = cli(args);
        EXPECT_EQ(r.status, 0) << r.err;
        return dir / name;
    }
    fs::path copyIn(const fs::path& source, const std::string& name) {
        fs::copy_file(source, dir / name, fs::copy_options::overwrite_existing);
        return dir / name;
    }
    json info(const fs::path& project) {
        const auto r = cli("info --json " + quoted(project));
        EXPECT_EQ(r.status, 0) << r.err;
        return json::parse(r.out);
    }

    fs::path dir =
        testing_support::freshDir(::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::path movie = makeMedia("cli-movie.mp4",
                               "-f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i "
                               "sine=frequency=440:sample_rate=48000 -t 2 -c:v libx264 -pix_fmt "
                               "yuv420p -c:a aac -shortest");
    fs::path tone =
        makeMedia("cli-tone.wav", "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 1");
};

}  // namespace cli_testing
