#include <cmath>
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

std::optional<double> parseSeconds(const std::string& text) {
    try {
        std::size_t used = 0;
        const double seconds = std::stod(text, &used);
        if (used == text.size() && std::isfinite(seconds) && seconds >= 0) return seconds;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

int fail(const std::string& message) {
    std::cerr << "vantrell-cli: " << message << "\n";
    return 1;
}

}  // namespace cli
