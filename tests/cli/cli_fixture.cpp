#include "cli_fixture.h"

namespace cli_testing {

CliRun cli(const std::string& args, const fs::path& workDir) {
    auto outFile = workDir / "stdout.txt";
    auto errFile = workDir / "stderr.txt";
    CliRun r;
    r.status = testing_support::run(std::string(VANTRELL_CLI) + " " + args + " >" +
                                    quote(outFile.string()) + " 2>" + quote(errFile.string()));
    r.out = contentsOf(outFile);
    r.err = contentsOf(errFile);
    return r;
}

std::vector<json> jsonLines(const std::string& text) {
    std::vector<json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) lines.push_back(json::parse(line));
    return lines;
}

std::string probeStreams(const fs::path& file) {
    return testing_support::ffprobe(file,
                                    "-show_entries stream=codec_name,width,height -of csv=p=0");
}

void CliTest::SetUp() {
    dir = freshDir(::testing::UnitTest::GetInstance()->current_test_info()->name());
    movie = makeMedia("cli-movie.mp4",
                      "-f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i "
                      "sine=frequency=440:sample_rate=48000 -t 2 -c:v libx264 -pix_fmt "
                      "yuv420p -c:a aac -shortest");
    tone = makeMedia("cli-tone.wav", "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 1");
}

fs::path CliTest::copyIn(const fs::path& source, const std::string& name) {
    auto target = dir / name;
    fs::copy_file(source, target, fs::copy_options::overwrite_existing);
    return target;
}

json CliTest::info(const fs::path& project) {
    auto r = cli("info --json " + quote(project.string()), dir);
    EXPECT_EQ(r.status, 0) << r.err;
    return json::parse(r.out);
}

}  // namespace cli_testing
