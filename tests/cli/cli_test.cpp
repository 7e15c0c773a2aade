#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cli_fixture.h"

// One smoke test per command. The rules behind each are checked by the model and media
// suites; these check that the command reaches them, saves what it should and says so.

namespace cli_testing {
namespace {

std::vector<json> jsonLines(const std::string& text) {
    std::vector<json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) lines.push_back(json::parse(line));
    return lines;
}

class CommandTest : public CliTest {
  protected:
    CliRun edit(const fs::path& project, const std::string& ops) {
        return cli("edit " + quoted(project) + " " + ops);
    }
    fs::path silentMovie =
        makeMedia("cli-silent-movie.mp4",
                  "-f lavfi -i testsrc2=size=320x240:rate=25 -t 2 -c:v libx264 -pix_fmt yuv420p");
};

TEST_F(CommandTest, ProbePrintsOneObjectPerFileAndAnErrorEntryForUnreadableOnes) {
    std::ofstream(dir / "notes.txt") << "not media at all\n";
    auto r = cli("probe " + quoted(movie) + " " + quoted(dir / "notes.txt") + " " + quoted(tone));
    EXPECT_EQ(r.status, 1);
    auto j = jsonLines(r.out);
    ASSERT_EQ(j.size(), 3u);
    EXPECT_NEAR(j[0]["fullDurationSeconds"].get<double>(), 2.0, 0.1);
    EXPECT_NEAR(j[0]["frameRate"].get<double>(), 25.0, 0.01);
    EXPECT_TRUE(j[0]["thumbnail"].is_object());
    for (const char* approximate : {"file", "fullDurationSeconds", "frameRate", "thumbnail"})
        j[0].erase(approximate);
    EXPECT_EQ(j[0], json({{"displayName", "cli-movie.mp4"},
                          {"hasVideo", true},
                          {"hasAudio", true},
                          {"naturalSize", {320, 240}},
                          {"rotationDegrees", 0},
                          {"fingerprint", "v:1635148593:320x240"}}));
    EXPECT_TRUE(j[1].contains("error"));
    EXPECT_FALSE(j[2]["hasVideo"].get<bool>());
    EXPECT_TRUE(j[2]["thumbnail"].is_null());
}

TEST_F(CommandTest, NewImportsInOrderAndNeverReplacesOrHalfWritesAProject) {
    auto project = newProject("p.vantrell", {movie, tone});
    auto j = info(project);
    ASSERT_EQ(j["clips"].size(), 2u);
    EXPECT_DOUBLE_EQ(j["clips"][1]["startOnTimeline"].get<double>(),
                     j["clips"][0]["fullDurationSeconds"].get<double>());

    auto again = cli("new " + quoted(project) + " " + quoted(movie));
    EXPECT_NE(again.status, 0);
    EXPECT_TRUE(has(again.err, "already exists")) << again.err;
    EXPECT_EQ(info(project)["clips"].size(), 2u);
    ASSERT_EQ(cli("new --force " + quoted(project) + " " + quoted(movie)).status, 0);
    EXPECT_EQ(info(project)["clips"].size(), 1u);

    auto r = cli("new " + quoted(dir / "q.vantrell") + " " + quoted(movie) + " " +
                 quoted(dir / "absent.mp4"));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.err, "Vantrell: failed to import absent.mp4: ")) << r.err;
    EXPECT_FALSE(fs::exists(dir / "q.vantrell"));
}

