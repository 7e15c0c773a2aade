#pragma once

// Process, timing, sample and option helpers for benchmarks that race our code, run as a
// child process, against the ffmpeg tools, so that start-up counts on both sides.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

// What one run of a program cost.
struct Usage {
    double seconds = 0;
    double cpuSeconds = 0;  // user and system time of all its threads
    double peakMegabytes = 0;
};

// Whether a child's stderr reaches ours, for benches that show why a child failed.
enum class ChildErrors { hidden, shown };

// Runs a program with stdout sent to /dev/null; what it cost, or nothing if it did not exit
// with 0.
std::optional<Usage> measure(const std::vector<std::string>& command,
                             ChildErrors errors = ChildErrors::hidden);

double median(std::vector<double> values);

// `folder`/`name`, made by the ffmpeg tool with `args` unless an earlier run left it there.
// Written aside and renamed, so an interrupted run never leaves half a sample behind.
std::optional<std::filesystem::path> cachedSample(const std::filesystem::path& folder,
                                                  const std::string& name,
                                                  const std::vector<std::string>& args);

// A 60-second 1080p30 H.264 + AAC test pattern with a keyframe every `gopFrames` frames; one
// maker, so benches that name the same file agree on what is in it.
std::optional<std::filesystem::path> videoSample(const std::filesystem::path& folder,
                                                 const std::string& name, int gopFrames);

// This executable, for running its hidden child entries.
std::string selfPath();

struct Options {
    std::filesystem::path folder;
    int runs = 1;
};

// Reads `[FOLDER] [--runs N]` from `args` over the given defaults, with at least one run.
// Any other `--NAME VALUE` is offered to `option` first, which answers whether it took it.
Options readOptions(
    const std::vector<std::string_view>& args, Options defaults,
    const std::function<bool(std::string_view name, std::string_view value)>& option = {});

}  // namespace bench
