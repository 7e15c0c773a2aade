#include <iostream>

#include "cli/commands.h"

namespace cli {

bool wantsHelp(const Arguments& args, const char* usage) {
    for (const auto& a : args) {
        if (a == "--help" || a == "-h") {
            std::cout << usage;
            return true;
        }
    }
    return false;
}

int fail(const std::string& message) {
    std::cerr << "vantrell-cli: " << message << "\n";
    return 1;
}

}  // namespace cli
