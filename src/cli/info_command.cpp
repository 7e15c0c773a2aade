#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>

#include "cli/commands.h"
#include "cli/project_json.h"
#include "cli/session.h"
#include "media/project_document.h"

namespace cli {

namespace {

constexpr const char* kUsage =
    "usage: vantrell-cli info PROJECT.vantrell [--json]\n"
    "\n"
    "Opens the project as the window does (lost media become placeholders) and prints\n"
    "its clips, length, selection, playhead, zoom and framing. --json prints one JSON\n"
    "object, which also counts each clip's filmstrip frames and peaks, made from the\n"
    "media as the window makes them.\n";

std::string seconds(double s) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.3f", s);
    return buffer;
}

std::string rows(const model::Clip& c) {
    if (c.isOnVideoRow() && c.isOnAudioRow()) return "video+audio";
    if (c.isOnVideoRow()) return "video";
    if (c.isOnAudioRow()) return "audio";
    return "no row";
}

void printText(const model::Project& p, const std::filesystem::path& file) {
    std::cout << "Project " << file.string() << "\n";
    std::cout << p.clips().size() << (p.clips().size() == 1 ? " clip" : " clips") << ", "
              << seconds(p.totalDurationSeconds()) << " s\n";
    int index = 0;
    for (const auto& c : p.clips()) {
        std::cout << "  " << index++ << ". " << c.displayName << "  " << rows(c) << "  at "
                  << seconds(c.startOnTimeline) << "  in " << seconds(c.inSeconds) << "  out "
                  << seconds(c.outSeconds) << "  " << c.fingerprint;
        if (c.rateMultiplier != 1.0) std::cout << "  rate " << c.rateMultiplier;
        if (c.isReversed) std::cout << "  reversed";
        if (c.isMissing) std::cout << "  MISSING";
        std::cout << "\n";
    }
    auto selected = p.selectedClipID();
    std::cout << "Selection: " << (selected ? selected->toString() : "none") << "\n";
    std::cout << "Playhead " << seconds(p.playheadGlobal()) << " s, zoom " << p.zoomFactor()
              << ", framing " << model::toString(p.smallClipMode()) << ", crop " << p.cropInsetTop()
              << " " << p.cropInsetLeading() << " " << p.cropInsetTrailing() << " "
              << p.cropInsetBottom() << "\n";
}

}  // namespace

int infoCommand(const Arguments& args) {
    if (wantsHelp(args, kUsage)) return 0;
    bool asJson = false;
    std::optional<std::filesystem::path> file;
    for (const auto& a : args) {
        if (a == "--json")
            asJson = true;
        else if (a.starts_with("-") && a.size() > 1)
            return fail("unknown option '" + a + "' for info");
        else if (!file)
            file = a;
        else
            return fail("info takes one project file");
    }
    if (!file) {
        std::cerr << kUsage;
        return 2;
    }
    // --json shows each clip's pictures, so they are made as the window makes them.
    Session session(asJson ? Session::Pictures::make : Session::Pictures::skip);
    auto document = media::ProjectDocument::open(*file, session.context());
    if (!document) return fail(document.error().message);
    session.drain();
    const auto& project = (*document)->project();
    if (asJson)
        std::cout << projectJson(project).dump(2) << "\n";
    else
        printText(project, std::filesystem::absolute(*file));
    return 0;
}

}  // namespace cli
