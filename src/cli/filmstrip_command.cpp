#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>

#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "common/uuid.h"
#include "composition/frame_grab.h"
#include "media/filmstrip.h"
#include "media/probe.h"

namespace cli {

namespace {

constexpr const char* kUsage =
    "usage: vantrell-cli filmstrip FILE -o DIR\n"
    "\n"
    "Writes the frames that the timeline shows for the file as PNG files frame-01.png,\n"
    "frame-02.png, ... in DIR, which is made if missing: one frame every 1.5 s of the file,\n"
    "3 to 24 of them, at most 160 x 90, upright. Prints one JSON object per frame, one per\n"
    "line: file, seconds (the time the frame stands for), width and height. A frame that\n"
    "can't be decoded is left out; if none can, or the file has no video, this fails.\n";

std::string frameName(std::size_t number) {
    char name[32];
    std::snprintf(name, sizeof name, "frame-%02zu.png", number);
    return name;
}

}  // namespace

int filmstripCommand(const Arguments& args) {
    if (wantsHelp(args, kUsage)) return 0;
    std::optional<std::filesystem::path> file, dir;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const auto& a = args[i];
        if (a == "-o" || a == "--output") {
            if (++i == args.size()) return fail("-o needs a folder");
            dir = std::filesystem::absolute(args[i]);
        } else if (a.starts_with("-") && a.size() > 1) {
            return fail("unknown option '" + a + "' for filmstrip");
        } else if (!file) {
            file = std::filesystem::absolute(a);
        } else {
            return fail("filmstrip takes one media file");
        }
    }
    if (!file || !dir) {
        std::cerr << kUsage;
        return 2;
    }
    auto clip =
        media::probeClip(*file, std::nullopt, common::Uuid::random(), media::ThumbnailPolicy::skip);
    if (!clip) return fail(clip.error().message);
    if (!clip->hasVideo) return fail(file->string() + " has no video to take frames from.");
    auto frames = media::generateFilmstripFrames(*file, clip->fullDurationSeconds);
    if (frames.empty()) return fail("no frame of " + file->string() + " could be decoded.");

    std::error_code ec;
    std::filesystem::create_directories(*dir, ec);
    if (ec || !std::filesystem::is_directory(*dir))
        return fail("can't make the folder " + dir->string() +
                    (ec ? ": " + ec.message() + "." : ": a file of that name is in the way."));
    for (std::size_t i = 0; i < frames.size(); ++i) {
        auto target = *dir / frameName(i + 1);
        const auto& image = frames[i].image;
        if (auto written = composition::writePng(image, target); !written)
            return fail(written.error().message);
        nlohmann::json line = {{"file", target.string()},
                               {"seconds", frames[i].seconds},
                               {"width", image->width},
                               {"height", image->height}};
        std::cout << line.dump() << "\n";
    }
    return 0;
}

}  // namespace cli
