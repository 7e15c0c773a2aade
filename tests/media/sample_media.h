#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

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
inline const std::string kHevc = "-c:v libx265 -preset ultrafast -x265-params log-level=error ";
inline const std::string kProRes = "-c:v prores_ks -profile:v 3";

// One second of 320 x 240 H.264 with AAC, in a file of the given extension.
inline std::filesystem::path h264WithAac(const std::string& extension) {
    return makeMedia("h264_aac." + extension,
                     picture(320, 240) + kTone + "-t 1 " + kH264 + "-c:a aac");
}
inline std::filesystem::path h264Mp4() {
    return h264WithAac("mp4");
}
inline std::filesystem::path h264VideoOnlyMp4() {
    return makeMedia("h264_only.mp4", picture(320, 240) + "-t 1 " + kH264);
}
inline std::filesystem::path h264PortraitMp4() {
    return makeMedia("h264_240x320.mp4", picture(240, 320) + "-t 0.5 " + kH264);
}
inline std::filesystem::path hevcMkv() {
    return makeMedia("hevc.mkv", picture(320, 240) + "-t 1 " + kHevc);
}
// Frames 1/30 s apart in a Matroska file whose block durations say 1/60 s, as some
// phones' files do.
inline std::filesystem::path h264MkvStatingTwiceItsRate() {
    return makeMedia("h264_rate_twice.mkv",
                     picture(320, 240) + "-t 1 " + kH264 + "-fps_mode passthrough -r 60");
}
// hev1 is the sample entry FFmpeg writes for HEVC in MP4 unless told otherwise.
inline std::filesystem::path hevcMp4(const std::string& tag) {
    return makeMedia("hevc_" + tag + ".mp4", picture(320, 240) + "-t 1 " + kHevc + "-tag:v " + tag);
}
inline std::filesystem::path mpeg4Avi() {
    return makeMedia("mpeg4_mp3.avi",
                     picture(320, 240, 25) + kTone + "-t 1 -c:v mpeg4 -c:a libmp3lame");
}
inline std::filesystem::path vp9Webm() {
    return makeMedia("vp9_opus.webm",
                     picture(160, 120) + kTone +
                         "-t 1 -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 200k "
                         "-c:a libopus");
}
inline std::filesystem::path proRes(const std::string& extension) {
    return makeMedia("prores_hq." + extension, picture(160, 120) + "-t 0.2 " + kProRes);
}
// One second of a tone in `codec`, in a file of the given extension.
inline std::filesystem::path tone(const std::string& extension, const std::string& codec) {
    return makeMedia("tone_" + codec + "." + extension, kTone + "-t 1 -c:a " + codec);
}
inline std::filesystem::path aacM4a() {
    return tone("m4a", "aac");
}
inline std::filesystem::path wav() {
    return tone("wav", "pcm_s16le");
}
inline std::filesystem::path mp3WithCoverArt() {
    return makeMedia("tone_cover.mp3", kTone +
                                           "-f lavfi -i color=c=red:size=64x64 -map 0 -map 1 "
                                           "-t 1 -frames:v 1 -c:a libmp3lame -c:v png "
                                           "-disposition:v attached_pic");
}

// The video-only clip as a phone held upright marks it: turned 90 degrees clockwise.
inline std::filesystem::path rotatedClockwise90Mp4() {
    return testing_support::turnedCopy("h264_cw90.mp4", h264VideoOnlyMp4(), 90);
}
inline std::filesystem::path rotatedClockwise270Mp4() {
    return testing_support::turnedCopy("h264_cw270.mp4", h264VideoOnlyMp4(), 270);
}

// A Matroska file whose only stream is a subtitle.
inline std::filesystem::path subtitleOnlyMkv() {
    const auto srt =
        testing_support::makeFile("line.srt", "1\n00:00:00,000 --> 00:00:01,000\nHello\n");
    return makeMedia("subtitle_only.mkv",
                     "-i " + testing_support::quote(srt.string()) + " -c:s srt");
}

// A copy of `source` holding only its first `length` bytes.
inline std::filesystem::path firstBytes(const std::filesystem::path& source,
                                        const std::string& name, std::size_t length) {
    return testing_support::makeFile(name, testing_support::contentsOf(source).substr(0, length));
}

// The RGBA bytes of one pixel.
struct Rgba {
    int r = 0;
    int g = 0;
    int b = 0;
    int a = 0;
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
