#include "bench_support.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <utility>

extern char** environ;

namespace bench {

std::optional<Usage> measure(const std::vector<std::string>& command, ChildErrors errors) {
    std::vector<char*> argv;
    for (const auto& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (errors == ChildErrors::hidden)
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return std::nullopt;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid) return std::nullopt;
    const auto end = std::chrono::steady_clock::now();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    const auto secondsOf = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
    // Linux gives ru_maxrss in kilobytes.
    return Usage{std::chrono::duration<double>(end - start).count(),
                 secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime), usage.ru_maxrss / 1024.0};
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t mid = values.size() / 2;
    return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

std::optional<std::filesystem::path> cachedSample(const std::filesystem::path& folder,
                                                  const std::string& name,
                                                  const std::vector<std::string>& args) {
    const auto file = folder / name;
    if (std::filesystem::exists(file)) return file;
    std::filesystem::create_directories(folder);
    std::cout << std::filesystem::path(selfPath()).filename().string() << ": making "
              << file.string() << " (once)\n"
              << std::flush;
    const auto partial = folder / (".partial-" + name);
    std::vector<std::string> command{VANTRELL_FFMPEG, "-y", "-nostdin", "-loglevel", "error"};
    command.insert(command.end(), args.begin(), args.end());
    command.push_back(partial.string());
    if (!measure(command)) return std::nullopt;
    std::filesystem::rename(partial, file);
    return file;
}

std::optional<std::filesystem::path> videoSample(const std::filesystem::path& folder,
                                                 const std::string& name, int gopFrames) {
    return cachedSample(folder, name,
                        {"-f",       "lavfi",     "-i",   "testsrc2=size=1920x1080:rate=30",
                         "-f",       "lavfi",     "-i",   "sine=frequency=440:sample_rate=48000",
                         "-t",       "60",        "-c:v", "libx264",
                         "-preset",  "ultrafast", "-g",   std::to_string(gopFrames),
                         "-pix_fmt", "yuv420p",   "-c:a", "aac"});
}

std::string selfPath() {
    return std::filesystem::read_symlink("/proc/self/exe").string();
}

Options readOptions(
    const std::vector<std::string_view>& args, Options defaults,
    const std::function<bool(std::string_view name, std::string_view value)>& option) {
    Options options = std::move(defaults);
    for (std::size_t i = 0; i < args.size(); ++i) {
        const bool valued = i + 1 < args.size();
        if (valued && args[i] == "--runs")
            options.runs = std::max(1, std::atoi(std::string(args[++i]).c_str()));
        else if (valued && option && option(args[i], args[i + 1]))
            ++i;
        else
            options.folder = std::filesystem::path(args[i]);
    }
    // Absolute, because lists handed to the ffmpeg tool resolve names against their own folder.
    options.folder = std::filesystem::absolute(options.folder);
    return options;
}

}  // namespace bench
