// Guards the preview's five promises on this kind of machine (2 cores shared):
//   Playback_ThreeClips_60s1080p   no frame dropped; CPU at most 1.5 × `ffmpeg -re -i SOURCE
//                                  -f null -` decoding the same sources
//   Seek_Paused_1080pGop250        median and 95th percentile at most 1.0 × `ffmpeg -ss T -i F
//                                  -frames:v 1` at the same 50 random times
//   Scrub_120PerSecond_5s          no UI stall over 16 ms; the last frame shown within 150 ms
//   Rebuild_WhilePlaying           playing again within 100 ms; no UI stall over 16 ms
//   Playback_4K30                  peak memory under 600 MB
// The first, second and last run `vantrell-cli play` as a child; the other two run the
// preview widget in this process on the offscreen platform.
//
// Usage: preview_bench [FOLDER] [--runs N]
// FOLDER keeps the generated samples between runs.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <QApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>
#include <nlohmann/json.hpp>

#include "common/uuid.h"
#include "media/probe.h"
#include "model/project.h"
#include "preview/preview_view.h"
#include "support/bench_support.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double quantile(std::vector<double> values, double q) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(q * static_cast<double>(values.size() - 1) + 0.5)];
}

bool runQuietly(const std::vector<std::string>& command) {
    return bench::measure(command, bench::ChildErrors::shown).has_value();
}

// `command` with its standard output written to `out`, through the shell.
std::vector<std::string> writingTo(const std::vector<std::string>& command, const fs::path& out) {
    std::string line;
    for (const auto& word : command) line += "'" + word + "' ";
    return {"/bin/sh", "-c", line + "> '" + out.string() + "'"};
}

nlohmann::json readJson(const fs::path& file) {
    std::ifstream in(file);
    return nlohmann::json::parse(in, nullptr, false);
}

// Watches the UI thread: the longest gap between turns of its event loop.
class StallWatch {
  public:
    StallWatch() {
        timer_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            const auto now = Clock::now();
            if (last_) longest_ = std::max(longest_, now - *last_);
            last_ = now;
        });
        timer_.start(1);
    }
    double longestMs() const { return std::chrono::duration<double, std::milli>(longest_).count(); }

  private:
    QTimer timer_;
    std::optional<Clock::time_point> last_;
    Clock::duration longest_{};
};

void runEventsFor(std::chrono::milliseconds span) {
    const auto until = Clock::now() + span;
    while (Clock::now() < until) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
}

model::Clip probed(const fs::path& file) {
    auto clip =
        media::probeClip(file, std::nullopt, common::Uuid::random(), media::ThumbnailPolicy::skip);
    if (!clip) {
        std::cerr << "preview_bench: " << clip.error().message << "\n";
        std::exit(1);
    }
    return clip.value();
}

// Frames presented by whatever player the view holds, with when they came.
struct Presented {
    std::mutex mutex;
    std::vector<std::pair<double, Clock::time_point>> frames;
};

int playback(const fs::path& folder, const std::string& cli, const fs::path& source) {
    const fs::path project = folder / "three_clips.vantrell";
    const std::string s = source.string();
    // Three 20-second stretches; the second starts 25.3 s into the file, between keyframes.
    if (!runQuietly({cli, "new", project.string(), s, s, s}) ||
        !runQuietly({cli, "edit", project.string(), "trim-out 0 20", "trim-in 1 25.3",
                     "trim-out 1 45.3", "move 1 20", "trim-in 2 40", "move 2 40"}))
        return 1;
    const fs::path report = folder / "play.json";
    const auto ours = bench::measure(writingTo({cli, "play", project.string(), "--json"}, report),
                                     bench::ChildErrors::shown);
    const auto tool = bench::measure(
        {VANTRELL_FFMPEG, "-nostdin", "-loglevel", "error", "-re", "-i", s, "-f", "null", "-"});
    const auto stats = readJson(report);
    if (!ours || !tool || stats.is_discarded()) return 1;
    std::printf("%-32s dropped %lld of %lld, largest lateness %.1f ms, underruns %lld\n",
                "Playback_ThreeClips_60s1080p",
                static_cast<long long>(stats["framesDropped"].get<std::int64_t>()),
                static_cast<long long>(stats["framesDropped"].get<std::int64_t>() +
                                       stats["framesPresented"].get<std::int64_t>()),
                stats["largestLatenessSeconds"].get<double>() * 1e3,
                static_cast<long long>(stats["audioUnderruns"].get<std::int64_t>()));
    std::printf("%-32s ours %.2f s CPU, ffmpeg -re %.2f s CPU, ratio %.2f (target <= 1.5)\n", "",
                ours->cpuSeconds, tool->cpuSeconds, ours->cpuSeconds / tool->cpuSeconds);
    return 0;
}

