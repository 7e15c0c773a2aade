#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/media_fixtures.h"

// One smoke test per command, then hostile files and full disks; the rules are the model's.

namespace {

using nlohmann::json;
using testing_support::contentsOf;
using testing_support::makeMedia;
using testing_support::quote;
namespace fs = std::filesystem;

struct CliRun {
    int status = -1;
    std::string out;
    std::string err;
};

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// One line "codec,width,height" per stream of `file`, as ffprobe sees it.
std::string probeStreams(const fs::path& file) {
    return testing_support::ffprobe(file,
                                    "-show_entries stream=codec_name,width,height -of csv=p=0");
}

// A fresh folder per test and two small generated media files.
class CliTest : public ::testing::Test {
  protected:
    // `prefix`: shell words that set up how it runs ("timeout 60", a ulimit).
    CliRun cli(const std::string& args, const std::string& prefix = "") {
        const int status =
            testing_support::run("(" + prefix + " " + VANTRELL_CLI + " " + args + ") >" +
                                 quote(dir / "stdout.txt") + " 2>" + quote(dir / "stderr.txt"));
        return {status, contentsOf(dir / "stdout.txt"), contentsOf(dir / "stderr.txt")};
    }
    // A new project of `files`, which must succeed.
    fs::path newProject(const std::string& name, const std::vector<fs::path>& files) {
        std::string args = "new " + quote(dir / name);
        for (const auto& f : files) args += " " + quote(f);
        const auto r = cli(args);
        EXPECT_EQ(r.status, 0) << r.err;
        return dir / name;
    }
    fs::path copyIn(const fs::path& source, const std::string& name) {
        fs::copy_file(source, dir / name, fs::copy_options::overwrite_existing);
        return dir / name;
    }
    CliRun edit(const fs::path& project, const std::string& ops) {
        return cli("edit " + quote(project) + " " + ops);
    }
    json info(const fs::path& project) {
        const auto r = cli("info --json " + quote(project));
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

std::vector<json> jsonLines(const std::string& text) {
    std::vector<json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) lines.push_back(json::parse(line));
    return lines;
}

TEST_F(CliTest, ProbePrintsOneObjectPerFileAndAnErrorEntryForUnreadableOnes) {
    std::ofstream(dir / "notes.txt") << "not media at all\n";
    auto r = cli("probe " + quote(movie) + " " + quote(dir / "notes.txt") + " " + quote(tone));
    EXPECT_EQ(r.status, 1);
    auto j = jsonLines(r.out);
    ASSERT_EQ(j.size(), 3u);
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

TEST_F(CliTest, NewImportsEveryFileAndNeverReplacesOrHalfWritesAProject) {
    auto project = newProject("p.vantrell", {movie, tone});
    auto again = cli("new " + quote(project) + " " + quote(movie));
    EXPECT_NE(again.status, 0);
    EXPECT_TRUE(has(again.err, "already exists")) << again.err;
    EXPECT_EQ(info(project)["clips"].size(), 2u);
    ASSERT_EQ(cli("new --force " + quote(project) + " " + quote(movie)).status, 0);
    EXPECT_EQ(info(project)["clips"].size(), 1u);

    auto r = cli("new " + quote(dir / "q.vantrell") + " " + quote(movie) + " " +
                 quote(dir / "absent.mp4"));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.err, "Vantrell: failed to import absent.mp4: ")) << r.err;
    EXPECT_FALSE(fs::exists(dir / "q.vantrell"));
}

TEST_F(CliTest, InfoShowsTheOpenedProjectWithItsPicturesAndPlaceholdersAndRelinks) {
    auto moved = copyIn(movie, "moved.mp4");
    auto lost = copyIn(tone, "lost.wav");
    auto project = newProject("p.vantrell", {moved, lost});
    fs::remove(lost);
    fs::create_directories(dir / "elsewhere");
    fs::rename(moved, dir / "elsewhere" / "renamed.mp4");

    auto j = info(project);
    ASSERT_EQ(j["clips"].size(), 2u);
    EXPECT_FALSE(j["clips"][0]["isMissing"].get<bool>());
    EXPECT_EQ(j["clips"][0]["displayName"], "renamed.mp4");
    EXPECT_TRUE(j["clips"][1]["isMissing"].get<bool>());
    EXPECT_EQ(j["clips"][1]["fingerprint"], "missing");
    EXPECT_EQ(j["largestVideoSize"], json::array({320, 240}));
    EXPECT_EQ(j["suggestedFilename"], "renamed - trimmed");

    auto relinked = edit(project, testing_support::quote("relink 1 " + tone.string()));
    ASSERT_EQ(relinked.status, 0) << relinked.err;
    EXPECT_TRUE(relinked.out.starts_with("Undo Relink Clip\n")) << relinked.out;
    EXPECT_FALSE(info(project)["clips"][1]["isMissing"].get<bool>());

    std::ofstream(dir / "bogus.vantrell") << "{\"clips\": []}";
    auto refused = cli("info " + quote(dir / "bogus.vantrell"));
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(has(refused.err, "bogus.vantrell") && has(refused.err, "version")) << refused.err;
}

TEST_F(CliTest, EditChecksEveryOperationFirstThenAppliesThemInOrderPrintingEachStep) {
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
    ASSERT_EQ(cli("edit " + quote(project) + " --ops " + quote(dir / "ops.txt")).status, 0);
    EXPECT_EQ(info(project)["clips"].size(), 3u) << "the first clip's sound is taken apart";
}

TEST_F(CliTest, EditCopiesAndPastesBetweenProjectsThroughAPasteboardFile) {
    auto source = newProject("source.vantrell", {movie, tone});
    auto target = newProject("target.vantrell", {tone});
    const std::string board = "--pasteboard " + quote(dir / "clipboard") + " ";
    auto copied = edit(source, board + "'select 0' 'toggle 1' copy");
    EXPECT_TRUE(has(copied.out, "Copied 2 clips")) << copied.err;
    ASSERT_EQ(edit(target, board + "'playhead 5' paste").status, 0);
    EXPECT_EQ(info(target)["clips"].size(), 3u);
}

TEST_F(CliTest, PeaksFilmstripAndWaveformDrawTheirFileAndRefuseAMissingStream) {
    const auto silentMovie =
        makeMedia("cli-silent-movie.mp4",
                  "-f lavfi -i testsrc2=size=320x240:rate=25 -t 2 -c:v libx264 -pix_fmt yuv420p");
    auto r = cli("peaks " + quote(tone));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(json::parse(r.out)["peaks"].size(), 1600u) << "one second asks for the floor";
    EXPECT_EQ(json::parse(cli("peaks --count 10 " + quote(tone)).out)["peaks"].size(), 10u);
    for (const char* count : {"0", "2.5"})
        EXPECT_EQ(cli("peaks --count " + std::string(count) + " " + quote(tone)).status, 1);

    r = cli("filmstrip " + quote(movie) + " -o " + quote(dir / "strip"));
    ASSERT_EQ(r.status, 0) << r.err;
    auto frames = jsonLines(r.out);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[2]["file"], (dir / "strip" / "frame-03.png").string());
    EXPECT_EQ(probeStreams(dir / "strip" / "frame-03.png"), "png,120,90\n");
    ASSERT_EQ(cli("waveform " + quote(tone) + " -o " + quote(dir / "wave.png")).status, 0);
    EXPECT_EQ(probeStreams(dir / "wave.png"), "png,1600,60\n");

