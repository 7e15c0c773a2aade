#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

#include "cli/commands.h"
#include "common/uuid.h"
#include "composition/frame_grab.h"
#include "media/probe.h"
#include "media/waveform.h"

namespace cli {

namespace {
constexpr const char* kUsage =
    "usage: vantrell-cli waveform FILE -o OUT.png\n"
    "\n"
    "Writes the picture of the file's audio that the timeline shows, 1600 x 60 on a clear\n"
    "background, as a PNG file. Fails if the file has no audio, or if its audio can't be\n"
    "decoded to the end.\n";
}

int waveformCommand(const Arguments& args) {
    if (wantsHelp(args, kUsage)) return 0;
    std::optional<std::filesystem::path> file, out;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const auto& a = args[i];
        if (a == "-o" || a == "--output") {
            if (++i == args.size()) return fail("-o needs a file name");
            out = std::filesystem::absolute(args[i]);
        } else if (a.starts_with("-") && a.size() > 1) {
            return fail("unknown option '" + a + "' for waveform");
        } else if (!file) {
            file = std::filesystem::absolute(a);
        } else {
            return fail("waveform takes one media file");
        }
    }
    if (!file || !out) {
        std::cerr << kUsage;
        return 2;
    }
    auto clip =
        media::probeClip(*file, std::nullopt, common::Uuid::random(), media::ThumbnailPolicy::skip);
    if (!clip) return fail(clip.error().message);
    if (!clip->hasAudio) return fail(file->string() + " has no audio to draw.");
    int count = media::waveform::peakCountFor(clip->fullDurationSeconds);
    auto peaks = media::waveform::extractPeaks(*file, count);
    if (!peaks) return fail("the audio of " + file->string() + " can't be decoded to the end.");
    auto image = media::waveform::drawWaveform(*peaks);
    if (auto written = composition::writePng(image, *out); !written)
        return fail(written.error().message);
    std::cout << "Wrote " << out->string() << " (" << image->width << "x" << image->height << ", "
              << count << " peaks)\n";
    return 0;
}

}  // namespace cli
