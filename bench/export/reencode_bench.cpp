// Guards the cost of the re-encode road of export: wall time and peak resident memory of
// exporting::exportReencoded, run as its own process, beside the ffmpeg tool with the same
// encoder settings (libx264 High at the road's preset, crf and lookahead, yuv420p; AAC 256
// kb/s, 48 kHz stereo; movie box in front) on the same timeline: two 5-second cuts of a
// 30-second 1080p30 H.264+AAC file, joined. Targets: at most 1.15 times the tool's time,
// and under 400 MB, since the road holds only a few frames whatever the length.
//
// Usage: reencode_bench [FOLDER] [--runs N]
// FOLDER keeps the generated source between runs.
//
// When written (Debian 12, FFmpeg 5.1, 2 cores): see the report of the change that added it.

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "composition/composition.h"
#include "composition/crop_frame.h"
#include "export/reencode_export.h"
#include "media/media_input.h"
#include "support/bench_support.h"

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kExportOnce = "--export-once";

// The two cuts, in seconds of the source: [from, from + length).
constexpr int kCutLengthSeconds = 5;
constexpr int kFirstCutSeconds = 3;
constexpr int kSecondCutSeconds = 17;

composition::Segment cut(const fs::path& file, int streamIndex, common::MediaTime at,
                         int fromSeconds) {
    composition::SegmentSource source;
    source.url = file;
    source.streamIndex = streamIndex;
    source.assetRange = {common::MediaTime::fromSeconds(fromSeconds),
                         common::MediaTime::fromSeconds(kCutLengthSeconds)};
    return {at, source.assetRange.duration, source};
}

// The hidden child entry: our re-encode of the two cuts of FILE to OUT.
int exportOnce(const fs::path& file, const fs::path& out) {
    auto input = media::openInput(file);
    if (!input) {
        std::cerr << input.error().message << "\n";
        return 1;
    }
    const AVStream* video = media::firstStream(**input, AVMEDIA_TYPE_VIDEO);
    const AVStream* audio = media::firstStream(**input, AVMEDIA_TYPE_AUDIO);
    if (!video || !audio) return 1;
    const AVCodecParameters& picture = *video->codecpar;

    composition::Composition timeline;
    timeline.video = composition::Track{composition::MediaKind::video, {}};
    timeline.audio.push_back({composition::MediaKind::audio, {}});
    const auto second = common::MediaTime::fromSeconds(kCutLengthSeconds);
    for (auto [track, index] : {std::pair{&*timeline.video, video->index},
                                std::pair{&timeline.audio.front(), audio->index}}) {
        track->segments.push_back(cut(file, index, {}, kFirstCutSeconds));
        track->segments.push_back(cut(file, index, second, kSecondCutSeconds));
    }

    composition::VideoSettings whole;
    whole.largestSize = {static_cast<double>(picture.width), static_cast<double>(picture.height)};
    const exporting::ReencodeSettings settings{
        composition::outputFrame(whole), exporting::Framing::whole, av_q2d(video->avg_frame_rate)};
    const auto done =
        exporting::exportReencoded(timeline, out, model::ExportFormat::mp4, settings, {}, {});
    if (!done) {
        std::cerr << done.error().message << "\n";
        return 1;
    }
    return 0;
}

std::optional<fs::path> sampleFile(const fs::path& folder) {
    return bench::cachedSample(
        folder, "testsrc2_1080p30_30s_h264_aac.mp4",
        {"-f",       "lavfi",    "-i",   "testsrc2=size=1920x1080:rate=30",
         "-f",       "lavfi",    "-i",   "sine=frequency=440:sample_rate=48000",
         "-t",       "30",       "-c:v", "libx264",
         "-preset",  "veryfast", "-g",   "60",
         "-pix_fmt", "yuv420p",  "-c:a", "aac",
         "-b:a",     "192k",     "-ac",  "2"});
}

