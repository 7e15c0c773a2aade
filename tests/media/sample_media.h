#pragma once

#include <unistd.h>
#include <cstdint>
#include <filesystem>
#include <fstream>
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

inline std::filesystem::path h264Mp4() {
    return makeMedia("h264_aac.mp4", picture(320, 240) + kTone + "-t 1 " + kH264 + "-c:a aac");
}
inline std::filesystem::path h264Mkv() {
    return makeMedia("h264_aac.mkv", picture(320, 240) + kTone + "-t 1 " + kH264 + "-c:a aac");
}
inline std::filesystem::path h264VideoOnlyMp4() {
    return makeMedia("h264_only.mp4", picture(320, 240) + "-t 1 " + kH264);
}
inline std::filesystem::path h264SmallMp4() {
    return makeMedia("h264_160x120.mp4", picture(160, 120) + "-t 1 " + kH264);
}
inline std::filesystem::path h264WideMp4() {
    return makeMedia("h264_640x360.mp4", picture(640, 360) + "-t 0.5 " + kH264);
}
inline std::filesystem::path h264PortraitMp4() {
    return makeMedia("h264_240x320.mp4", picture(240, 320) + "-t 0.5 " + kH264);
}
inline std::filesystem::path hevcMkv() {
    return makeMedia("hevc.mkv", picture(320, 240) + "-t 1 " + kHevc);
}
inline std::filesystem::path hevcHvc1Mp4() {
    return makeMedia("hevc_hvc1.mp4", picture(320, 240) + "-t 1 " + kHevc + "-tag:v hvc1");
}
// hev1 is the sample entry FFmpeg writes for HEVC in MP4 unless told otherwise.
inline std::filesystem::path hevcHev1Mp4() {
    return makeMedia("hevc_hev1.mp4", picture(320, 240) + "-t 1 " + kHevc + "-tag:v hev1");
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
inline std::filesystem::path proResMov() {
    return makeMedia("prores_hq.mov", picture(160, 120) + "-t 0.2 -c:v prores_ks -profile:v 3");
}
inline std::filesystem::path proResMkv() {
    return makeMedia("prores_hq.mkv", picture(160, 120) + "-t 0.2 -c:v prores_ks -profile:v 3");
}
inline std::filesystem::path aacM4a() {
    return makeMedia("aac.m4a", kTone + "-t 1 -c:a aac");
}
inline std::filesystem::path aacMkv() {
    return makeMedia("aac.mka", kTone + "-t 1 -c:a aac");
}
inline std::filesystem::path aacTs() {
    return makeMedia("aac.ts", kTone + "-t 1 -c:a aac");
}
inline std::filesystem::path mp3() {
    return makeMedia("tone.mp3", kTone + "-t 1 -c:a libmp3lame");
}
inline std::filesystem::path wav() {
    return makeMedia("tone.wav", kTone + "-t 1 -c:a pcm_s16le");
}
inline std::filesystem::path flac() {
    return makeMedia("tone.flac", kTone + "-t 1 -c:a flac");
}
inline std::filesystem::path opusOgg() {
    return makeMedia("tone.opus.ogg", kTone + "-t 1 -c:a libopus");
}
inline std::filesystem::path mp3WithCoverArt() {
    return makeMedia("tone_cover.mp3", kTone +
                                           "-f lavfi -i color=c=red:size=64x64 -map 0 -map 1 "
                                           "-t 1 -frames:v 1 -c:a libmp3lame -c:v png "
                                           "-disposition:v attached_pic");
}

// ffmpeg 5.1 turns a "rotate" tag of R into a display matrix that turns the picture R
// degrees counter-clockwise, so a phone's portrait clip (90 clockwise) needs the tag 270.
inline std::filesystem::path rotatedClockwise90Mp4() {
    return makeMedia("h264_cw90.mp4", "-i " + testing_support::quote(h264VideoOnlyMp4().string()) +
                                          " -c copy -metadata:s:v:0 rotate=270");
}
inline std::filesystem::path rotatedClockwise270Mp4() {
    return makeMedia("h264_cw270.mp4", "-i " + testing_support::quote(h264VideoOnlyMp4().string()) +
                                           " -c copy -metadata:s:v:0 rotate=90");
}

// A Matroska file whose only stream is a subtitle.
inline std::filesystem::path subtitleOnlyMkv() {
    const auto srt = testing_support::scratchDir() / "line.srt";
    if (!std::filesystem::exists(srt)) {
        // Tests run in parallel processes: write aside and rename, as makeMedia does.
        const auto partial = srt.string() + "." + std::to_string(::getpid());
        std::ofstream(partial) << "1\n00:00:00,000 --> 00:00:01,000\nHello\n";
        std::filesystem::rename(partial, srt);
    }
    return makeMedia("subtitle_only.mkv",
                     "-i " + testing_support::quote(srt.string()) + " -c:s srt");
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
