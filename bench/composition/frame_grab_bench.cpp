// Guards the cost of copying the frame at the playhead: a grab deep inside a long GOP,
// run as its own process and written as a PNG, beside `ffmpeg -ss T -i F -frames:v 1`
// doing the same. Target: at most 1.5 times the ffmpeg tool's median time.
//
// Usage: composition_bench [FOLDER] [--runs N] [--at SECONDS]
// FOLDER keeps the generated 60-second 1080p30 H.264 MP4 (keyframes 10 s apart) between runs.
//
// When written (Debian 12, FFmpeg 5.1, 2 cores shared with other builds), at 45.4 s: ratio
// 0.54 to 0.65 by the wall clock, 0.65 by CPU time; both PNGs decode to the same pixels.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/uuid.h"
#include "composition/frame_grab.h"
#include "model/clip.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kGrabOnce = "--grab-once";
constexpr double kSampleSeconds = 60;

// The hidden child entry: the frame of FILE at SECONDS, written to OUT as a PNG. The clip
// is made by hand, as a project already holds it, so no probe is timed.
int grabOnce(const fs::path& file, double seconds, const fs::path& out) {
    model::Clip clip;
    clip.id = common::Uuid::random();
    clip.url = file;
    clip.hasVideo = true;
    clip.fullDurationSeconds = kSampleSeconds;
    clip.outSeconds = kSampleSeconds;
    const auto image = composition::grabFrame({clip}, seconds);
    if (!image) {
        std::cerr << "composition_bench: no frame at " << seconds << " s in " << file << "\n";
        return 1;
    }
    const auto written = composition::writePng(image, out);
    if (!written) {
        std::cerr << written.error().message << "\n";
        return 1;
    }
    return 0;
}

// What one run of a program cost.
struct Cost {
    double wallMilliseconds = 0;
    double cpuMilliseconds = 0;  // user and system time of all its threads
};

// Runs a program with stdout sent to /dev/null; its cost if it exited with 0.
std::optional<Cost> costOf(const std::vector<std::string>& command) {
    std::vector<char*> argv;
    for (const auto& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return std::nullopt;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid) return std::nullopt;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    const auto milliseconds = [](const timeval& t) { return t.tv_sec * 1e3 + t.tv_usec / 1e3; };
    return Cost{
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count(),
        milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime)};
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t mid = values.size() / 2;
    return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

std::optional<fs::path> sampleFile(const fs::path& folder) {
    const fs::path file = folder / "testsrc2_1080p30_60s_h264_g300.mp4";
    if (fs::exists(file)) return file;
    fs::create_directories(folder);
    std::cout << "composition_bench: making " << file.string() << " (once)\n" << std::flush;
    // Written aside and renamed, so an interrupted run never leaves half a sample behind.
    const fs::path partial = folder / ".partial-g300.mp4";
    const auto made = costOf({VANTRELL_FFMPEG,
                              "-y",
                              "-nostdin",
                              "-loglevel",
                              "error",
                              "-f",
                              "lavfi",
                              "-i",
                              "testsrc2=size=1920x1080:rate=30",
                              "-t",
                              std::to_string(static_cast<int>(kSampleSeconds)),
                              "-c:v",
                              "libx264",
                              "-preset",
                              "veryfast",
                              "-g",
                              "300",
                              "-keyint_min",
                              "300",
                              "-sc_threshold",
                              "0",
                              "-pix_fmt",
                              "yuv420p",
                              partial.string()});
    if (!made) return std::nullopt;
    fs::rename(partial, file);
    return file;
}

struct Case {
    std::string label;
    std::vector<std::string> command;
    std::vector<double> wall;
    std::vector<double> cpu;
};

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    if (args.size() == 4 && args[0] == kGrabOnce)
        return grabOnce(fs::path(args[1]), std::atof(std::string(args[2]).c_str()),
                        fs::path(args[3]));

    fs::path folder = VANTRELL_BENCH_MEDIA;
    int runs = 7;
    double at = 45.4;  // 5.4 s after the keyframe at 40 s: 162 frames to decode first
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--runs" && i + 1 < args.size())
            runs = std::max(1, std::atoi(std::string(args[++i]).c_str()));
        else if (args[i] == "--at" && i + 1 < args.size())
            at = std::atof(std::string(args[++i]).c_str());
        else
            folder = fs::path(args[i]);
    }

    const auto file = sampleFile(folder);
    if (!file) {
        std::cerr << "composition_bench: the ffmpeg tool could not make the sample in "
                  << folder.string() << "\n";
        return 1;
    }
    const std::string self = fs::read_symlink("/proc/self/exe").string();
    const std::string path = file->string();
    const std::string seconds = std::to_string(at);

    Case tool{"ffmpeg",
              {VANTRELL_FFMPEG, "-y", "-nostdin", "-loglevel", "error", "-ss", seconds, "-i", path,
               "-frames:v", "1", (folder / "grab-ffmpeg.png").string()}};
    Case ours{"grab",
              {self, std::string(kGrabOnce), path, seconds, (folder / "grab-ours.png").string()}};
    std::vector<Case*> cases{&tool, &ours};

    // One untimed round fills the page cache; after it the rounds interleave so that drift
    // in the machine's load falls on both alike.
    for (int round = -1; round < runs; ++round) {
        for (Case* c : cases) {
            const auto cost = costOf(c->command);
            if (!cost) {
                std::cerr << "composition_bench: " << c->label << " failed on " << path << "\n";
                return 1;
            }
            if (round < 0) continue;
            c->wall.push_back(cost->wallMilliseconds);
            c->cpu.push_back(cost->cpuMilliseconds);
        }
    }

    std::printf("composition_bench: %s at %.3f s, median of %d runs, each a new process\n",
                path.c_str(), at, runs);
    std::printf("%-30s ours %.1f ms, ffmpeg %.1f ms, ratio %.2f (target <= 1.5)\n",
                "FrameGrab_DeepInGop_60s1080p", median(ours.wall), median(tool.wall),
                median(ours.wall) / median(tool.wall));
    // CPU time is steadier than the wall clock on a machine shared with other work.
    std::printf("%-30s ours %.1f ms CPU, ffmpeg %.1f ms CPU, ratio %.2f\n", "", median(ours.cpu),
                median(tool.cpu), median(ours.cpu) / median(tool.cpu));
    return 0;
}
