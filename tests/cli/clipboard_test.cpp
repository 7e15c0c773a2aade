#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "cli_fixture.h"

namespace cli_testing {
namespace {

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Two projects made from copies of the media, and a file that stands in for the clipboard.
class ClipboardTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        ownMovie = copyIn(movie, "movie.mp4");
        ownTone = copyIn(tone, "tone.wav");
        source = dir / "source.vantrell";
        target = dir / "target.vantrell";
        pasteboard = dir / "clipboard";
        ASSERT_EQ(cli("new " + quote(source.string()) + " " + quote(ownMovie.string()) + " " +
                          quote(ownTone.string()),
                      dir)
                      .status,
                  0);
        ASSERT_EQ(cli("new " + quote(target.string()) + " " + quote(ownTone.string()), dir).status,
                  0);
    }

    CliRun edit(const fs::path& project, const std::string& ops) {
        return cli("edit " + quote(project.string()) + " --pasteboard " +
                       quote(pasteboard.string()) + " " + ops,
                   dir);
    }

    fs::path ownMovie, ownTone, source, target, pasteboard;
};

TEST_F(ClipboardTest, ClipsCopiedInOneProjectPasteIntoAnotherAtItsPlayhead) {
    auto copied = edit(source, "'select 0' 'toggle 1' copy");
    ASSERT_EQ(copied.status, 0) << copied.err;
    EXPECT_NE(copied.out.find("Copied 2 clips"), std::string::npos) << copied.out;
    const std::string payload = slurp(pasteboard);
    EXPECT_EQ(payload.substr(0, payload.find('\n')), "com.corvane.vantrell.clip-payload");

    auto pasted = edit(target, "'playhead 5' paste");
    ASSERT_EQ(pasted.status, 0) << pasted.err;
    EXPECT_NE(pasted.out.find("Undo Paste"), std::string::npos) << pasted.out;
    EXPECT_EQ(slurp(pasteboard), payload) << "paste leaves the pasteboard alone";

    auto from = info(source);
    auto to = info(target);
    ASSERT_EQ(to["clips"].size(), 3u);
    const auto& movieCopy = to["clips"][1];
    const auto& toneCopy = to["clips"][2];
    EXPECT_EQ(movieCopy["url"], from["clips"][0]["url"]);
    EXPECT_EQ(toneCopy["url"], from["clips"][1]["url"]);
    EXPECT_NE(movieCopy["id"], from["clips"][0]["id"]);
    EXPECT_DOUBLE_EQ(movieCopy["startOnTimeline"].get<double>(), 5.0);
    EXPECT_DOUBLE_EQ(toneCopy["startOnTimeline"].get<double>(),
                     5.0 + from["clips"][1]["startOnTimeline"].get<double>());
    EXPECT_EQ(movieCopy["filmstripFrames"], 3);
}

TEST_F(ClipboardTest, HalvesPastedTogetherFormANewPair) {
    ASSERT_EQ(edit(source, "'select 0' link 'select 0' 'toggle 1' copy").status, 0);
    ASSERT_EQ(edit(target, "paste").status, 0);
    auto from = info(source);
    auto to = info(target);
    ASSERT_EQ(to["clips"].size(), 3u);
    const auto& video = to["clips"][1];
    const auto& audio = to["clips"][2];
    EXPECT_EQ(video["streamMask"], "videoOnly");
    EXPECT_EQ(audio["streamMask"], "audioOnly");
    EXPECT_EQ(video["linkState"], "unlinked");
    EXPECT_TRUE(video["linkGroupID"].is_string());
    EXPECT_EQ(video["linkGroupID"], audio["linkGroupID"]);
    EXPECT_NE(video["linkGroupID"], from["clips"][0]["linkGroupID"]);

    ASSERT_EQ(edit(source, "'select 1' copy").status, 0);
    ASSERT_EQ(edit(target, "paste").status, 0);
    auto lone = info(target)["clips"][3];
    EXPECT_EQ(lone["streamMask"], "audioOnly");
    EXPECT_TRUE(lone["linkGroupID"].is_null()) << "its partner was not pasted";
}

TEST_F(ClipboardTest, ARecordWhoseFileIsGoneIsSkippedAndAMovedOneFound) {
    ASSERT_EQ(edit(source, "'select 0' 'toggle 1' copy").status, 0);
    fs::remove(ownMovie);
    fs::create_directory(dir / "elsewhere");
    fs::rename(ownTone, dir / "elsewhere" / "tone.wav");

    auto pasted = edit(target, "paste");
    ASSERT_EQ(pasted.status, 0) << pasted.err;
    auto to = info(target);
    ASSERT_EQ(to["clips"].size(), 2u);
    EXPECT_EQ(to["clips"][1]["displayName"], "tone.wav");
    EXPECT_FALSE(to["clips"][1]["isMissing"].get<bool>());
}

TEST_F(ClipboardTest, WithoutClipsOnThePasteboardPasteDoesNothing) {
    const std::string before = slurp(target);
    std::ofstream(pasteboard) << "public.utf8-plain-text\nhello";
    auto text = edit(target, "paste");
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_NE(text.out.find("Nothing pasted"), std::string::npos) << text.out;
    EXPECT_EQ(text.out.find("Undo"), std::string::npos) << "no history entry";

    std::ofstream(pasteboard) << "com.corvane.vantrell.clip-payload\n[{\"id\": 1}]";
    ASSERT_EQ(edit(target, "paste").status, 0);
    EXPECT_EQ(info(target)["clips"].size(), 1u);
    EXPECT_EQ(slurp(target), before) << "nothing to save but the same project";
}

TEST_F(ClipboardTest, CopyAndPasteNeedAWritablePasteboard) {
    const std::string before = slurp(source);
    auto none = cli("edit " + quote(source.string()) + " 'select 0' copy", dir);
    EXPECT_EQ(none.status, 1);
    EXPECT_NE(none.err.find("--pasteboard"), std::string::npos) << none.err;

    pasteboard = dir / "no-such-folder" / "clipboard";
    auto unwritable = edit(source, "'select 0' 'move 0 3' copy");
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_NE(unwritable.err.find(pasteboard.string()), std::string::npos) << unwritable.err;
    EXPECT_NE(unwritable.err.find("nothing was saved"), std::string::npos) << unwritable.err;
    EXPECT_EQ(slurp(source), before);
}

}  // namespace
}  // namespace cli_testing
