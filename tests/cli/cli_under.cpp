#include "cli_under.h"

namespace cli_testing {

CliRun cliUnder(const std::string& prefix, const std::string& args, const fs::path& workDir) {
    const auto out = workDir / "stdout.txt";
    const auto err = workDir / "stderr.txt";
    CliRun r;
    r.status = testing_support::run("(" + prefix + " " + std::string(VANTRELL_CLI) + " " + args +
                                    ") >" + quote(out.string()) + " 2>" + quote(err.string()));
    r.out = testing_support::contentsOf(out);
    r.err = testing_support::contentsOf(err);
    return r;
}

}  // namespace cli_testing
