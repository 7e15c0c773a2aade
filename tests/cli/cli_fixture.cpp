#include "cli_fixture.h"

namespace cli_testing {

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
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
    dir =
        testing_support::freshDir(::testing::UnitTest::GetInstance()->current_test_info()->name());
    movie = makeMedia("cli-movie.mp4",
                      "-f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i "
                      "sine=frequency=440:sample_rate=48000 -t 2 -c:v libx264 -pix_fmt "
                      "yuv420p -c:a aac -shortest");
    tone = makeMedia("cli-tone.wav", "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 1");
}

CliRun CliTest::cli(const std::string& args, const std::string& prefix) {
    const auto out = dir / "stdout.txt";
    const auto err = dir / "stderr.txt";
    CliRun r;
    r.status = testing_support::run("(" + prefix + " " + std::string(VANTRELL_CLI) + " " + args +
                                    ") >" + quoted(out) + " 2>" + quoted(err));
    r.out = contentsOf(out);
    r.err = contentsOf(err);
    return r;
}

fs::path CliTest::newProject(const std::string& name, const std::vector<fs::path>& files) {
    auto project = dir / name;
    std::string args = "new " + quoted(project);
    for (const auto& f : files) args += " " + quoted(f);
    auto r = cli(args);
    EXPECT_EQ(r.status, 0) << r.err;
    return project;
}

fs::path CliTest::copyIn(const fs::path& source, const std::string& name) {
    auto target = dir / name;
    fs::copy_file(source, target, fs::copy_options::overwrite_existing);
    return target;
}

json CliTest::info(const fs::path& project) {
    auto r = cli("info --json " + quoted(project));
    EXPECT_EQ(r.status, 0) << r.err;
    return json::parse(r.out);
}

}  // namespace cli_testing
