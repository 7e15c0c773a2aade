#pragma once

// Process, timing and sample helpers for benchmarks that race our code, run as a child
// process, against the ffmpeg tools, so that start-up counts on both sides.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// Runs a program with stdout and stderr sent to /dev/null; answers whether it exited with 0.
bool runQuietly(const std::vector<std::string>& command);

// Wall time of running `commands` one after the other, or nothing if any of them failed.
std::optional<double> millisecondsOf(const std::vector<std::vector<std::string>>& commands);

double median(std::vector<double> values);

// `folder`/`name`, made by the ffmpeg tool with `args` unless an earlier run left it there.
// Written aside and renamed, so an interrupted run never leaves half a sample behind.
std::optional<std::filesystem::path> cachedSample(const std::filesystem::path& folder,
                                                  const std::string& name,
                                                  const std::vector<std::string>& args);

// This executable, for running its hidden child entries.
std::string selfPath();

}  // namespace bench
