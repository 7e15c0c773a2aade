#include <sys/stat.h>

#include <string>

#include "cli_under.h"
#include "support/random_bytes.h"

namespace cli_testing {
namespace {

using testing_support::randomBytes;

// A run of vantrell-cli that a file must not keep waiting: it is stopped after a minute,
// which shows as status 124.
CliRun cliWithin(const std::string& args, const fs::path& workDir) {
    return cliUnder("timeout 60", args, workDir);
}

// A project of one clip whose file is then put out of reach.
class BlockingFileTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        media = copyIn(movie, "movie.mp4");
        project = dir / "p.vantrell";
        ASSERT_EQ(cli("new " + quote(project.string()) + " " + quote(media.string()), dir).status,
                  0);
    }

    void replaceMediaWithFifo() {
        fs::remove(media);
        ASSERT_EQ(::mkfifo(media.c_str(), 0600), 0);
    }

    fs::path media, project;
};

TEST_F(BlockingFileTest, RandomBytesNamedAsSoundFailToImport) {
    const auto noise = dir / "r.mp3";
    std::ofstream(noise, std::ios::binary) << randomBytes(65536);
    auto made = cliWithin(
        "new " + quote((dir / "other.vantrell").string()) + " " + quote(noise.string()), dir);
    EXPECT_NE(made.status, 0);
    EXPECT_NE(made.err.find("Vantrell: failed to import r.mp3: "), std::string::npos) << made.err;
}

TEST_F(BlockingFileTest, AFileReplacedByGarbageIsAPlaceholderOnReopening) {
    // Text, not random bytes: enough random bytes hold MP3 frame headers that really decode.
    std::ofstream out(media, std::ios::binary | std::ios::trunc);
    for (int i = 0; i < 8000; ++i) out << "no longer a movie\n";
    out.close();
    auto shown = cliWithin("info --json " + quote(project.string()), dir);
    ASSERT_EQ(shown.status, 0) << shown.err;
    EXPECT_TRUE(json::parse(shown.out)["clips"][0]["isMissing"]);
}

TEST_F(BlockingFileTest, AFifoIsRefusedAtOnceOnEveryRoad) {
    const auto fifo = dir / "x.mp4";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const auto other = dir / "other.vantrell";
    auto imported = cliWithin("new " + quote(other.string()) + " " + quote(fifo.string()), dir);
    ASSERT_NE(imported.status, 124) << "import waits";
    EXPECT_NE(imported.err.find("is a FIFO, not a regular file"), std::string::npos)
        << imported.err;
    ASSERT_EQ(cli("new " + quote(other.string()) + " " + quote(tone.string()), dir).status, 0);

    const auto clipboard = dir / "clipboard";
    ASSERT_EQ(cliWithin("edit " + quote(project.string()) + " --pasteboard " +
                            quote(clipboard.string()) + " 'select 0' copy",
                        dir)
                  .status,
              0);
    replaceMediaWithFifo();
    auto hydrated = cliWithin("info --json " + quote(project.string()), dir);
    ASSERT_NE(hydrated.status, 124) << "hydration waits";
    EXPECT_TRUE(json::parse(hydrated.out)["clips"][0]["isMissing"]);

    auto pasted = cliWithin(
        "edit " + quote(other.string()) + " --pasteboard " + quote(clipboard.string()) + " paste",
        dir);
    ASSERT_NE(pasted.status, 124) << "paste waits";
    EXPECT_EQ(info(other)["clips"].size(), 1u) << "nothing pasted";

    auto relinked = cliWithin(
        "edit " + quote(project.string()) + " " + quote("relink 0 " + fifo.string()), dir);
    ASSERT_NE(relinked.status, 124) << "relinking waits";
    EXPECT_TRUE(info(project)["clips"][0]["isMissing"]);

    auto exported = cliWithin(
        "export " + quote(project.string()) + " -o " + quote((dir / "out.mp4").string()), dir);
    ASSERT_NE(exported.status, 124) << "export waits";
    EXPECT_FALSE(fs::exists(dir / "out.mp4"));
}

}  // namespace
}  // namespace cli_testing
