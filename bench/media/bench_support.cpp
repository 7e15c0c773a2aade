#include "bench_support.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>

extern char** environ;

namespace bench {

bool runQuietly(const std::vector<std::string>& command) {
    std::vector<char*> argv;
    for (const auto& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return false;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::optional<double> millisecondsOf(const std::vector<std::vector<std::string>>& commands) {
    const auto start = std::chrono::steady_clock::now();
    for (const auto& command : commands)
        if (!runQuietly(command)) return std::nullopt;
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
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
    std::cout << "making " << file.string() << " (once)\n" << std::flush;
    const auto partial = folder / (".partial-" + name);
    std::vector<std::string> command{VANTRELL_FFMPEG, "-y", "-nostdin", "-loglevel", "error"};
    command.insert(command.end(), args.begin(), args.end());
    command.push_back(partial.string());
    if (!runQuietly(command)) return std::nullopt;
    std::filesystem::rename(partial, file);
    return file;
}

std::string selfPath() {
    return std::filesystem::read_symlink("/proc/self/exe").string();
}

}  // namespace bench