struct Case {
    std::string name;
    std::vector<std::string> command;
    std::vector<double> seconds;
    std::vector<double> megabytes;
};

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    if (!args.empty() && args[0] == kExportOnce && args.size() >= 3)
        return exportOnce(fs::path(args[1]), fs::path(args[2]));

    const auto [folder, runs] = bench::readOptions(args, {VANTRELL_BENCH_MEDIA, 3});

    const auto source = sampleFile(folder);
    if (!source) {
        std::cerr << "reencode_bench: the ffmpeg tool could not make the sample in "
                  << folder.string() << "\n";
        return 1;
    }
    const std::string self = bench::selfPath();
    const fs::path scratch = folder / "reencode-scratch";
    fs::create_directories(scratch);
    const std::string length = std::to_string(kCutLengthSeconds);

    const std::string name =
        "Reencode_TwoCuts_1080p30_" + std::to_string(2 * kCutLengthSeconds) + "s";
    Case ours{name,
              {self, std::string(kExportOnce), source->string(), (scratch / "ours.mp4").string()},
              {},
              {}};
    // The same timeline through the ffmpeg tool: each cut by accurate input seeking, joined
    // by the concat filter, encoded with the road's own settings.
    std::vector<std::string> toolCommand{VANTRELL_FFMPEG};
    const auto add = [&](const std::string& text) {
        std::istringstream parts(text);
        for (std::string word; parts >> word;) toolCommand.push_back(word);
    };
    add("-y -nostdin -loglevel error");
    add("-ss " + std::to_string(kFirstCutSeconds) + " -t " + length + " -i");
    toolCommand.push_back(source->string());
    add("-ss " + std::to_string(kSecondCutSeconds) + " -t " + length + " -i");
    toolCommand.push_back(source->string());
    add("-filter_complex [0:v][0:a][1:v][1:a]concat=n=2:v=1:a=1[v][a] -map [v] -map [a]");
    add("-c:v libx264 -preset " + std::string(exporting::kX264Preset) + " -crf " +
        std::to_string(exporting::kX264Crf) + " -rc-lookahead " +
        std::to_string(exporting::kX264Lookahead) + " -profile:v high -pix_fmt yuv420p");
    add("-c:a aac -b:a 256k -ar 48000 -ac 2 -movflags +faststart");
    toolCommand.push_back((scratch / "tool.mp4").string());
    Case tool{name + "_FFmpegTool", toolCommand, {}, {}};

    // Rounds interleave the two so that drift in the machine's load falls on both alike.
    for (int round = 0; round < runs; ++round) {
        for (Case* c : {&ours, &tool}) {
            const auto usage = bench::measure(c->command);
            if (!usage) {
                std::cerr << "reencode_bench: " << c->name << " failed\n";
                return 1;
            }
            c->seconds.push_back(usage->seconds);
            c->megabytes.push_back(usage->peakMegabytes);
        }
    }
    fs::remove_all(scratch);

    const double ourSeconds = bench::median(ours.seconds);
    const double toolSeconds = bench::median(tool.seconds);
    const double ourMegabytes = bench::median(ours.megabytes);
    std::printf(
        "reencode_bench: median of %d runs, each a new process; libx264 %s crf %d "
        "rc-lookahead %d\n",
        runs, std::string(exporting::kX264Preset).c_str(), exporting::kX264Crf,
        exporting::kX264Lookahead);
    std::printf("%-36s ours %.1f s / %.0f MB, ffmpeg tool %.1f s / %.0f MB\n", ours.name.c_str(),
                ourSeconds, ourMegabytes, toolSeconds, bench::median(tool.megabytes));
    std::printf("%-36s time ratio %.3f (target <= 1.15): %s\n", "Reencode_TimeRatio",
                ourSeconds / toolSeconds, ourSeconds / toolSeconds <= 1.15 ? "ok" : "OVER");
    std::printf("%-36s peak %.0f MB (target < 400 MB): %s\n", "Reencode_PeakMemory", ourMegabytes,
                ourMegabytes < 400 ? "ok" : "OVER");
    return 0;
}
