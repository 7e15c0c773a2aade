// Guards the command line's whole-process cost: `vantrell-cli export` of a project that
// joins three whole 60-second 1080p30 H.264 + AAC files must take at most as long as the
// ffmpeg tool's concat demuxer copying them (-c copy), each run as its own process. The
// command opens the project, probes every file and plans the export before copying a byte,
// so any work beyond the copy, such as pictures that nothing shows, shows here.
//
// Usage: cli_bench [FOLDER] [--runs N]
// FOLDER keeps the generated clips between runs.
//
// When written (Debian 12, FFmpeg 5.1, 2 cores shared with other builds, -O2): 2.79 s
// against 3.07 s, ratio 0.91; peak RSS 60 MB against 61 MB. Both spend the time writing.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "support/bench_support.h"

namespace {

namespace fs = std::filesystem;

constexpr int kGopFrames = 30;

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    const auto [folder, runs] = bench::readOptions(args, {VANTRELL_BENCH_MEDIA, 5});

    std::vector<fs::path> clips;
    for (const char* name : {"cli_join_a.mp4", "cli_join_b.mp4", "cli_join_c.mp4"}) {
        const auto clip = bench::videoSample(folder, name, kGopFrames);
        if (!clip) {
            std::cerr << "cli_bench: the ffmpeg tool could not make " << name << " in "
                      << folder.string() << "\n";
            return 1;
        }
        clips.push_back(*clip);
    }
    const fs::path project = folder / "cli_join.vantrell";
    const fs::path ours = folder / "cli_join_ours.mp4";
    const fs::path tool = folder / "cli_join_tool.mp4";
    const fs::path list = folder / "cli_join_list.txt";
    std::vector<std::string> make{VANTRELL_CLI, "new", "--force", project.string()};
    {
        std::ofstream text(list);
        for (const auto& clip : clips) {
            make.push_back(clip.string());
            text << "file '" << clip.string() << "'\n";
        }
    }
    if (!bench::measure(make, bench::ChildErrors::shown)) {
        std::cerr << "cli_bench: vantrell-cli could not make " << project.string() << "\n";
        return 1;
    }
    const std::vector<std::string> oursCommand{VANTRELL_CLI, "export", project.string(), "-o",
                                               ours.string()};
    const std::vector<std::string> toolCommand{
        VANTRELL_FFMPEG, "-y", "-nostdin", "-loglevel",   "error", "-f",   "concat",
        "-safe",         "0",  "-i",       list.string(), "-c",    "copy", tool.string()};

    std::vector<double> oursMs;
    std::vector<double> toolMs;
    double oursPeak = 0;
    double toolPeak = 0;
    // One untimed round fills the page cache; after it the two alternate so that drift in
    // the machine's load falls on both alike.
    for (int round = -1; round < runs; ++round) {
        const auto a = bench::measure(oursCommand, bench::ChildErrors::shown);
        const auto b = bench::measure(toolCommand);
        if (!a || !b) {
            std::cerr << "cli_bench: " << (!a ? "vantrell-cli" : "the ffmpeg tool") << " failed\n";
            return 1;
        }
        if (round < 0) continue;
        oursMs.push_back(a->seconds * 1e3);
        toolMs.push_back(b->seconds * 1e3);
        oursPeak = std::max(oursPeak, a->peakMegabytes);
        toolPeak = std::max(toolPeak, b->peakMegabytes);
    }
    const double oursMedian = bench::median(oursMs);
    const double toolMedian = bench::median(toolMs);
    std::printf(
        "%-38s vantrell-cli export %.0f ms, ffmpeg concat %.0f ms, ratio %.2f (target <= 1.0); "
        "peak RSS %.0f MB vs %.0f MB\n",
        "Cli_ExportJoinThreeWhole_60s1080p", oursMedian, toolMedian, oursMedian / toolMedian,
        oursPeak, toolPeak);
    std::printf("cli_bench: median of %d runs each, every run a new process\n", runs);
    fs::remove(ours);
    fs::remove(tool);
    fs::remove(list);
    fs::remove(project);
    return 0;
}