int seeks(const fs::path& folder, const std::string& cli, const fs::path& source) {
    const fs::path project = folder / "gop250.vantrell";
    if (!runQuietly({cli, "new", project.string(), source.string()})) return 1;
    std::mt19937 random(7);
    std::uniform_real_distribution<double> anywhere(0.0, 59.9);
    std::vector<std::string> times;
    std::string list;
    for (int i = 0; i < 50; ++i) {
        char text[32];
        std::snprintf(text, sizeof text, "%.3f", anywhere(random));
        times.emplace_back(text);
        list += (list.empty() ? "" : ",") + times.back();
    }
    const fs::path report = folder / "seeks.json";
    if (!bench::measure(writingTo({cli, "play", project.string(), "--at", list, "--snapshots",
                                   (folder / "seek-snapshots").string(), "--json"},
                                  report),
                        bench::ChildErrors::shown))
        return 1;
    std::vector<double> ours;
    for (double s : readJson(report)["seekLatenciesSeconds"]) ours.push_back(s * 1e3);
    std::vector<double> tool;
    for (const auto& t : times) {
        const auto usage =
            bench::measure({VANTRELL_FFMPEG, "-nostdin", "-loglevel", "error", "-ss", t, "-i",
                            source.string(), "-frames:v", "1", "-f", "null", "-"});
        if (!usage) return 1;
        tool.push_back(usage->seconds * 1e3);
    }
    std::printf("%-32s median ours %.0f ms, ffmpeg %.0f ms, ratio %.2f (target <= 1.0)\n",
                "Seek_Paused_1080pGop250", bench::median(ours), bench::median(tool),
                bench::median(ours) / bench::median(tool));
    std::printf("%-32s p95 ours %.0f ms, ffmpeg %.0f ms, ratio %.2f (target <= 1.0)\n", "",
                quantile(ours, 0.95), quantile(tool, 0.95),
                quantile(ours, 0.95) / quantile(tool, 0.95));
    std::printf(
        "%-32s (ours: request to frame presented in a running player; ffmpeg: whole "
        "process)\n",
        "");
    return 0;
}

int scrub(const fs::path& source) {
    model::Project project;
    project.setClips({probed(source)});
    project.raiseCompositionToken();
    preview::PreviewView view(project);
    view.resize(960, 540);
    view.show();
    Presented presented;
    view.frames().add([&](const preview::PresentedFrame& frame) {
        std::lock_guard lock(presented.mutex);
        presented.frames.emplace_back(frame.seconds, Clock::now());
    });
    runEventsFor(std::chrono::seconds(2));
    StallWatch stalls;
    // Back and forth over ten seconds, as a hand drags the playhead.
    QTimer request;
    request.setTimerType(Qt::PreciseTimer);
    int n = 0;
    double last = 0;
    Clock::time_point lastAsked;
    QObject::connect(&request, &QTimer::timeout, [&] {
        const double phase = std::fmod(n++ / 120.0, 4.0);
        last = 20 + (phase < 2 ? phase : 4 - phase) * 5;
        lastAsked = Clock::now();
        project.setPlayheadGlobal(last);
    });
    request.start(1000 / 120);
    runEventsFor(std::chrono::seconds(5));
    request.stop();
    const double stall = stalls.longestMs();
    runEventsFor(std::chrono::milliseconds(1000));
    double shownMs = -1;
    {
        std::lock_guard lock(presented.mutex);
        for (const auto& [seconds, at] : presented.frames)
            if (std::abs(seconds - last) < 1e-9 && at >= lastAsked)
                shownMs = std::chrono::duration<double, std::milli>(at - lastAsked).count();
    }
    std::printf(
        "%-32s %d requests, longest UI stall %.1f ms (target <= 16), last frame after "
        "%.0f ms (target <= 150)\n",
        "Scrub_120PerSecond_5s", n, stall, shownMs);
    return 0;
}

