#pragma once

#include <string_view>

namespace common {

// The system log stands in as standard error: one line per message.
// Safe to call from any thread; lines never interleave.
void logLine(std::string_view text);

enum class LogLevel { info, error };

// A named logger in the style "subsystem/category"; each line it writes is
// prefixed with its category so that a reader can filter by it.
class Logger {
  public:
    constexpr Logger(std::string_view subsystem, std::string_view category)
        : subsystem_(subsystem), category_(category) {}

    void log(LogLevel level, std::string_view text) const;
    void info(std::string_view text) const { log(LogLevel::info, text); }
    void error(std::string_view text) const { log(LogLevel::error, text); }

    std::string_view subsystem() const { return subsystem_; }
    std::string_view category() const { return category_; }

  private:
    std::string_view subsystem_;
    std::string_view category_;
};

inline constexpr std::string_view kLogSubsystem = "com.corvane.vantrell";
inline constexpr Logger exportLog{kLogSubsystem, "export"};
inline constexpr Logger reverseLog{kLogSubsystem, "reverse"};

}  // namespace common
