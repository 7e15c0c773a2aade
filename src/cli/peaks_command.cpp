#include <charconv>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "common/uuid.h"
#include "media/probe.h"
#include "media/waveform.h"

namespace cli {

namespace {

constexpr const char* kUsage =
    "usage: vantrell-cli peaks FILE [--count N]\n"
    "\n"
    "Prints the audio levels of the file's first audio stream as one JSON object:\n"
    "{\"file\", \"count\", \"peaks\"}, with exactly N peaks in 0...1, in time order. N defaults\n"
    "to what the timeline asks for: 200 a second of the file, at least 1600. Fails if the\n"
    "file has no audio, or if its audio can't be decoded to the end.\n";

// Peaks are 32-bit floats: a JSON value of that width prints each as its shortest text.
using FloatJson = nlohmann::basic_json<std::map, std::vector, std::string, bool, std::int64_t,
                                       std::uint64_t, float>;

std::optional<int> parseCount(const std::string& text) {
    int v = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end != text.data() + text.size() || v <= 0) return std::nullopt;
    return v;
}

}  // namespace

int peaksCommand(const Arguments& args) {
    if (wantsHelp(args, kUsage)) return 0;
    std::optional<std::filesystem::path> file;
    std::optional<int> count;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const auto& a = args[i];
        if (a == "--count") {
            if (++i == args.size()) return fail("--count needs a number of peaks");
            count = parseCount(args[i]);
            if (!count) return fail("'" + args[i] + "' is not a number of peaks above 0");
        } else if (a.starts_with("-") && a.size() > 1) {
            return fail("unknown option '" + a + "' for peaks");
        } else if (!file) {
            file = std::filesystem::absolute(a);
        } else {
            return fail("peaks takes one media file");
        }
    }
    if (!file) {
        std::cerr << kUsage;
        return 2;
    }
    auto clip =
        media::probeClip(*file, std::nullopt, common::Uuid::random(), media::ThumbnailPolicy::skip);
    if (!clip) return fail(clip.error().message);
    if (!clip->hasAudio) return fail(file->string() + " has no audio to take peaks from.");
    int target = count.value_or(media::waveform::peakCountFor(clip->fullDurationSeconds));
    auto peaks = media::waveform::extractPeaks(*file, target);
    if (!peaks) return fail("the audio of " + file->string() + " can't be decoded to the end.");
    FloatJson out = {{"file", file->string()}, {"count", target}, {"peaks", *peaks}};
    std::cout << out.dump() << "\n";
    return 0;
}

}  // namespace cli
