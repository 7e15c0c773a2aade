#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "support/media_fixtures.h"

// What the two Linux player stacks make of a file: libavformat/libavcodec as the ffmpeg
// tool drives them (mpv, ffplay and most players), and GStreamer's qtdemux and decodebin
// (GNOME's players). Pictures come as raw I420 frames in presentation order, sound as
// mono 16-bit samples at 48 kHz.
namespace player_playback {

namespace fs = std::filesystem;

enum class Player { ffmpeg = 1, gstreamer };

inline const char* nameOf(Player player) {
    return player == Player::ffmpeg ? "ffmpeg" : "GStreamer";
}

struct Playback {
    std::vector<std::string> pictures;
    std::vector<std::int16_t> samples;
};

inline std::vector<std::string> splitPictures(const std::string& raw, int width, int height) {
    const std::size_t size = static_cast<std::size_t>(width) * height * 3 / 2;
    std::vector<std::string> pictures;
    if (size == 0) return pictures;
    for (std::size_t at = 0; at + size <= raw.size(); at += size)
        pictures.push_back(raw.substr(at, size));
    return pictures;
}

inline std::vector<std::int16_t> toSamples(const std::string& raw) {
    std::vector<std::int16_t> samples(raw.size() / 2);
    std::memcpy(samples.data(), raw.data(), samples.size() * 2);
    return samples;
}

inline Playback play(Player player, const fs::path& file, int width, int height) {
    using testing_support::outputOf;
    using testing_support::quote;
    const std::string f = quote(file.string());
    Playback playback;
    if (player == Player::ffmpeg) {
        const std::string tool = std::string(VANTRELL_FFMPEG) + " -nostdin -v error -i " + f;
        playback.pictures = splitPictures(
            outputOf(tool + " -map 0:v:0? -fps_mode passthrough -pix_fmt yuv420p -f rawvideo -"),
            width, height);
        playback.samples =
            toSamples(outputOf(tool + " -map 0:a:0? -ac 1 -ar 48000 -f s16le - 2>/dev/null"));
        return playback;
    }
    const std::string gst = "gst-launch-1.0 -q filesrc location=" + f + " ! qtdemux name=d d.";
    playback.pictures = splitPictures(
        outputOf(gst + "video_0 ! queue ! decodebin ! videoconvert ! video/x-raw,format=I420 ! "
                       "fdsink fd=1 2>/dev/null"),
        width, height);
    playback.samples = toSamples(
        outputOf(gst + "audio_0 ! queue ! decodebin ! audioconvert ! audioresample ! "
                       "audio/x-raw,format=S16LE,channels=1,rate=48000 ! fdsink fd=1 2>/dev/null"));
    return playback;
}

// Peak signal-to-noise ratio of two 8-bit pictures in dB; infinite when identical.
inline double psnr(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return 0;
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double d = static_cast<unsigned char>(a[i]) - static_cast<unsigned char>(b[i]);
        sum += d * d;
    }
    if (sum == 0) return INFINITY;
    return 10 * std::log10(255.0 * 255.0 * a.size() / sum);
}

// A black I420 picture in limited range.
inline std::string blackPicture(int width, int height) {
    const std::size_t luma = static_cast<std::size_t>(width) * height;
    return std::string(luma, '\x10') + std::string(luma / 2, '\x80');
}

}  // namespace player_playback
