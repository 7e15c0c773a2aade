#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cli_fixture.h"

namespace cli_testing {
namespace {

class EnrichmentTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        halfScale = makeMedia("cli-half-scale.wav",
                              "-f lavfi -i \"aevalsrc=0.5*sin(2*PI*1000*t):s=48000\" -t 1 "
                              "-c:a pcm_s16le");
        silentMovie = makeMedia("cli-silent-movie.mp4",
                                "-f lavfi -i testsrc2=size=320x240:rate=25 -t 2 -c:v libx264 "
                                "-pix_fmt yuv420p");
    }

    fs::path halfScale, silentMovie;
};

// Peaks.

TEST_F(EnrichmentTest, PeaksPrintsTheTimelinesCountOrTheOneAskedFor) {
    auto r = cli("peaks " + quote(halfScale.string()), dir);
    ASSERT_EQ(r.status, 0) << r.err;
    auto j = json::parse(r.out);
    EXPECT_EQ(j["file"], halfScale.string());
    EXPECT_EQ(j["count"], 1600) << "one second asks for the floor";
    const auto peaks = j["peaks"].get<std::vector<float>>();
    ASSERT_EQ(peaks.size(), 1600u);
    // Half of full scale shows at 0.8 after the display gain.
    EXPECT_NEAR(*std::max_element(peaks.begin(), peaks.end()), 0.8f, 1e-3);
    EXPECT_NE(r.out.find("0.8"), std::string::npos) << "floats print short";

    auto few = cli("peaks --count 10 " + quote(halfScale.string()), dir);
    ASSERT_EQ(few.status, 0) << few.err;
    EXPECT_EQ(json::parse(few.out)["peaks"].size(), 10u);
}

TEST_F(EnrichmentTest, PeaksRefusesAFileWithoutAudioAndABadCount) {
    auto silent = cli("peaks " + quote(silentMovie.string()), dir);
    EXPECT_EQ(silent.status, 1);
    EXPECT_NE(silent.err.find(silentMovie.string()), std::string::npos) << silent.err;
    EXPECT_NE(silent.err.find("no audio"), std::string::npos) << silent.err;

    for (const char* count : {"0", "-3", "many", "2.5"}) {
        auto r = cli("peaks --count " + std::string(count) + " " + quote(tone.string()), dir);
        EXPECT_EQ(r.status, 1) << count;
        EXPECT_NE(r.err.find(count), std::string::npos) << r.err;
    }
    auto missing = cli("peaks " + quote((dir / "nowhere.wav").string()), dir);
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("nowhere.wav"), std::string::npos) << missing.err;
}

TEST_F(EnrichmentTest, PeaksOfATruncatedFileAreRefused) {
    auto whole = makeMedia("cli-long-tone.m4a",
                           "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 4 -c:a aac");
    auto cut = dir / "cut.m4a";
    fs::copy_file(whole, cut);
    fs::resize_file(cut, fs::file_size(cut) / 2);
    auto r = cli("peaks " + quote(cut.string()), dir);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("cut.m4a"), std::string::npos) << r.err;
    EXPECT_TRUE(r.out.empty()) << "nothing partial";
}

// Filmstrip.

TEST_F(EnrichmentTest, FilmstripWritesOnePngPerFrameAndPrintsItsTime) {
    auto out = dir / "strip";
    auto r = cli("filmstrip " + quote(movie.string()) + " -o " + quote(out.string()), dir);
    ASSERT_EQ(r.status, 0) << r.err;
    auto frames = jsonLines(r.out);
    // Two seconds give the fewest frames, at the middles of three equal stretches.
    ASSERT_EQ(frames.size(), 3u);
    const double expected[] = {1.0 / 3, 1.0, 5.0 / 3};
    for (std::size_t i = 0; i < frames.size(); ++i) {
        fs::path file = frames[i]["file"].get<std::string>();
        EXPECT_EQ(file.parent_path(), out);
        EXPECT_EQ(file.filename(), "frame-0" + std::to_string(i + 1) + ".png");
        EXPECT_NEAR(frames[i]["seconds"].get<double>(), expected[i], 1.0 / 600);
        EXPECT_EQ(frames[i]["width"], 120) << "fitted inside 160 x 90";
        EXPECT_EQ(frames[i]["height"], 90);
        EXPECT_EQ(probeStreams(file, dir), "png,120,90\n");
    }
}

TEST_F(EnrichmentTest, FilmstripRefusesAFileWithoutVideoAndAFolderInTheWay) {
    auto audio =
        cli("filmstrip " + quote(tone.string()) + " -o " + quote((dir / "s").string()), dir);
    EXPECT_EQ(audio.status, 1);
    EXPECT_NE(audio.err.find("no video"), std::string::npos) << audio.err;
    EXPECT_FALSE(fs::exists(dir / "s"));

    auto blocker = dir / "blocker";
    std::ofstream(blocker) << "a file";
    auto blocked =
        cli("filmstrip " + quote(movie.string()) + " -o " + quote(blocker.string()), dir);
    EXPECT_EQ(blocked.status, 1);
    EXPECT_NE(blocked.err.find(blocker.string()), std::string::npos) << blocked.err;

    EXPECT_EQ(cli("filmstrip " + quote(movie.string()), dir).status, 2) << "-o is required";
}

// Waveform.

TEST_F(EnrichmentTest, WaveformWritesThe1600By60Picture) {
    auto png = dir / "wave.png";
    auto r = cli("waveform " + quote(halfScale.string()) + " -o " + quote(png.string()), dir);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(probeStreams(png, dir), "png,1600,60\n");
    EXPECT_NE(r.out.find("1600 peaks"), std::string::npos) << r.out;

    auto silent = cli(
        "waveform " + quote(silentMovie.string()) + " -o " + quote((dir / "x.png").string()), dir);
    EXPECT_EQ(silent.status, 1);
    EXPECT_NE(silent.err.find("no audio"), std::string::npos) << silent.err;
    EXPECT_FALSE(fs::exists(dir / "x.png"));
}

// Enrichment of an opened project.

TEST_F(EnrichmentTest, AnOpenedProjectEnrichesEachClipFromItsFile) {
    auto project = dir / "p.vantrell";
    ASSERT_EQ(cli("new " + quote(project.string()) + " " + quote(movie.string()) + " " +
                      quote(tone.string()) + " " + quote(silentMovie.string()),
                  dir)
                  .status,
              0);
    auto j = info(project);
    ASSERT_EQ(j["clips"].size(), 3u);
    const auto& withSound = j["clips"][0];
    EXPECT_EQ(withSound["filmstripFrames"], 3);
    EXPECT_EQ(withSound["waveformPeakCount"], 1600);
    EXPECT_EQ(withSound["waveform"], json({{"width", 1600}, {"height", 60}}));
    const auto& song = j["clips"][1];
    EXPECT_EQ(song["filmstripFrames"], 0);
    EXPECT_EQ(song["waveformPeakCount"], 1600);
    const auto& silent = j["clips"][2];
    EXPECT_EQ(silent["filmstripFrames"], 3);
    EXPECT_TRUE(silent["waveform"].is_null());
    EXPECT_TRUE(silent["waveformPeakCount"].is_null());

    std::ifstream saved(project);
    const std::string text{std::istreambuf_iterator<char>(saved), {}};
    EXPECT_EQ(text.find("waveform"), std::string::npos) << "the pictures are never saved";
    EXPECT_EQ(text.find("filmstrip"), std::string::npos);
}

}  // namespace
}  // namespace cli_testing