TEST_F(CommandTest, InfoShowsTheOpenedProjectWithItsPicturesAndPlaceholdersAndRelinks) {
    auto moved = copyIn(movie, "moved.mp4");
    auto lost = copyIn(tone, "lost.wav");
    auto project = newProject("p.vantrell", {moved, lost});
    fs::remove(lost);
    fs::create_directories(dir / "elsewhere");
    fs::rename(moved, dir / "elsewhere" / "renamed.mp4");

    auto j = info(project);
    ASSERT_EQ(j["clips"].size(), 2u);
    const auto& found = j["clips"][0];
    EXPECT_FALSE(found["isMissing"].get<bool>());
    EXPECT_EQ(found["displayName"], "renamed.mp4");
    EXPECT_EQ(found["filmstripFrames"], 3);
    EXPECT_EQ(found["waveformPeakCount"], 1600);
    EXPECT_EQ(found["waveform"], json({{"width", 1600}, {"height", 60}}));
    EXPECT_TRUE(j["clips"][1]["isMissing"].get<bool>());
    EXPECT_EQ(j["clips"][1]["fingerprint"], "missing");
    EXPECT_EQ(j["largestVideoSize"], json::array({320, 240}));
    EXPECT_EQ(j["suggestedFilename"], "renamed - trimmed");

    auto relinked = edit(project, testing_support::quote("relink 1 " + tone.string()));
    ASSERT_EQ(relinked.status, 0) << relinked.err;
    EXPECT_TRUE(relinked.out.starts_with("Undo Relink Clip\n")) << relinked.out;
    EXPECT_FALSE(info(project)["clips"][1]["isMissing"].get<bool>());

    std::ofstream(dir / "bogus.vantrell") << "{\"clips\": []}";
    auto refused = cli("info " + quoted(dir / "bogus.vantrell"));
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(has(refused.err, "bogus.vantrell") && has(refused.err, "version")) << refused.err;
}

TEST_F(CommandTest, EditChecksEveryOperationFirstThenAppliesThemInOrderPrintingEachStep) {
    auto project = newProject("p.vantrell", {movie, tone});
    const auto before = contentsOf(project);
    EXPECT_EQ(edit(project, "--dry-run 'playhead 1' split").status, 0);
    for (auto [ops, message] : {std::pair{"split frobnicate", "unknown operation 'frobnicate'"},
                                {"'playhead soon'", "'soon'"},
                                {"'playhead 1 2'", "should read 'playhead SECONDS'"},
                                {"'select-gap video -1'", "'-1' is not a valid N"},
                                {"'playhead 1' split 'select 3'", "there is no clip 3"}}) {
        auto r = edit(project, ops);
        EXPECT_EQ(r.status, 1) << ops;
        EXPECT_TRUE(has(r.err, message)) << r.err;
    }
    EXPECT_EQ(contentsOf(project), before) << "neither a dry run nor a refused edit saves";

    auto r = edit(project, "'playhead 1' split 'select 1' delete undo redo");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "Undo Split\nUndo Delete Clip\nUndid Delete Clip\nRedid Delete Clip\n"
              "2 clips · 0:03 · Re-encode (1 of 2 clips differ in format)\n");
    EXPECT_DOUBLE_EQ(info(project)["clips"][0]["outSeconds"].get<double>(), 1.0);

    std::ofstream(dir / "ops.txt") << "# take the sound apart\nselect 0\n\nlink   # here\n";
    ASSERT_EQ(cli("edit " + quoted(project) + " --ops " + quoted(dir / "ops.txt")).status, 0);
    EXPECT_EQ(info(project)["clips"].size(), 3u) << "the first clip's sound is taken apart";
}

TEST_F(CommandTest, EditCopiesAndPastesBetweenProjectsThroughAPasteboardFile) {
    auto source = newProject("source.vantrell", {movie, tone});
    auto target = newProject("target.vantrell", {tone});
    auto none = edit(source, "'select 0' copy");
    EXPECT_EQ(none.status, 1);
    EXPECT_TRUE(has(none.err, "--pasteboard")) << none.err;

    const std::string board = "--pasteboard " + quoted(dir / "clipboard") + " ";
    auto copied = edit(source, board + "'select 0' 'toggle 1' copy");
    ASSERT_EQ(copied.status, 0) << copied.err;
    EXPECT_TRUE(has(copied.out, "Copied 2 clips")) << copied.out;
    auto pasted = edit(target, board + "'playhead 5' paste");
    ASSERT_EQ(pasted.status, 0) << pasted.err;
    EXPECT_TRUE(has(pasted.out, "Undo Paste")) << pasted.out;
    auto from = info(source)["clips"];
    auto to = info(target)["clips"];
    ASSERT_EQ(to.size(), 3u);
    EXPECT_EQ(to[1]["url"], from[0]["url"]);
    EXPECT_DOUBLE_EQ(to[1]["startOnTimeline"].get<double>(), 5.0);
}

