// Guards the cost of importing one file: the probe, run as its own process so that start-up
// counts as it does for ffprobe, must take no longer than `ffprobe -show_streams
// -show_format` on the same file, and no more than twice as long with its thumbnail.
//
// Usage: media_bench [FOLDER] [--runs N]
// FOLDER keeps the generated 60-second 1080p30 H.264 + AAC MP4 between runs.
//
// When written (Debian 12, FFmpeg 5.1, 2 shared cores, run under `chrt -f 50` to keep other
// load out): ffprobe 128 ms, probe 64 ms (ratio 0.50), probe+thumbnail 91 ms (ratio 0.71).
// Most of each is process start-up: loading the FFmpeg libraries takes ~40 ms on our side.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "media/probe.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kProbeOnce = "--probe-once";
constexpr std::string_view kNoThumbnail = "--no-thumbnail";

// The hidden child entry: one probe of FILE, with its result on stdout.
int probeOnce(const fs::path& file, media::ThumbnailPolicy thumbnail) {
    auto clip = media::probeClip(file, std::nullopt, common::Uuid::random(), thumbnail);
    if (!clip) {
        std::cerr << clip.error().message << "\n";
        return 1;
    }
    std::cout << clip->fingerprint << " " << clip->fullDurationSeconds << " s";
    if (clip->thumbnail)
        std::cout << " " << clip->thumbnail->width << "x" << clip->thumbnail->height;
    std::cout << "\n";
    return 0;
}

// Runs a program with stdout sent to /dev/null; answers whether it exited with 0.
bool runQuietly(const std::vector<std::string>& command) {
    std::vector<char*> argv;
    for (const auto& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return false;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<std::string> splitWords(std::string_view text) {
    std::vector<std::string> words;
    std::istringstream in{std::string(text)};
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

std::optional<double> millisecondsOf(const std::vector<std::string>& command) {
    const auto start = std::chrono::steady_clock::now();
    if (!runQuietly(command)) return std::nullopt;
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t mid = values.size() / 2;
    return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

std::optional<fs::path> sampleFile(const fs::path& folder) {
    const fs::path file = folder / "testsrc2_1080p30_60s_h264_aac.mp4";
    if (fs::exists(file)) return file;
    fs::create_directories(folder);
    std::cout << "media_bench: making " << file.string() << " (once)\n" << std::flush;
    // Written aside and renamed, so an interrupted run never leaves half a sample behind.
    const fs::path partial = folder / ".partial.mp4";
    std::vector<std::string> command = splitWords(
        "-y -nostdin -loglevel error -f lavfi -i testsrc2=size=1920x1080:rate=30 "
        "-f lavfi -i sine=frequency=440:sample_rate=48000 -t 60 "
        "-c:v libx264 -preset ultrafast -g 250 -pix_fmt yuv420p -c:a aac");
    command.insert(command.begin(), VANTRELL_FFMPEG);
    command.push_back(partial.string());
    const bool made = runQuietly(command);
    if (!made) return std::nullopt;
    fs::rename(partial, file);
    return file;
}

struct Case {
    std::string name;
    std::string label;
    std::vector<std::string> command;
    std::vector<double> milliseconds;
};

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    if (!args.empty() && args[0] == kProbeOnce && args.size() >= 2) {
        const bool skip = args.size() >= 3 && args[2] == kNoThumbnail;
        return probeOnce(fs::path(args[1]),
                         skip ? media::ThumbnailPolicy::skip : media::ThumbnailPolicy::make);
    }

    fs::path folder = VANTRELL_BENCH_MEDIA;
    int runs = 10;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--runs" && i + 1 < args.size())
            runs = std::max(1, std::atoi(std::string(args[++i]).c_str()));
        else
            folder = fs::path(args[i]);
    }

    const auto file = sampleFile(folder);
    if (!file) {
        std::cerr << "media_bench: the ffmpeg tool could not make the sample in " << folder.string()
                  << "\n";
        return 1;
    }
    const std::string self = fs::read_symlink("/proc/self/exe").string();
    const std::string path = file->string();

    Case ffprobe{"FFprobe_Streams_60s1080p",
                 "ffprobe",
                 {VANTRELL_FFPROBE, "-v", "error", "-show_streams", "-show_format", path}};
    Case probe{"Probe_Clip_60s1080p",
               "probe",
               {self, std::string(kProbeOnce), path, std::string(kNoThumbnail)}};
    Case withThumbnail{"Probe_ClipWithThumbnail_60s1080p",
                       "probe+thumbnail",
                       {self, std::string(kProbeOnce), path}};
    std::vector<Case*> cases{&ffprobe, &probe, &withThumbnail};

    // One untimed round fills the page cache; after it the rounds interleave so that drift
    // in the machine's load falls on every case alike.
    for (int round = -1; round < runs; ++round) {
        for (Case* c : cases) {
            const auto ms = millisecondsOf(c->command);
            if (!ms) {
                std::cerr << "media_bench: " << c->name << " failed on " << path << "\n";
                return 1;
            }
            if (round >= 0) c->milliseconds.push_back(*ms);
        }
    }

    const double reference = median(ffprobe.milliseconds);
    std::printf("media_bench: %s, median of %d runs, each a new process\n", path.c_str(), runs);
    std::printf("%-34s ffprobe %.1f ms\n", ffprobe.name.c_str(), reference);
    const auto report = [&](const Case& c, double target) {
        const double ours = median(c.milliseconds);
        std::printf("%-34s %s: ours %.1f ms, ffprobe %.1f ms, ratio %.2f (target <= %.1f)\n",
                    c.name.c_str(), c.label.c_str(), ours, reference, ours / reference, target);
    };
    report(probe, 1.0);
    report(withThumbnail, 2.0);
    return 0;
}
