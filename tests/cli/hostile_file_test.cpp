#include <sys/stat.h>

#include <string>

#include "cli_fixture.h"

// Files that are not what a command expects, and disks that fill up: the command must say so
// promptly and leave every file as it was.

namespace cli_testing {
namespace {

class HostileFileTest : public CliTest {
  protected:
    // A run that a file must not keep waiting: stopped after a minute, it shows status 124.
    CliRun cliWithin(const std::string& args) { return cli(args, "timeout 60"); }

    // A run under a file-size limit of `blocks` × 512 bytes (the unit of the shell's ulimit),
    // as a full disk would stop it, with its temporary files in `temporary`.
    CliRun cliLimited(int blocks, const std::string& args) {
        return cli(args, "ulimit -f " + std::to_string(blocks) + " && TMPDIR=" + quoted(temporary) +
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
    auto shown = cliWithin("info --json " + quoted(project));
    ASSERT_EQ(shown.status, 0) << shown.err;
    EXPECT_TRUE(json::parse(shown.out)["clips"][0]["isMissing"]);

    const auto fifo = dir / "x.mp4";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    auto imported = cliWithin("new " + quoted(dir / "other.vantrell") + " " + quoted(fifo));
    ASSERT_NE(imported.status, 124) << "import waits";
    EXPECT_TRUE(has(imported.err, "is a FIFO, not a regular file")) << imported.err;

    fs::remove(media);
    ASSERT_EQ(::mkfifo(media.c_str(), 0600), 0);
    auto hydrated = cliWithin("info --json " + quoted(project));
    ASSERT_NE(hydrated.status, 124) << "opening the project waits";
    EXPECT_TRUE(json::parse(hydrated.out)["clips"][0]["isMissing"]);
    auto exported = cliWithin("export " + quoted(project) + " -o " + quoted(dir / "out.mp4"));
    ASSERT_NE(exported.status, 124) << "export waits";
    EXPECT_FALSE(fs::exists(dir / "out.mp4"));
}

TEST_F(HostileFileTest, AFailedExportOrSaveLeavesEveryFileAsItWas) {
    fs::create_directory(temporary);
    fs::create_directory(dir / "out");
    project = newProject("both.vantrell", {movie, tone});
    const auto destination = dir / "out" / "cut.mp4";
    std::ofstream(destination) << "an older export";
    auto r = cliLimited(64, "export " + quoted(project) + " -o " + quoted(destination));
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(has(r.err, "File too large")) << r.err;
    EXPECT_EQ(contentsOf(destination), "an older export");
    EXPECT_TRUE(fs::is_empty(temporary)) << "the partial export is removed";
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / "out"), fs::directory_iterator()), 1);

    const std::string before = contentsOf(project);
    r = cliLimited(1, "edit " + quoted(project) + " 'playhead 1.5'");
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(has(r.err, "File too large")) << r.err;
    EXPECT_EQ(contentsOf(project), before);
    for (const auto& entry : fs::directory_iterator(dir))
        EXPECT_FALSE(has(entry.path().filename().string(), ".both.vantrell.tmp"))
            << "a partial save is left: " << entry.path();

    // A source gone since the project was saved: the export fails and says so.
    fs::remove(media);
    r = cli("export " + quoted(dir / "p.vantrell") + " -o " + quoted(destination));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.out, "Failed: ")) << r.out;
    EXPECT_EQ(contentsOf(destination), "an older export");
}

}  // namespace
}  // namespace cli_testing
