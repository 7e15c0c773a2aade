#include <filesystem>
#include <fstream>
#include <string>

#include "cli_fixture.h"

namespace cli_testing {
namespace {

TEST_F(CliTest, ProbePrintsOneObjectPerFileAndAnErrorEntryForUnreadableOnes) {
    auto text = dir / "notes.txt";
    std::ofstream(text) << "not media at all\n";
    auto r = cli(
        "probe " + quote(movie.string()) + " " + quote(text.string()) + " " + quote(tone.string()),
        dir);
    EXPECT_EQ(r.status, 1);
    auto lines = jsonLines(r.out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0]["displayName"], "cli-movie.mp4");
    EXPECT_TRUE(lines[0]["hasVideo"].get<bool>());
    EXPECT_TRUE(lines[0]["hasAudio"].get<bool>());
    EXPECT_EQ(lines[0]["naturalSize"], json::array({320, 240}));
    EXPECT_NEAR(lines[0]["frameRate"].get<double>(), 25.0, 0.01);
    EXPECT_NEAR(lines[0]["fullDurationSeconds"].get<double>(), 2.0, 0.1);
    EXPECT_TRUE(lines[0]["thumbnail"].is_object());
    EXPECT_EQ(lines[0]["fingerprint"], "v:1635148593:320x240");
    EXPECT_TRUE(lines[1].contains("error"));
    EXPECT_FALSE(lines[2]["hasVideo"].get<bool>());
    EXPECT_TRUE(lines[2]["thumbnail"].is_null());
}

TEST_F(CliTest, NewImportsEndToEndAndInfoReadsItBack) {
    auto project = dir / "p.vantrell";
    auto r = cli(
        "new " + quote(project.string()) + " " + quote(movie.string()) + " " + quote(tone.string()),
        dir);
    ASSERT_EQ(r.status, 0) << r.err;
    auto info = cli("info --json " + quote(project.string()), dir);
    ASSERT_EQ(info.status, 0) << info.err;
    auto j = json::parse(info.out);
    ASSERT_EQ(j["clips"].size(), 2u);
    const auto& first = j["clips"][0];
    const auto& second = j["clips"][1];
    EXPECT_EQ(first["startOnTimeline"].get<double>(), 0.0);
    EXPECT_DOUBLE_EQ(second["startOnTimeline"].get<double>(),
                     first["fullDurationSeconds"].get<double>());
    // The selection is not saved, so a reopened project has none.
    EXPECT_TRUE(j["selectedClipID"].is_null());
    EXPECT_FALSE(first["isMissing"].get<bool>());
    EXPECT_TRUE(first["bookmark"].is_string());
    EXPECT_NEAR(
        j["totalDurationSeconds"].get<double>(),
        first["fullDurationSeconds"].get<double>() + second["fullDurationSeconds"].get<double>(),
        1e-9);
    for (const char* key : {"playheadGlobal", "zoomFactor", "cropInsets", "smallClipMode"})
        EXPECT_TRUE(j.contains(key)) << key;
    for (const char* key : {"id",
                            "url",
                            "displayName",
                            "hasVideo",
                            "hasAudio",
                            "fullDurationSeconds",
                            "frameRate",
                            "naturalSize",
                            "inSeconds",
                            "outSeconds",
                            "streamMask",
                            "linkGroupID",
                            "rateMultiplier",
                            "isReversed",
                            "reversedURL",
                            "forwardInSeconds",
                            "forwardOutSeconds",
                            "isMissing",
                            "startOnTimeline",
                            "fingerprint"})
        EXPECT_TRUE(first.contains(key)) << key;
}

TEST_F(CliTest, NewRefusesToReplaceAProjectWithoutForce) {
    auto project = dir / "p.vantrell";
    std::ofstream(project) << "keep me";
    auto r = cli("new " + quote(project.string()) + " " + quote(movie.string()), dir);
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("already exists"), std::string::npos);
    std::ifstream in(project);
    std::string kept;
    std::getline(in, kept);
    EXPECT_EQ(kept, "keep me");
    EXPECT_EQ(
        cli("new --force " + quote(project.string()) + " " + quote(movie.string()), dir).status, 0);
    EXPECT_EQ(json::parse(cli("info --json " + quote(project.string()), dir).out)["clips"].size(),
              1u);
}

TEST_F(CliTest, NewWritesNothingWhenAFileCannotBeImported) {
    auto project = dir / "p.vantrell";
    auto r = cli("new " + quote(project.string()) + " " + quote(movie.string()) + " " +
                     quote((dir / "absent.mp4").string()),
                 dir);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("Vantrell: failed to import absent.mp4: "), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(project));
}

TEST_F(CliTest, InfoKeepsALostFileAsAPlaceholderAndFindsAMovedOne) {
    auto lost = copyIn(tone, "lost.wav");
    auto moved = copyIn(movie, "moved.mp4");
    auto project = dir / "p.vantrell";
    ASSERT_EQ(cli("new " + quote(project.string()) + " " + quote(moved.string()) + " " +
                      quote(lost.string()),
                  dir)
                  .status,
              0);
    fs::remove(lost);
    fs::create_directories(dir / "elsewhere");
    fs::rename(moved, dir / "elsewhere" / "renamed.mp4");

    auto info = cli("info --json " + quote(project.string()), dir);
    ASSERT_EQ(info.status, 0) << info.err;
    auto j = json::parse(info.out);
    ASSERT_EQ(j["clips"].size(), 2u);
    EXPECT_FALSE(j["clips"][0]["isMissing"].get<bool>());
    EXPECT_EQ(j["clips"][0]["displayName"], "renamed.mp4");
    EXPECT_TRUE(j["clips"][1]["isMissing"].get<bool>());
    EXPECT_EQ(j["clips"][1]["fingerprint"], "missing");
    EXPECT_NE(info.err.find("Vantrell: missing media for lost.wav — preserving as placeholder"),
              std::string::npos)
        << info.err;
}

TEST_F(CliTest, InfoRejectsAFileThatIsNotAProject) {
    auto bogus = dir / "bogus.vantrell";
    std::ofstream(bogus) << "{\"clips\": []}";
    auto r = cli("info " + quote(bogus.string()), dir);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("bogus.vantrell"), std::string::npos);
    EXPECT_NE(r.err.find("version"), std::string::npos);
}

TEST_F(CliTest, EveryCommandExplainsItselfAndUnknownOnesFail) {
    for (const char* command : {"probe", "new", "info", "peaks", "filmstrip", "waveform"}) {
        auto r = cli(std::string(command) + " --help", dir);
        EXPECT_EQ(r.status, 0) << command;
        EXPECT_NE(r.out.find("usage: vantrell-cli"), std::string::npos) << command;
    }
    EXPECT_EQ(cli("frobnicate", dir).status, 2);
}

}  // namespace
}  // namespace cli_testing
