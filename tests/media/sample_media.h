#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "model/image.h"
#include "support/media_fixtures.h"

// Tiny media files for the media tests, made by the ffmpeg tool on first use in a run.
namespace sample_media {

using testing_support::makeMedia;

inline std::string picture(int width, int height, int rate = 30) {
    return "-f lavfi -i testsrc2=size=" + std::to_string(width) + "x" + std::to_string(height) +
           ":rate=" + std::to_string(rate) + " ";
}

inline const std::string kTone = "-f lavfi -i sine=frequency=440:sample_rate=48000 ";
inline const std::string kH264 = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p ";
// One second of 320 x 240 H.264 with AAC.
inline std::filesystem::path h264Mp4() {
    return makeMedia("h264_aac.mp4", picture(320, 240) + kTone + "-t 1 " + kH264 + "-c:a aac");
}
inline std::filesystem::path h264VideoOnlyMp4() {
    return makeMedia("h264_only.mp4", picture(320, 240) + "-t 1 " + kH264);
}
// One second of a tone in `codec`, in a file of the given extension.
inline std::filesystem::path tone(const std::string& extension, const std::string& codec) {
    return makeMedia("tone_" + codec + "." + extension, kTone + "-t 1 -c:a " + codec);
}
// The video-only clip as a phone marks it, turned `degrees` clockwise.
inline std::filesystem::path turned(int degrees) {
    return testing_support::turnedCopy("h264_cw" + std::to_string(degrees) + ".mp4",
                                       h264VideoOnlyMp4(), degrees);
}

// A copy of `source` holding only its first `length` bytes.
inline std::filesystem::path firstBytes(const std::filesystem::path& source,
                                        const std::string& name, std::size_t length) {
    return testing_support::makeFile(name, testing_support::contentsOf(source).substr(0, length));
}

// A copy of `source` with its first `from` replaced by `to`, bytes of the same length.
inline std::filesystem::path patched(const std::filesystem::path& source, const std::string& name,
                                     const std::string& from, const std::string& to) {
    std::string bytes = testing_support::contentsOf(source);
    const auto at = bytes.find(from);
    EXPECT_NE(at, std::string::npos) << "the ffmpeg tool wrote " << source << " differently";
    if (at != std::string::npos) bytes.replace(at, from.size(), to);
    return testing_support::makeFile(name, bytes);
}

struct Rgba {
    int r = 0, g = 0, b = 0, a = 0;
};

inline Rgba pixel(const model::ImageData& image, int x, int y) {
    const auto* p = &image.rgba[(static_cast<std::size_t>(y) * image.width + x) * 4];
    return {p[0], p[1], p[2], p[3]};
}

inline bool isRed(Rgba c) {
    return c.r > 160 && c.g < 90 && c.b < 90;
}
inline bool isBlue(Rgba c) {
    return c.b > 160 && c.r < 90 && c.g < 90;
}

}  // namespace sample_media
