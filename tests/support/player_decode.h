#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// Every picture and sample the ffmpeg tool or GStreamer would play of a file, edit lists and all.
namespace testing_support {

enum class Player { ffmpeg, gstreamer };

inline constexpr Player kPlayers[] = {Player::ffmpeg, Player::gstreamer};

const char* playerName(Player player);

// 8-bit 4:2:0 planes, as most sources are coded, or packed R, G, B for checks on colour.
enum class PixelLayout { i420, rgb24 };

struct VideoDecodeOptions {
    PixelLayout layout = PixelLayout::i420;
    // Scaled to this size first when set; keeps long real-world files small on disk.
    std::optional<std::pair<int, int>> size;
};

// The first video stream as shown, upright; the frames stay on disk in `rawFile`.
struct DecodedVideo {
    std::string error;  // empty when the player decoded the file
    int width = 0;
    int height = 0;
    PixelLayout layout = PixelLayout::i420;
    std::vector<double> seconds;      // each frame's presentation time on the player's clock
    std::vector<std::string> hashes;  // of each frame's bytes
    std::vector<double> meanLuma;     // 0-255, per frame of an i420 decode
    std::filesystem::path rawFile;

    std::size_t frameCount() const { return hashes.size(); }
    std::size_t frameBytes() const;
    std::vector<std::uint8_t> frame(std::size_t index) const;
};

// The first audio stream as played, resampled so that files compare sample for sample.
struct DecodedAudio {
    std::string error;
    int sampleRateHz = 0;
    int channels = 0;
    double startSeconds = 0;     // when the first sample plays, on the player's clock
    std::vector<float> samples;  // interleaved

    std::int64_t frameCount() const { return channels ? std::ssize(samples) / channels : 0; }
    double seconds() const { return sampleRateHz ? double(frameCount()) / sampleRateHz : 0; }
    // The largest magnitude of any channel between two times after the first sample.
    float peakBetween(double fromSeconds, double toSeconds) const;
};

// `workDir` holds the raw frames; decoding the same file again there replaces them.
DecodedVideo decodeVideo(const std::filesystem::path& file, Player player,
                         const std::filesystem::path& workDir,
                         const VideoDecodeOptions& options = {});

DecodedAudio decodeAudio(const std::filesystem::path& file, Player player, int sampleRateHz = 48000,
                         int channels = 2);

// Peak signal-to-noise ratio of two frames of equal size in dB; infinity when identical.
double psnr(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b);

// True when a frame's mean luma is at most that of limited-range black plus a margin.
bool looksBlack(double meanLuma);

}  // namespace testing_support
