#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cli {

using Arguments = std::vector<std::string>;

// Each command answers the process exit status: 0 on success. Errors go to standard
// error as one sentence naming the file and what is wrong.
int probeCommand(const Arguments& args);
int newCommand(const Arguments& args);
int infoCommand(const Arguments& args);
int editCommand(const Arguments& args);
int exportCommand(const Arguments& args);
int frameCommand(const Arguments& args);
int peaksCommand(const Arguments& args);
int filmstripCommand(const Arguments& args);
int waveformCommand(const Arguments& args);
int playCommand(const Arguments& args);

// True if `args` asks for help; prints `usage` to standard output then.
bool wantsHelp(const Arguments& args, const char* usage);

// `text` as a time of 0 seconds or more, if it is wholly one.
std::optional<double> parseSeconds(const std::string& text);

// Prints "vantrell-cli: MESSAGE" to standard error and answers 1.
int fail(const std::string& message);

}  // namespace cli