    for (const auto& [command, says] :
         {std::pair{"peaks " + quote(silentMovie), "no audio"},
          {"waveform " + quote(silentMovie) + " -o " + quote(dir / "none"), "no audio"},
          {"filmstrip " + quote(tone) + " -o " + quote(dir / "none"), "no video"}}) {
        r = cli(command);
        EXPECT_EQ(r.status, 1) << command;
        EXPECT_TRUE(has(r.err, says)) << r.err;
        EXPECT_FALSE(fs::exists(dir / "none"));
    }
}

TEST_F(CliTest, ExportWritesTheFormatOfTheExtensionAndFrameThePictureAtATime) {
    auto project = newProject("p.vantrell", {movie, movie});
    auto r = cli("export " + quote(project) + " -o " + quote(dir / "joined.mp4"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.ends_with("Exported " + (dir / "joined.mp4").string() + "\n")) << r.out;
    EXPECT_EQ(probeStreams(dir / "joined.mp4"), "h264,320,240\naac\n");
    ASSERT_EQ(cli("export " + quote(project) + " -o " + quote(dir / "sound.wav")).status, 0);
    EXPECT_EQ(probeStreams(dir / "sound.wav"), "pcm_s16le\n");
    // The re-encoding road tags its output's colours, which this source and a copy of it lack.
    ASSERT_EQ(cli("export " + quote(project) + " --reencode -o " + quote(dir / "re.mp4")).status,
              0);
    EXPECT_EQ(testing_support::ffprobe(dir / "re.mp4",
                                       "-select_streams v:0 -show_entries "
                                       "stream=color_space -of csv=p=0"),
              "smpte170m\n");

    r = cli("frame " + quote(project) + " --at 2.5 -o " + quote(dir / "f.png"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(probeStreams(dir / "f.png"), "png,320,240\n");
    r = cli("frame " + quote(project) + " --at 9 -o " + quote(dir / "past.png"));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.err, "no picture")) << r.err;
}

class HostileFileTest : public CliTest {
  protected:
    // Stopped after a minute, a run shows status 124.
    CliRun cliWithin(const std::string& args) { return cli(args, "timeout 60"); }

    // As a full disk would stop it: at `blocks` × 512 bytes, the unit of the shell's ulimit.
    CliRun cliLimited(int blocks, const std::string& args) {
        return cli(args, "ulimit -f " + std::to_string(blocks) + " && TMPDIR=" + quote(temporary) +
                             " exec");
    }

    fs::path media = copyIn(movie, "movie.mp4");
    fs::path project = newProject("p.vantrell", {media});
    fs::path temporary = dir / "tmp";
};

TEST_F(HostileFileTest, MediaThatBecameTextOrAFifoOpensAsAPlaceholderAtOnce) {
    {
        // Text, not random bytes: enough random bytes hold MP3 frame headers that really decode.
        std::ofstream out(media, std::ios::binary | std::ios::trunc);
        for (int i = 0; i < 8000; ++i) out << "no longer a movie\n";
    }
    auto shown = cliWithin("info --json " + quote(project));
    ASSERT_EQ(shown.status, 0) << shown.err;
    EXPECT_TRUE(json::parse(shown.out)["clips"][0]["isMissing"]);

    const auto fifo = dir / "x.mp4";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    auto imported = cliWithin("new " + quote(dir / "other.vantrell") + " " + quote(fifo));
    ASSERT_NE(imported.status, 124) << "import waits";
    EXPECT_TRUE(has(imported.err, "is a FIFO, not a regular file")) << imported.err;

    fs::remove(media);
    ASSERT_EQ(::mkfifo(media.c_str(), 0600), 0);
    auto hydrated = cliWithin("info --json " + quote(project));
    ASSERT_NE(hydrated.status, 124) << "opening the project waits";
    EXPECT_TRUE(json::parse(hydrated.out)["clips"][0]["isMissing"]);
    auto exported = cliWithin("export " + quote(project) + " -o " + quote(dir / "out.mp4"));
    ASSERT_NE(exported.status, 124) << "export waits";
    EXPECT_FALSE(fs::exists(dir / "out.mp4"));
}

TEST_F(HostileFileTest, AFailedExportOrSaveLeavesEveryFileAsItWas) {
    fs::create_directory(temporary);
    fs::create_directory(dir / "out");
    project = newProject("both.vantrell", {movie, tone});
    const auto destination = dir / "out" / "cut.mp4";
    std::ofstream(destination) << "an older export";
    auto r = cliLimited(64, "export " + quote(project) + " -o " + quote(destination));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.out, "Failed: ") && has(r.err, "File too large")) << r.out << r.err;
    EXPECT_EQ(contentsOf(destination), "an older export");
    EXPECT_TRUE(fs::is_empty(temporary)) << "the partial export is removed";
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / "out"), fs::directory_iterator()), 1);

    const std::string before = contentsOf(project);
    r = cliLimited(1, "edit " + quote(project) + " 'playhead 1.5'");
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(has(r.err, "File too large")) << r.err;
    EXPECT_EQ(contentsOf(project), before);
    for (const auto& entry : fs::directory_iterator(dir))
        EXPECT_FALSE(has(entry.path().filename().string(), ".both.vantrell.tmp"))
            << "a partial save is left: " << entry.path();
}

}  // namespace
