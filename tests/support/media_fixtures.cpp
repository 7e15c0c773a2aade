#include "support/media_fixtures.h"

#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace testing_support {

std::filesystem::path scratchDir() {
    const std::filesystem::path dir = VANTRELL_TEST_SCRATCH;
    std::filesystem::create_directories(dir);
    return dir;
}

std::string quote(const std::string& text) {
    std::string q = "'";
    for (char c : text) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
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

std::filesystem::path makeMediaFrom(const std::string& name, const std::filesystem::path& source,
                                    const std::string& args) {
    return makeMedia(name, "-i " + quote(source.string()) + " " + args);
}

std::filesystem::path turnedCopy(const std::string& name, const std::filesystem::path& source,
                                 int clockwiseDegrees) {
    // ffmpeg 5.1 makes a "rotate" tag of R a display matrix turning R degrees counter-clockwise.
    return makeMediaFrom(
        name, source,
        "-c copy -metadata:s:v:0 rotate=" + std::to_string((360 - clockwiseDegrees) % 360));
}

std::filesystem::path makeFile(const std::string& name, const std::string& contents) {
    auto path = scratchDir() / name;
    if (std::filesystem::exists(path)) return path;
    auto partial = scratchDir() / (".partial-" + std::to_string(::getpid()) + "-" + name);
    std::ofstream(partial, std::ios::binary) << contents;
    std::filesystem::rename(partial, path);
    return path;
}

std::string contentsOf(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string outputOf(const std::string& command) {
    std::string text;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) return text;
    char buffer[4096];
    while (std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe.get())) text.append(buffer, n);
    return text;
}

std::string ffprobe(const std::filesystem::path& file, const std::string& args) {
    return outputOf(std::string(VANTRELL_FFPROBE) + " -v error " + args + " " +
                    quote(file.string()) + " 2>/dev/null");
}

namespace {

// Removes the run's work folders once every test has passed; a failed run keeps them.
class WorkFolders : public ::testing::Environment {
  public:
    void add(std::filesystem::path dir) { dirs_.push_back(std::move(dir)); }
    void TearDown() override {
        if (!::testing::UnitTest::GetInstance()->Passed()) return;
        std::error_code ignored;
        for (const auto& dir : dirs_) std::filesystem::remove_all(dir, ignored);
    }

  private:
    std::vector<std::filesystem::path> dirs_;
};

WorkFolders& workFolders() {
    // gtest owns the environment and deletes it after the run.
    static auto* folders =
        static_cast<WorkFolders*>(::testing::AddGlobalTestEnvironment(new WorkFolders));
    return *folders;
}

}  // namespace

std::filesystem::path freshDir(std::string name) {
    std::replace(name.begin(), name.end(), '/', '_');  // parameterised tests' names hold slashes
    auto dir = scratchDir() / "work" / (name + "-" + std::to_string(::getpid()));
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    workFolders().add(dir);
    return dir;
}

}  // namespace testing_support
