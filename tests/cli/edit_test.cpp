#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "cli_fixture.h"

namespace cli_testing {
namespace {

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

class EditTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        project = dir / "p.vantrell";
        auto r = cli("new " + quote(project.string()) + " " + quote(movie.string()) + " " +
                         quote(tone.string()),
                     dir);
        ASSERT_EQ(r.status, 0) << r.err;
    }

    CliRun edit(const std::string& ops) {
        return cli("edit " + quote(project.string()) + " " + ops, dir);
    }

    fs::path project;
};

TEST_F(EditTest, SplitDeleteUndoAndRedoPrintTheirHistoryNamesAndSave) {
    auto r = edit("'playhead 1' split 'select 1' delete undo redo");
    ASSERT_EQ(r.status, 0) << r.err;
    auto out = lines(r.out);
    ASSERT_EQ(out.size(), 5u) << r.out;
    EXPECT_EQ(out[0], "Undo Split");
    EXPECT_EQ(out[1], "Undo Delete Clip");
    EXPECT_EQ(out[2], "Undid Delete Clip");
    EXPECT_EQ(out[3], "Redid Delete Clip");
    EXPECT_EQ(out[4], "2 clips · 0:03 · Re-encode (1 of 2 clips differ in format)");

    auto j = info(project);
    ASSERT_EQ(j["clips"].size(), 2u);
    EXPECT_DOUBLE_EQ(j["clips"][0]["outSeconds"].get<double>(), 1.0);
    EXPECT_EQ(j["clips"][1]["displayName"], "cli-tone.wav");
}

TEST_F(EditTest, SplitHalvesMeetAtThePlayheadAndShareTheSource) {
    ASSERT_EQ(edit("'playhead 0.8' split").status, 0);
    auto j = info(project);
    ASSERT_EQ(j["clips"].size(), 3u);
    const auto& left = j["clips"][0];
    const auto& right = j["clips"][1];
    EXPECT_DOUBLE_EQ(left["outSeconds"].get<double>(), 0.8);
    EXPECT_DOUBLE_EQ(right["inSeconds"].get<double>(), 0.8);
    EXPECT_DOUBLE_EQ(right["startOnTimeline"].get<double>(), 0.8);
    EXPECT_NE(left["id"], right["id"]);
    EXPECT_EQ(left["url"], right["url"]);
}

TEST_F(EditTest, DragsAreOneHistoryStepEach) {
    auto r = edit("'trim-in 0 0.5' 'trim-out 0 1.5' 'move 1 4'");
    ASSERT_EQ(r.status, 0) << r.err;
    auto out = lines(r.out);
    ASSERT_GE(out.size(), 3u);
    EXPECT_EQ(out[0], "Undo Trim In");
    EXPECT_EQ(out[1], "Undo Trim Out");
    EXPECT_EQ(out[2], "Undo Move Clip");
    auto j = info(project);
    EXPECT_DOUBLE_EQ(j["clips"][0]["inSeconds"].get<double>(), 0.5);
    EXPECT_DOUBLE_EQ(j["clips"][0]["startOnTimeline"].get<double>(), 0.5);
    EXPECT_DOUBLE_EQ(j["clips"][0]["outSeconds"].get<double>(), 1.5);
    EXPECT_DOUBLE_EQ(j["clips"][1]["startOnTimeline"].get<double>(), 4.0);
    ASSERT_EQ(j["gaps"]["audio"].size(), 1u);
    EXPECT_DOUBLE_EQ(j["gaps"]["audio"][0][0].get<double>(), 1.5);
    EXPECT_DOUBLE_EQ(j["gaps"]["audio"][0][1].get<double>(), 4.0);
}

TEST_F(EditTest, LinkTakesPictureAndSoundApartAndTogetherAgain) {
    ASSERT_EQ(edit("'select 0' link").status, 0);
    auto apart = info(project);
    ASSERT_EQ(apart["clips"].size(), 3u);
    EXPECT_EQ(apart["clips"][0]["streamMask"], "videoOnly");
    EXPECT_EQ(apart["clips"][1]["streamMask"], "audioOnly");
    EXPECT_EQ(apart["clips"][0]["linkState"], "unlinked");
    EXPECT_EQ(apart["clips"][0]["linkGroupID"], apart["clips"][1]["linkGroupID"]);
    EXPECT_TRUE(apart["hasOverlap"].get<bool>());

    ASSERT_EQ(edit("'select 1' link").status, 0);
    auto together = info(project);
    ASSERT_EQ(together["clips"].size(), 2u);
    EXPECT_EQ(together["clips"][0]["streamMask"], "both");
    EXPECT_EQ(together["clips"][0]["linkState"], "linked");
    EXPECT_EQ(together["clips"][0]["id"], apart["clips"][0]["id"]);
}

