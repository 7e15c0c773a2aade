// Guards the cost of a backward render: wall time and peak resident memory of
// media::renderReversedMedia, run as its own process, beside `ffmpeg -vf reverse` with the
// same libx264 preset on the same stretch of the same 1080p30 H.264 file. Ours holds one
// 2-second window of frames at a time, so its peak must stay flat from a 10-second to a
// 20-second stretch, while the filter holds the whole stretch.
//
// Usage: reverse_bench [FOLDER] [--runs N]
// FOLDER keeps the generated 30-second 1080p30 H.264 MP4s (1-second and 250-frame GOPs)
// between runs.
//
// When written (Debian 12, FFmpeg 5.1, 2 cores shared with other work, so wall times are
// loose): peak 458 MB for both 10 s and 20 s against 1194 and 2093 MB for the filter;
// processor time ratio 1.07 to 1.15 with 1-second GOPs and 1.31 with 250-frame GOPs, where
// each window decodes from an earlier keyframe. The filter's command keeps libx264's default
// quality (CRF 23), which here writes a third of the bits that our source bit rate does.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "media/reverse_render.h"
#include "support/bench_support.h"

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kReverseOnce = "--reverse-once";
constexpr double kStretchStartSeconds = 5;

// The hidden child entry: one backward render of FILE from FROM to TO seconds. The file
// it makes is removed when it exits.
int reverseOnce(const fs::path& file, double fromSeconds, double toSeconds) {
    const auto rendered = media::renderReversedMedia(file, fromSeconds, toSeconds);
    if (!rendered) return 1;
    std::cout << rendered->string() << "\n";
    return 0;
}

std::optional<fs::path> sampleFile(const fs::path& folder, int gopFrames) {
    return bench::cachedSample(
        folder, "testsrc2_1080p30_30s_h264_g" + std::to_string(gopFrames) + ".mp4",
        {"-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=30", "-t", "30", "-c:v", "libx264",
         "-preset", "ultrafast", "-g", std::to_string(gopFrames), "-pix_fmt", "yuv420p"});
}

struct Case {
    std::vector<std::string> command;
    std::vector<double> seconds;
    std::vector<double> cpuSeconds;
    std::vector<double> megabytes;

    double medianSeconds() const { return bench::median(seconds); }
    double medianCpuSeconds() const { return bench::median(cpuSeconds); }
    double medianMegabytes() const { return bench::median(megabytes); }
};

// Our render and the filter's on one stretch of one file.
struct Pair {
    std::string name;
    std::string label;
    Case ours;
    Case ffmpeg;
};

Pair makePair(const std::string& self, const fs::path& file, const std::string& gopName,
              const std::string& gopLabel, int stretchSeconds, const fs::path& scratch) {
    const std::string seconds = std::to_string(stretchSeconds);
    const std::string from = std::to_string(kStretchStartSeconds);
    const std::string to = std::to_string(kStretchStartSeconds + stretchSeconds);
    return {"Reverse_Render_" + seconds + "s1080p30" + gopName,
            "reverse " + seconds + " s 1080p30, " + gopLabel + " GOP",
            {{self, std::string(kReverseOnce), file.string(), from, to}, {}, {}, {}},
            {{VANTRELL_FFMPEG, "-y", "-nostdin", "-loglevel", "error", "-ss", from, "-t", seconds,
              "-i", file.string(), "-vf", "reverse", "-c:v", "libx264", "-preset",
              std::string(media::kReverseEncoderPreset), "-an",
              (scratch / "ffmpeg-reverse.mov").string()},
             {},
             {},
             {}}};
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    if (!args.empty() && args[0] == kReverseOnce && args.size() >= 4) {
        return reverseOnce(fs::path(args[1]), std::atof(std::string(args[2]).c_str()),
                           std::atof(std::string(args[3]).c_str()));
    }

    const auto [folder, runs] = bench::readOptions(args, {VANTRELL_BENCH_MEDIA, 3});

    const auto shortGop = sampleFile(folder, 30);
    const auto longGop = sampleFile(folder, 250);
    if (!shortGop || !longGop) {
        std::cerr << "reverse_bench: the ffmpeg tool could not make the samples in "
                  << folder.string() << "\n";
        return 1;
    }
    const std::string self = bench::selfPath();
    const fs::path scratch = folder / "reverse-scratch";
    fs::create_directories(scratch);

    std::vector<Pair> pairs{makePair(self, *shortGop, "ShortGop", "1 s", 10, scratch),
                            makePair(self, *shortGop, "ShortGop", "1 s", 20, scratch),
                            makePair(self, *longGop, "LongGop", "250-frame", 10, scratch)};

    // Rounds interleave the cases so that drift in the machine's load falls on all alike.
    for (int round = 0; round < runs; ++round) {
        for (Pair& pair : pairs) {
            for (Case* c : {&pair.ours, &pair.ffmpeg}) {
                const auto usage = bench::measure(c->command);
                if (!usage) {
                    std::cerr << "reverse_bench: " << pair.name << " failed: " << c->command[0]
                              << "\n";
                    return 1;
                }
                c->seconds.push_back(usage->seconds);
                c->cpuSeconds.push_back(usage->cpuSeconds);
                c->megabytes.push_back(usage->peakMegabytes);
            }
        }
    }
    fs::remove_all(scratch);

    std::printf("reverse_bench: median of %d runs, each a new process; preset %s\n", runs,
                std::string(media::kReverseEncoderPreset).c_str());
    for (const Pair& pair : pairs) {
        const Case& ours = pair.ours;
        const Case& ffmpeg = pair.ffmpeg;
        std::printf(
            "%-32s %s: ours %.1f s / %.0f MB, ffmpeg -vf reverse %.1f s / %.0f MB, time ratio "
            "%.2f, memory ratio %.2f (processor time: ours %.1f s, ffmpeg %.1f s, ratio %.2f)\n",
            pair.name.c_str(), pair.label.c_str(), ours.medianSeconds(), ours.medianMegabytes(),
            ffmpeg.medianSeconds(), ffmpeg.medianMegabytes(),
            ours.medianSeconds() / ffmpeg.medianSeconds(),
            ours.medianMegabytes() / ffmpeg.medianMegabytes(), ours.medianCpuSeconds(),
            ffmpeg.medianCpuSeconds(), ours.medianCpuSeconds() / ffmpeg.medianCpuSeconds());
    }
    const Pair& tenSeconds = pairs[0];
    const Pair& twentySeconds = pairs[1];
    std::printf(
        "%-32s peak memory from 10 s to 20 s: ours %.0f -> %.0f MB (x%.2f), ffmpeg -vf reverse "
        "%.0f -> %.0f MB (x%.2f)\n",
        "Reverse_PeakMemory_Growth", tenSeconds.ours.medianMegabytes(),
        twentySeconds.ours.medianMegabytes(),
        twentySeconds.ours.medianMegabytes() / tenSeconds.ours.medianMegabytes(),
        tenSeconds.ffmpeg.medianMegabytes(), twentySeconds.ffmpeg.medianMegabytes(),
        twentySeconds.ffmpeg.medianMegabytes() / tenSeconds.ffmpeg.medianMegabytes());
    return 0;
}
