// Guards the cost of enrichment. Ours runs as its own process, as the ffmpeg tool does, so
// start-up counts on both sides:
//   Peaks_Extract_10minAac: waveform::extractPeaks with the count enrichment asks for
//     (120,000) on a 10-minute 48 kHz stereo AAC file, beside `ffmpeg -i F -f s16le -` to
//     /dev/null. Target: ratio <= 1.2.
//   Filmstrip_24Frames_60s1080p: generateFilmstrip on a 60-second 1080p30 H.264 file with a
//     keyframe every 250 frames, as cameras write them, beside the ffmpeg tool making the same
//     24 thumbnails with input seeking: 24 runs, and one run with 24 inputs. Target: ratio
//     <= 1.5 against the 24 runs.
//   Filmstrip_24Frames_60s1080pGop30: the same with a keyframe every second, where a keyframe
//     often lies inside a frame's tolerance.
//   Waveform_Draw_120000Peaks: drawWaveform in this process, per image.
//
// Usage: enrich_bench [FOLDER] [--runs N (3)] [--only peaks|filmstrip|draw]
// FOLDER keeps the generated inputs between runs (shared with media_bench's 1080p file).
//
// When written (Debian 12, FFmpeg 5.1, 2 cores shared with other builds, RelWithDebInfo,
// median of 3): peaks 1.66 s against 2.46 s, ratio 0.68; filmstrip 16.7 s against 53.6 s for
// 24 runs (0.31) and 38.8 s for one run (0.43); with a keyframe every second 0.78 s against
// 18.0 s (0.04); drawing 52 ms per image.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "media/filmstrip.h"
#include "media/waveform.h"
#include "support/bench_support.h"

namespace {

namespace fs = std::filesystem;
namespace waveform = media::waveform;

constexpr std::string_view kPeaksOnce = "--peaks-once";
constexpr std::string_view kFilmstripOnce = "--filmstrip-once";
constexpr double kAudioSeconds = 600;
constexpr double kVideoSeconds = 60;

// The hidden child entries: one extraction or one filmstrip of FILE, SECONDS long.
int peaksOnce(const fs::path& file, double seconds) {
    const auto peaks = waveform::extractPeaks(file, waveform::peakCountFor(seconds));
    if (!peaks) return 1;
    std::cout << peaks->size() << " peaks\n";
    return 0;
}

int filmstripOnce(const fs::path& file, double seconds) {
    const auto frames = media::generateFilmstrip(file, seconds);
    if (frames.size() != media::filmstripTimes(seconds).size()) return 1;
    std::cout << frames.size() << " frames of " << frames[0]->width << "x" << frames[0]->height
              << "\n";
    return 0;
}

std::string secondsText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

constexpr std::string_view kThumbnailFilter = "scale=160:90:force_original_aspect_ratio=decrease";

// The ffmpeg tool's thumbnails at the filmstrip's times, one run per thumbnail.
std::vector<std::vector<std::string>> toolThumbnailRuns(const fs::path& file, const fs::path& out) {
    std::vector<std::vector<std::string>> runs;
    int i = 0;
    for (double t : media::filmstripTimes(kVideoSeconds))
        runs.push_back({VANTRELL_FFMPEG, "-y", "-nostdin", "-v", "error", "-ss", secondsText(t),
                        "-i", file.string(), "-frames:v", "1", "-vf", std::string(kThumbnailFilter),
                        "-f", "image2", (out / ("run" + std::to_string(i++) + ".png")).string()});
    return runs;
}

// The same thumbnails from one run with one seeking input per thumbnail.
std::vector<std::string> toolThumbnailsInOneRun(const fs::path& file, const fs::path& out) {
    std::vector<std::string> command{VANTRELL_FFMPEG, "-y", "-nostdin", "-v", "error"};
    const auto times = media::filmstripTimes(kVideoSeconds);
    for (double t : times)
        command.insert(command.end(), {"-ss", secondsText(t), "-i", file.string()});
    for (std::size_t i = 0; i < times.size(); ++i)
        command.insert(command.end(), {"-map", std::to_string(i) + ":v:0", "-frames:v", "1", "-vf",
                                       std::string(kThumbnailFilter), "-f", "image2",
                                       (out / ("one" + std::to_string(i) + ".png")).string()});
    return command;
}

// Wall time of running `commands` one after the other, or nothing if any of them failed.
std::optional<double> millisecondsOf(const std::vector<std::vector<std::string>>& commands) {
    double seconds = 0;
    for (const auto& command : commands) {
        const auto usage = bench::measure(command);
        if (!usage) return std::nullopt;
        seconds += usage->seconds;
    }
    return seconds * 1e3;
}

struct Case {
    std::string name;
    std::vector<std::vector<std::string>> commands;
    std::vector<double> milliseconds;
};

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    if (args.size() == 3 && args[0] == kPeaksOnce)
        return peaksOnce(fs::path(args[1]), std::atof(std::string(args[2]).c_str()));
    if (args.size() == 3 && args[0] == kFilmstripOnce)
        return filmstripOnce(fs::path(args[1]), std::atof(std::string(args[2]).c_str()));