TEST_F(CommandTest, PeaksFilmstripAndWaveformDrawTheirFileAndRefuseAMissingStream) {
    auto r = cli("peaks " + quoted(tone));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(json::parse(r.out)["peaks"].size(), 1600u) << "one second asks for the floor";
    EXPECT_EQ(json::parse(cli("peaks --count 10 " + quoted(tone)).out)["peaks"].size(), 10u);
    for (const char* count : {"0", "2.5"})
        EXPECT_EQ(cli("peaks --count " + std::string(count) + " " + quoted(tone)).status, 1);

    r = cli("filmstrip " + quoted(movie) + " -o " + quoted(dir / "strip"));
    ASSERT_EQ(r.status, 0) << r.err;
    auto frames = jsonLines(r.out);
    // Two seconds give the fewest frames, at the middles of three equal stretches.
    ASSERT_EQ(frames.size(), 3u);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        fs::path file = frames[i]["file"].get<std::string>();
        EXPECT_EQ(file, dir / "strip" / ("frame-0" + std::to_string(i + 1) + ".png"));
        EXPECT_NEAR(frames[i]["seconds"].get<double>(), (2.0 * i + 1) / 3, 1.0 / 600);
        EXPECT_EQ(probeStreams(file), "png,120,90\n") << "fitted inside 160 x 90";
    }
    ASSERT_EQ(cli("waveform " + quoted(tone) + " -o " + quoted(dir / "wave.png")).status, 0);
    EXPECT_EQ(probeStreams(dir / "wave.png"), "png,1600,60\n");

    for (const auto& [command, says] :
         {std::pair{"peaks " + quoted(silentMovie), "no audio"},
          {"waveform " + quoted(silentMovie) + " -o " + quoted(dir / "none"), "no audio"},
          {"filmstrip " + quoted(tone) + " -o " + quoted(dir / "none"), "no video"}}) {
        r = cli(command);
        EXPECT_EQ(r.status, 1) << command;
        EXPECT_TRUE(has(r.err, says)) << r.err;
        EXPECT_FALSE(fs::exists(dir / "none"));
    }
}

TEST_F(CommandTest, ExportWritesTheFormatOfTheExtensionAndFrameThePictureAtATime) {
    auto project = newProject("p.vantrell", {movie, movie});
    auto r = cli("export " + quoted(project) + " -o " + quoted(dir / "joined.mp4"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.ends_with("Exported " + (dir / "joined.mp4").string() + "\n")) << r.out;
    EXPECT_EQ(probeStreams(dir / "joined.mp4"), "h264,320,240\naac\n");
    ASSERT_EQ(cli("export " + quoted(project) + " -o " + quoted(dir / "sound.wav")).status, 0);
    EXPECT_EQ(probeStreams(dir / "sound.wav"), "pcm_s16le\n");
    // The re-encoding road tags its output in full; the copy keeps the untagged source's.
    ASSERT_EQ(cli("export " + quoted(project) + " --reencode -o " + quoted(dir / "re.mp4")).status,
              0);
    for (const auto& [file, space] :
         {std::pair{dir / "joined.mp4", "unknown\n"}, {dir / "re.mp4", "smpte170m\n"}})
        EXPECT_EQ(testing_support::ffprobe(
                      file, "-select_streams v:0 -show_entries stream=color_space -of csv=p=0"),
                  space);

    r = cli("frame " + quoted(project) + " --at 2.5 -o " + quoted(dir / "f.png"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(probeStreams(dir / "f.png"), "png,320,240\n");
    r = cli("frame " + quoted(project) + " --at 9 -o " + quoted(dir / "past.png"));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.err, "no picture")) << r.err;
}

TEST_F(CommandTest, EveryCommandExplainsItselfAndUnknownOnesFail) {
    for (const char* command :
         {"probe", "new", "info", "edit", "peaks", "filmstrip", "waveform", "export", "frame"}) {
        auto r = cli(std::string(command) + " --help");
        EXPECT_EQ(r.status, 0) << command;
        EXPECT_TRUE(has(r.out, "usage: vantrell-cli")) << command;
    }
    EXPECT_EQ(cli("frobnicate").status, 2);
}

}  // namespace
}  // namespace cli_testing
