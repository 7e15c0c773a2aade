#include <filesystem>
#include <fstream>
#include <string>

#include "cli_fixture.h"

namespace cli_testing {
namespace {

class ExportTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        project = dir / "p.vantrell";
        ASSERT_EQ(cli("new " + quote(project.string()) + " " + quote(movie.string()) + " " +
                          quote(movie.string()),
                      dir)
                      .status,
                  0);
    }
    fs::path project;
};

TEST_F(ExportTest, CopiesAnEligibleProjectAndNamesTheOutcomeLast) {
    auto out = dir / "joined.mp4";
    auto r = cli("export " + quote(project.string()) + " -o " + quote(out.string()), dir);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.substr(r.out.rfind('\n', r.out.size() - 2) + 1),
              "Exported " + out.string() + "\n");
    EXPECT_NE(r.out.find("Preparing…"), std::string::npos);
    EXPECT_EQ(r.err.find("re-encoding"), std::string::npos) << "the copy should not refuse";
    EXPECT_EQ(probeStreams(out, dir), "h264,320,240\naac\n");
}

TEST_F(ExportTest, ReencodeOptionReencodesAProjectThatCouldBeCopied) {
    const auto copyOf = [&](const std::string& name, const std::string& option) {
        const auto out = dir / name;
        EXPECT_EQ(
            cli("export " + quote(project.string()) + option + " -o " + quote(out.string()), dir)
                .status,
            0);
        return testing_support::ffprobe(
            out, "-select_streams v:0 -show_entries stream=color_space -of csv=p=0");
    };
    // The re-encoding road tags its output in full; the copy keeps the untagged source's.
    EXPECT_EQ(copyOf("copied.mp4", ""), "unknown\n");
    EXPECT_EQ(copyOf("reencoded.mp4", " --reencode"), "smpte170m\n");
}

TEST_F(ExportTest, FormatFollowsTheExtensionUnlessGiven) {
    auto wav = dir / "sound.wav";
    ASSERT_EQ(cli("export " + quote(project.string()) + " -o " + quote(wav.string()), dir).status,
              0);
    EXPECT_EQ(probeStreams(wav, dir), "pcm_s16le\n");
    auto mov = dir / "movie.bin";
    ASSERT_EQ(
        cli("export " + quote(project.string()) + " --format mov -o " + quote(mov.string()), dir)
            .status,
        0);
    EXPECT_NE(probeStreams(mov, dir).find("h264"), std::string::npos);
}

TEST_F(ExportTest, AFailedExportLeavesNothingAndAnExistingFileAlone) {
    auto out = dir / "kept.mp4";
    std::ofstream(out) << "an older export";
    fs::remove(movie.parent_path() / "never-there.mp4");
    auto gone = copyIn(movie, "gone.mp4");
    auto lost = dir / "lost.vantrell";
    ASSERT_EQ(cli("new " + quote(lost.string()) + " " + quote(gone.string()), dir).status, 0);
    fs::remove(gone);
    auto r = cli("export " + quote(lost.string()) + " -o " + quote(out.string()), dir);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Failed: "), std::string::npos) << r.out;
    std::ifstream in(out);
    std::string kept;
    std::getline(in, kept);
    EXPECT_EQ(kept, "an older export");

    auto nowhere = dir / "no-such-folder" / "x.mp4";
    auto r2 = cli("export " + quote(project.string()) + " -o " + quote(nowhere.string()), dir);
    EXPECT_EQ(r2.status, 1);
    EXPECT_NE(r2.err.find("doesn't exist"), std::string::npos);
}

TEST_F(ExportTest, FrameWritesThePictureAtATimeAndRefusesAGap) {
    auto png = dir / "f.png";
    auto r = cli("frame " + quote(project.string()) + " --at 2.5 -o " + quote(png.string()), dir);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(probeStreams(png, dir), "png,320,240\n");
    auto past = cli("frame " + quote(project.string()) + " --at 9 -o " + quote(png.string()), dir);
    EXPECT_EQ(past.status, 1);
    EXPECT_NE(past.err.find("no picture"), std::string::npos);
}

}  // namespace
}  // namespace cli_testing