    std::string only;
    const auto [folder, runs] = bench::readOptions(
        args, {VANTRELL_BENCH_MEDIA, 3}, [&](std::string_view name, std::string_view value) {
            if (name != "--only") return false;
            only = value;
            return true;
        });
    const auto wanted = [&](std::string_view group) { return only.empty() || only == group; };

    const auto audio = bench::cachedSample(
        folder, "pink_noise_48k_stereo_600s.m4a",
        {"-f", "lavfi", "-i", "anoisesrc=color=pink:sample_rate=48000:amplitude=0.4", "-t", "600",
         "-ac", "2", "-c:a", "aac", "-b:a", "192k"});
    // The same name and settings as media_bench's sample, so the two share one file.
    const auto video = bench::videoSample(folder, "testsrc2_1080p30_60s_h264_aac.mp4", 250);
    const auto videoGop30 =
        bench::videoSample(folder, "testsrc2_1080p30_60s_gop30_h264_aac.mp4", 30);
    if (!audio || !video || !videoGop30) {
        std::cerr << "enrich_bench: the ffmpeg tool could not make the samples in "
                  << folder.string() << "\n";
        return 1;
    }
    const fs::path out = folder / "enrich-out";
    fs::create_directories(out);
    const std::string self = bench::selfPath();

    Case peaks{"Peaks_Extract_10minAac",
               {{self, std::string(kPeaksOnce), audio->string(), secondsText(kAudioSeconds)}}};
    Case toolPcm{
        "ffmpeg -f s16le",
        {{VANTRELL_FFMPEG, "-nostdin", "-v", "error", "-i", audio->string(), "-f", "s16le", "-"}}};
    Case strip{"Filmstrip_24Frames_60s1080p",
               {{self, std::string(kFilmstripOnce), video->string(), secondsText(kVideoSeconds)}}};
    Case toolRuns{"ffmpeg, 24 runs", toolThumbnailRuns(*video, out)};
    Case toolOneRun{"ffmpeg, 1 run of 24 inputs", {toolThumbnailsInOneRun(*video, out)}};
    Case stripGop30{
        "Filmstrip_24Frames_60s1080pGop30",
        {{self, std::string(kFilmstripOnce), videoGop30->string(), secondsText(kVideoSeconds)}}};
    Case toolRunsGop30{"ffmpeg, 24 runs (GOP 30)", toolThumbnailRuns(*videoGop30, out)};
    std::vector<Case*> cases;
    if (wanted("peaks")) cases.insert(cases.end(), {&peaks, &toolPcm});
    if (wanted("filmstrip"))
        cases.insert(cases.end(), {&strip, &toolRuns, &toolOneRun, &stripGop30, &toolRunsGop30});

    // One untimed round fills the page cache; after it the rounds interleave so that drift
    // in the machine's load falls on every case alike.
    for (int round = -1; round < runs; ++round) {
        for (Case* c : cases) {
            const auto ms = millisecondsOf(c->commands);
            if (!ms) {
                std::cerr << "enrich_bench: " << c->name << " failed\n";
                return 1;
            }
            if (round >= 0) c->milliseconds.push_back(*ms);
        }
    }

    std::printf("enrich_bench: median of %d runs, each command a new process\n", runs);
    const auto report = [](const Case& ours, const Case& tool, double target) {
        const double mine = bench::median(ours.milliseconds);
        const double theirs = bench::median(tool.milliseconds);
        std::printf("%-34s ours %8.1f ms, %-28s %8.1f ms, ratio %.2f (target <= %.1f)\n",
                    ours.name.c_str(), mine, tool.name.c_str(), theirs, mine / theirs, target);
    };
    if (wanted("peaks")) report(peaks, toolPcm, 1.2);
    if (wanted("filmstrip")) {
        report(strip, toolRuns, 1.5);
        report(strip, toolOneRun, 1.5);
        report(stripGop30, toolRunsGop30, 1.5);
    }

    if (wanted("draw")) {
        const std::vector<float> ramp = [] {
            std::vector<float> values(waveform::peakCountFor(kAudioSeconds));
            for (std::size_t i = 0; i < values.size(); ++i) values[i] = (i % 97) / 96.0f;
            return values;
        }();
        std::vector<double> milliseconds;
        for (int round = 0; round < runs; ++round) {
            const auto start = std::chrono::steady_clock::now();
            const auto image = waveform::drawWaveform(ramp);
            milliseconds.push_back(
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                    .count());
            if (!image) return 1;
        }
        std::printf("%-34s %.1f ms per image (in process)\n", "Waveform_Draw_120000Peaks",
                    bench::median(milliseconds));
    }
    return 0;
}