int rebuild(const fs::path& source) {
    model::Project project;
    project.setClips({probed(source)});
    project.raiseCompositionToken();
    preview::PreviewView view(project);
    view.resize(960, 540);
    view.show();
    Presented presented;
    view.frames().add([&](const preview::PresentedFrame& frame) {
        std::lock_guard lock(presented.mutex);
        presented.frames.emplace_back(frame.seconds, Clock::now());
    });
    runEventsFor(std::chrono::seconds(2));
    project.setIsPlaying(true);
    runEventsFor(std::chrono::seconds(2));
    std::vector<double> resumed;
    double stall = 0;
    for (int i = 0; i < 5; ++i) {
        QPointer<preview::Player> old = view.player();
        StallWatch stalls;
        const auto edited = Clock::now();
        project.raiseCompositionToken();
        while (old || !view.player() || view.player()->rate() == 0)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
        // Playing again: the new player presents a frame while playing.
        const auto installed = Clock::now();
        std::optional<Clock::time_point> first;
        while (!first) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
            std::lock_guard lock(presented.mutex);
            for (const auto& [seconds, at] : presented.frames)
                if (at > installed) first = at;
        }
        resumed.push_back(std::chrono::duration<double, std::milli>(*first - edited).count());
        runEventsFor(std::chrono::milliseconds(500));
        stall = std::max(stall, stalls.longestMs());
    }
    project.setIsPlaying(false);
    std::printf(
        "%-32s playing again after median %.0f ms, worst %.0f ms (target <= 100); "
        "longest UI stall %.1f ms (target <= 16)\n",
        "Rebuild_WhilePlaying", bench::median(resumed),
        *std::max_element(resumed.begin(), resumed.end()), stall);
    return 0;
}

int memory(const fs::path& folder, const std::string& cli) {
    const auto source = bench::cachedSample(
        folder, "testsrc2_2160p30_20s_h264.mp4",
        {"-f",       "lavfi",     "-i",   "testsrc2=size=3840x2160:rate=30",
         "-f",       "lavfi",     "-i",   "sine=frequency=440:sample_rate=48000",
         "-t",       "20",        "-c:v", "libx264",
         "-preset",  "ultrafast", "-g",   "60",
         "-pix_fmt", "yuv420p",   "-c:a", "aac"});
    const fs::path project = folder / "uhd.vantrell";
    if (!source || !runQuietly({cli, "new", project.string(), source->string()})) return 1;
    const fs::path report = folder / "uhd.json";
    const auto ours =
        bench::measure(writingTo({cli, "play", project.string(), "--for", "10", "--json"}, report),
                       bench::ChildErrors::shown);
    const auto stats = readJson(report);
    if (!ours || stats.is_discarded()) return 1;
    std::printf("%-32s peak %.0f MB (target < 600), dropped %lld of %lld\n", "Playback_4K30",
                ours->peakMegabytes,
                static_cast<long long>(stats["framesDropped"].get<std::int64_t>()),
                static_cast<long long>(stats["framesDropped"].get<std::int64_t>() +
                                       stats["framesPresented"].get<std::int64_t>()));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    const auto options = bench::readOptions(args, {VANTRELL_BENCH_MEDIA, 1});
    const fs::path folder = options.folder;
    const std::string cli = VANTRELL_CLI;
    const auto gop30 = bench::videoSample(folder, "testsrc2_1080p30_60s_g30.mp4", 30);
    const auto gop250 = bench::videoSample(folder, "testsrc2_1080p30_60s_g250.mp4", 250);
    if (!gop30 || !gop250) {
        std::cerr << "preview_bench: the ffmpeg tool could not make the samples in "
                  << folder.string() << "\n";
        return 1;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    std::printf("preview_bench: samples in %s\n", folder.string().c_str());
    if (playback(folder, cli, *gop30) != 0 || seeks(folder, cli, *gop250) != 0 ||
        scrub(*gop30) != 0 || rebuild(*gop30) != 0 || memory(folder, cli) != 0) {
        std::cerr << "preview_bench: a run failed\n";
        return 1;
    }
    return 0;
}
