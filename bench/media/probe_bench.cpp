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

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "media/probe.h"
#include "support/bench_support.h"

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

    const auto [folder, runs] = bench::readOptions(args, {VANTRELL_BENCH_MEDIA, 10});

    // The same name and settings as enrich_bench's sample, so the two share one file.
    const auto file = bench::videoSample(folder, "testsrc2_1080p30_60s_h264_aac.mp4", 250);
    if (!file) {
        std::cerr << "media_bench: the ffmpeg tool could not make the sample in " << folder.string()
                  << "\n";
        return 1;
    }
    const std::string self = bench::selfPath();
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
            const auto usage = bench::measure(c->command, bench::ChildErrors::shown);
            if (!usage) {
                std::cerr << "media_bench: " << c->name << " failed on " << path << "\n";
                return 1;
            }
            if (round >= 0) c->milliseconds.push_back(usage->seconds * 1e3);
        }
    }

    const double reference = bench::median(ffprobe.milliseconds);
    std::printf("media_bench: %s, median of %d runs, each a new process\n", path.c_str(), runs);
    std::printf("%-34s ffprobe %.1f ms\n", ffprobe.name.c_str(), reference);
    const auto report = [&](const Case& c, double target) {
        const double ours = bench::median(c.milliseconds);
        std::printf("%-34s %s: ours %.1f ms, ffprobe %.1f ms, ratio %.2f (target <= %.1f)\n",
                    c.name.c_str(), c.label.c_str(), ours, reference, ours / reference, target);
    };
    report(probe, 1.0);
    report(withThumbnail, 2.0);
    return 0;
}
