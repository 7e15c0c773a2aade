#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

#include "cli/commands.h"
#include "cli/session.h"
#include "composition/frame_grab.h"
#include "media/project_document.h"

namespace cli {

namespace {
constexpr const char* kUsage =
    "usage: vantrell-cli frame PROJECT.vantrell --at SECONDS -o OUT.png\n"
    "\n"
    "Writes the picture at a time of the timeline as a PNG file: the top clip's frame,\n"
    "exact, upright and uncropped. Fails where there is no picture (a gap, audio only).\n";
}

int frameCommand(const Arguments& args) {
    if (wantsHelp(args, kUsage)) return 0;
    std::optional<std::filesystem::path> project, out;
    std::optional<double> at;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const auto& a = args[i];
        if (a == "-o" || a == "--output") {
            if (++i == args.size()) return fail("-o needs a file name");
            out = args[i];
        } else if (a == "--at") {
            if (++i == args.size()) return fail("--at needs a time in seconds");
            at = parseSeconds(args[i]);
            if (!at) return fail("'" + args[i] + "' is not a time in seconds");
        } else if (a.starts_with("-") && a.size() > 1) {
            return fail("unknown option '" + a + "' for frame");
        } else if (!project) {
            project = a;
        } else {
            return fail("frame takes one project file");
        }
    }
    if (!project || !out || !at) {
        std::cerr << kUsage;
        return 2;
    }
    Session session;
    auto opened = media::ProjectDocument::open(*project, session.context());
    if (!opened) return fail(opened.error().message);
    auto& p = (*opened)->project();
    session.drain();
    p.setPlayheadGlobal(*at);
    if (!p.videoAtPlayhead())
        return fail("there is no picture at " + std::to_string(*at) +
                    " s (a gap, audio only, or past the end).");
    auto image = composition::grabFrame(p.clips(), *at);
    if (!image) return fail("the frame at " + std::to_string(*at) + " s could not be decoded.");
    if (auto written = composition::writePng(image, std::filesystem::absolute(*out)); !written)
        return fail(written.error().message);
    std::cout << "Wrote " << std::filesystem::absolute(*out).string() << " (" << image->width << "x"
              << image->height << ")\n";
    return 0;
}

}  // namespace cli
