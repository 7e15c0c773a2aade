#include "common/log.h"

#include <cstdio>
#include <mutex>
#include <string>

namespace common {

namespace {
std::mutex& logMutex() {
    static std::mutex m;
    return m;
}
}  // namespace

void logLine(std::string_view text) {
    std::string line(text);
    line += '\n';
    std::lock_guard lock(logMutex());
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

void Logger::log(LogLevel level, std::string_view text) const {
    std::string line;
    line += '[';
    line += subsystem_;
    line += ':';
    line += category_;
    line += level == LogLevel::error ? "] error: " : "] ";
    line += text;
    logLine(line);
}

}  // namespace common
