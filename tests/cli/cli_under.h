#pragma once

#include <string>

#include "cli_fixture.h"

namespace cli_testing {

// Runs vantrell-cli as cli() does, after the shell words `prefix` ("timeout 60", a ulimit
// with a variable, ...) that set up how it runs.
CliRun cliUnder(const std::string& prefix, const std::string& args, const fs::path& workDir);

}  // namespace cli_testing