TEST_F(EditTest, RetimeAndCropShowInTheSlicesAndTheStatusLine) {
    auto r = edit("'select 0' 'retime 2' 'crop 0.1 0 0 0'");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out).back(), "2 clips · 0:03 · Re-encode (cropped)");
    auto j = info(project);
    EXPECT_DOUBLE_EQ(j["clips"][0]["rateMultiplier"].get<double>(), 2.0);
    EXPECT_TRUE(j["hasCrop"].get<bool>());
    ASSERT_EQ(j["slices"].size(), 1u);
    EXPECT_EQ(j["slices"][0]["rate"].get<double>(), 2.0);
    EXPECT_EQ(j["slices"][0]["assetEnd"].get<int>(), 1200);
}

TEST_F(EditTest, OperationsFromAFileSkipCommentsAndBlankLines) {
    auto ops = dir / "ops.txt";
    std::ofstream(ops) << "# a comment\nplayhead 0.5\n\nsplit   # cut here\nundo\n";
    auto r = cli("edit " + quote(project.string()) + " --ops " + quote(ops.string()), dir);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out)[0], "Undo Split");
    EXPECT_EQ(info(project)["clips"].size(), 2u);
}

TEST_F(EditTest, DryRunAndBadOperationsLeaveTheFileAlone) {
    auto before = slurp(project);
    EXPECT_EQ(edit("--dry-run 'playhead 1' split").status, 0);
    EXPECT_EQ(slurp(project), before);

    auto unknown = edit("split frobnicate");
    EXPECT_EQ(unknown.status, 1);
    EXPECT_NE(unknown.err.find("unknown operation 'frobnicate'"), std::string::npos);
    auto badNumber = edit("'playhead soon'");
    EXPECT_EQ(badNumber.status, 1);
    EXPECT_NE(badNumber.err.find("'soon'"), std::string::npos);
    auto noClip = edit("'playhead 1' split 'select 7'");
    EXPECT_EQ(noClip.status, 1);
    EXPECT_NE(noClip.err.find("there is no clip 7"), std::string::npos);
    EXPECT_EQ(slurp(project), before);
}

TEST_F(EditTest, RelinkTurnsAPlaceholderIntoALiveClip) {
    auto lost = copyIn(tone, "lost.wav");
    auto p2 = dir / "lost.vantrell";
    ASSERT_EQ(cli("new " + quote(p2.string()) + " " + quote(lost.string()), dir).status, 0);
    fs::remove(lost);
    ASSERT_TRUE(info(p2)["clips"][0]["isMissing"].get<bool>());

    auto r = cli("edit " + quote(p2.string()) + " " + quote("relink 0 " + tone.string()), dir);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out)[0], "Undo Relink Clip");
    auto j = info(p2);
    EXPECT_FALSE(j["clips"][0]["isMissing"].get<bool>());
    EXPECT_EQ(j["clips"][0]["displayName"], "cli-tone.wav");
}

TEST_F(EditTest, InfoAnswersTheTimelineQueries) {
    auto j = info(project);
    for (const char* key :
         {"gaps", "hasOverlap", "hasVideoContent", "videoAtPlayhead", "videoNaturalSize",
          "naturalSizeAtPlayhead", "aspectAtPlayhead", "frameRateAtPlayhead", "largestVideoSize",
          "hasCrop", "snapTargets", "passthroughEligible", "reEncodeReason", "statusLine",
          "availableFormats", "suggestedFilename", "slices", "audioLanes"})
        EXPECT_TRUE(j.contains(key)) << key;
    EXPECT_EQ(j["largestVideoSize"], json::array({320, 240}));
    EXPECT_NEAR(j["aspectAtPlayhead"].get<double>(), 320.0 / 240.0, 1e-9);
    EXPECT_EQ(j["availableFormats"], json::array({"mp4", "mov"}));
    EXPECT_EQ(j["suggestedFilename"], "cli-movie - trimmed");
    EXPECT_EQ(j["audioLanes"].size(), 1u);
    EXPECT_EQ(j["audioLanes"][0].size(), 2u);
}

}  // namespace
}  // namespace cli_testing
