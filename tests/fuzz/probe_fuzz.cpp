// The probe with its thumbnail: any bytes make media by the probe's own rule or a message.
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "common/uuid.h"
#include "media/media_check.h"
#include "media/probe.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // One file per process, rewritten for each input, so that parallel jobs don't collide.
    static const auto file = std::filesystem::temp_directory_path() /
                             ("vantrell-probe-fuzz-" + std::to_string(::getpid()) + ".media");
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    auto clip = media::probeClip(file, std::nullopt, common::Uuid::random());
    if (!clip) {
        if (clip.error().message.empty()) std::abort();
        return 0;
    }
    const model::Clip& c = *clip;
    if (!(c.fullDurationSeconds > 0) || c.fullDurationSeconds > media::kLongestMediaSeconds ||
        std::max(c.naturalSize.width, c.naturalSize.height) > media::kLargestPictureSide)
        std::abort();
    return 0;
}
