#include "support/media_fixtures.h"

#include <sys/wait.h>
#include <unistd.h>
#include <cstdlib>

#include <gtest/gtest.h>

namespace testing_support {

std::filesystem::path scratchDir() {
    static const std::filesystem::path dir = [] {
        std::filesystem::path d = VANTRELL_TEST_SCRATCH;
        std::filesystem::create_directories(d);
        return d;
    }();
    return dir;
}

std::string quote(const std::string& text) {
    std::string q = "'";
    for (char c : text) {
        if (c == '\'')
            q += "'\\''";
        else
            q += c;
    }
    return q + "'";
}

int run(const std::string& command) {
    int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::filesystem::path makeMedia(const std::string& name, const std::string& args) {
    auto path = scratchDir() / name;
    if (std::filesystem::exists(path)) return path;
    // Write beside the target and rename, so tests running in parallel never see half a file.
    auto partial = scratchDir() / (".partial-" + std::to_string(::getpid()) + "-" + name);
    std::string cmd = std::string(VANTRELL_FFMPEG) + " -y -nostdin -loglevel error " + args + " " +
                      quote(partial.string());
    if (run(cmd) != 0) {
        ADD_FAILURE() << "ffmpeg failed: " << cmd;
        return path;
    }
    std::filesystem::rename(partial, path);
    return path;
}

std::filesystem::path freshDir(const std::string& name) {
    auto dir = scratchDir() / "work" / (name + "-" + std::to_string(::getpid()));
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir;
}

}  // namespace testing_support
