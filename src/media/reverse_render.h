#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace media {

// Times of a backward render are counted in ticks of 1/600 s.
inline constexpr std::int64_t kReverseTicksPerSecond = 600;
// The source is read in windows of this much source time, last window first.
inline constexpr double kReverseChunkSeconds = 2.0;
// The libx264 preset of backward renders: a balance of speed and size.
inline constexpr std::string_view kReverseEncoderPreset = "veryfast";

// Ticks between output frames for a source of `nominalFrameRate` frames per second:
// 600 / rate rounded half away from zero, kept within 1 and INT32_MAX; 20 when the rate is 0,
// negative or NaN.
std::int64_t reverseFrameSpacingTicks(double nominalFrameRate);

// One window of the source, [startTicks, endTicks) in ticks from the video stream's start.
struct ReverseChunk {
    std::int64_t startTicks = 0;
    std::int64_t endTicks = 0;

    friend bool operator==(const ReverseChunk&, const ReverseChunk&) = default;
};

// The windows covering [startSeconds, endSeconds) in rising order: kReverseChunkSeconds
// each, the last one possibly shorter. Empty when the range is not above 0 or not finite.
std::vector<ReverseChunk> reverseChunks(double startSeconds, double endSeconds);

// Renders the first video stream of `url` between `fromSeconds` and `toSeconds` (seconds
// from the stream's start, clamped to the file's length) backward into a new QuickTime
// movie "vantrell-reversed-<UUID>.mov" in the system temporary folder. Every source frame
// whose time lies in [from, to) is written exactly once, the last first; a frame on a
// window boundary belongs to the window it starts. The movie holds one H.264 track
// (libx264, kReverseEncoderPreset, the source stream's bit rate or 8 Mbit/s if unknown) at
// one frame every reverseFrameSpacingTicks, in the stored size and orientation (an odd
// edge loses its last row or column) and in the source's pixel format when libx264 takes
// it, else yuv420p. Answers the new file, or none on any failure (logged on
// common::reverseLog, with no file left behind). Holds at most one window of decoded
// frames. Files it made are removed when the process exits normally. Safe to call from
// any thread, also at once.
std::optional<std::filesystem::path> renderReversedMedia(const std::filesystem::path& url,
                                                         double fromSeconds, double toSeconds);

}  // namespace media
