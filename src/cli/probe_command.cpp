#include <filesystem>
#include <iostream>

#include "cli/commands.h"
#include "cli/project_json.h"
#include "common/uuid.h"
#include "media/probe.h"

namespace cli {

namespace {
constexpr const char* kUsage =
    "usage: vantrell-cli probe FILE...\n"
    "\n"
    "Prints one JSON object per file, one per line: displayName, hasVideo, hasAudio,\n"
    "fullDurationSeconds, frameRate, naturalSize [w, h], rotationDegrees, fingerprint and\n"
    "thumbnail ({width, height} or null). A file that can't be read gives an object with\n"
    "\"file\" and \"error\"; the others still print, and the exit status is 1.\n";
}

int probeCommand(const Arguments& args) {
    if (wantsHelp(args, kUsage)) return 0;
    if (args.empty()) {
        std::cerr << kUsage;
        return 2;
    }
    int status = 0;
    for (const auto& file : args) {
        auto clip =
            media::probeClip(std::filesystem::absolute(file), std::nullopt, common::Uuid::random());
        if (clip) {
            std::cout << probeJson(*clip).dump() << "\n";
        } else {
            std::cout << nlohmann::json{{"file", file}, {"error", clip.error().message}}.dump()
                      << "\n";
            status = 1;
        }
    }
    return status;
}

}  // namespace cli
