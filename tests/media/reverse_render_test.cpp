#include "media/reverse_render.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/sample_media.h"
#include "support/media_fixtures.h"

namespace {

namespace fs = std::filesystem;
using media::renderReversedMedia;
using media::ReverseChunk;
using media::reverseChunks;
using media::reverseFrameSpacingTicks;
using testing_support::ffprobe;
using testing_support::makeMedia;
using testing_support::quote;

constexpr int kWidth = 160;
constexpr int kHeight = 120;
constexpr std::size_t kFrameBytes = static_cast<std::size_t>(kWidth) * kHeight;

// testsrc2 moves every frame, so neighbouring frames differ clearly. B-frames make
// presentation and decoding order differ.
const std::string kPicture = sample_media::picture(kWidth, kHeight) + "-t 6 ";
const std::string kH264WithBFrames = "-c:v libx264 -preset ultrafast -bf 2 -pix_fmt yuv420p ";

// A keyframe every half second.
fs::path shortGopSource() {
    return makeMedia("reverse_short_gop.mp4", kPicture + kH264WithBFrames + "-g 15");
}
// One keyframe at the start only, so no window starts on a keyframe.
fs::path longGopSource() {
    return makeMedia("reverse_long_gop.mp4",
                     kPicture + kH264WithBFrames + "-g 600 -keyint_min 600 -sc_threshold 0");
}

// Presentation times in seconds of the first video stream's frames, from the ffprobe tool.
std::vector<double> frameTimes(const fs::path& file) {
    std::istringstream lines(ffprobe(
        file, "-select_streams v:0 -show_entries frame=best_effort_timestamp_time -of csv=p=0"));
    std::vector<double> times;
    for (std::string line; std::getline(lines, line);)
        if (!line.empty()) times.push_back(std::stod(line));
    return times;
}

// The luma planes of every frame, decoded by the ffmpeg tool without dropping or repeating.
std::vector<std::vector<std::uint8_t>> lumaFrames(const fs::path& file) {
    const std::string bytes = testing_support::outputOf(
        std::string(VANTRELL_FFMPEG) + " -nostdin -loglevel error -i " + quote(file.string()) +
        " -map 0:v:0 -fps_mode passthrough -f rawvideo -pix_fmt gray -");
    EXPECT_EQ(bytes.size() % kFrameBytes, 0u);
    std::vector<std::vector<std::uint8_t>> frames;
    for (std::size_t at = 0; at + kFrameBytes <= bytes.size(); at += kFrameBytes)
        frames.emplace_back(bytes.begin() + at, bytes.begin() + at + kFrameBytes);
    return frames;
}

// The share of pixels, in percent, that differ by more than re-encoding noise: where a
// picture moves, its neighbours differ by far more, while the static parts weigh nothing.
double percentChanged(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
    constexpr int kNoise = 32;
    std::size_t changed = 0;
    for (std::size_t i = 0; i < a.size(); ++i) changed += std::abs(a[i] - b[i]) > kNoise;
    return 100.0 * static_cast<double>(changed) / static_cast<double>(a.size());
}

// The output holds the source frames whose times lie in [from, to), last first: as many,
// and each closer to its own source frame than to that frame's neighbours.
void expectReversedFrames(const fs::path& source, const fs::path& output, double from, double to,
                          std::size_t expectedCount) {
    const auto times = frameTimes(source);
    const auto sourceFrames = lumaFrames(source);
    ASSERT_EQ(times.size(), sourceFrames.size());
    std::vector<std::size_t> range;
    for (std::size_t i = 0; i < times.size(); ++i) {
        // Times count from the first frame. ffprobe prints six decimals; the sources'
        // frame times are whole frames.
        const double time = times[i] - times.front();
        if (time >= from - 1e-4 && time < to - 1e-4) range.push_back(i);
    }
    ASSERT_EQ(range.size(), expectedCount);

    const auto written = lumaFrames(output);
    ASSERT_EQ(written.size(), range.size());
    for (std::size_t i = 0; i < written.size(); ++i) {
        const std::size_t expected = range[range.size() - 1 - i];
        const auto& frame = written[i];
        const double own = percentChanged(frame, sourceFrames[expected]);
        EXPECT_LT(own, 1.0) << "output frame " << i << " against source frame " << expected;
        const std::size_t first = expected >= 3 ? expected - 3 : 0;
        for (std::size_t j = first; j <= expected + 3 && j < sourceFrames.size(); ++j) {
            if (j == expected) continue;
            EXPECT_LT(own * 2, percentChanged(frame, sourceFrames[j]))
                << "output frame " << i << " is about as close to source frame " << j << " as to "
                << expected;
        }
    }
}

// What renderReversedMedia answered, and what it logged.
struct Render {
    std::optional<fs::path> file;
    std::string log;
};

Render render(const fs::path& source, double from, double to) {
    testing::internal::CaptureStderr();
    Render r;
    r.file = renderReversedMedia(source, from, to);
    r.log = testing::internal::GetCapturedStderr();
    return r;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Renders with the system temporary folder pointed at `folder`, and points it back.
Render renderInto(const fs::path& folder, const fs::path& source, double from, double to) {
    const char* old = std::getenv("TMPDIR");
    const std::optional<std::string> previous =
        old ? std::optional<std::string>(old) : std::nullopt;
    ::setenv("TMPDIR", folder.c_str(), 1);
    Render r = render(source, from, to);
    if (previous)
        ::setenv("TMPDIR", previous->c_str(), 1);
    else
        ::unsetenv("TMPDIR");
    return r;
}

TEST(ReverseFrameSpacing, RoundsSixHundredOverTheRateHalfAwayFromZero) {
    const std::pair<double, int> cases[] = {{29.97, 20},
                                            {23.976, 25},
                                            {25, 24},
                                            {48, 13},
                                            // Rising times beyond 600 a second, 32 bits below.
                                            {5000, 1},
                                            {1e-300, INT32_MAX},
                                            // An unknown rate gives 20 ticks.
                                            {0, 20},
                                            {-25, 20},
                                            {std::nan(""), 20}};
    for (auto [rate, ticks] : cases) EXPECT_EQ(reverseFrameSpacingTicks(rate), ticks) << rate;
}

TEST(ReverseChunks, WindowsOfTwoSecondsTileTheRangeInTicks) {
    EXPECT_EQ(reverseChunks(0, 5),
              (std::vector<ReverseChunk>{{0, 1200}, {1200, 2400}, {2400, 3000}}));
    EXPECT_EQ(reverseChunks(1.3, 4.7), (std::vector<ReverseChunk>{{780, 1980}, {1980, 2820}}));
    EXPECT_EQ(reverseChunks(2, 2.5), (std::vector<ReverseChunk>{{1200, 1500}}));
    // An empty or unbounded range gives none.
    EXPECT_TRUE(reverseChunks(3, 3).empty());
    EXPECT_TRUE(reverseChunks(4, 3).empty());
    EXPECT_TRUE(reverseChunks(0, INFINITY).empty());
    EXPECT_TRUE(reverseChunks(std::nan(""), 3).empty());
}

// A range asked of a source, the part of it the file holds, and what the render must give.
struct RangeCase {
    std::string name;
    std::function<fs::path()> source;
    double from;
    double to;
    double shownFrom;
    double shownTo;
    int windows;
    std::size_t frames;
    double rate = 30;
};

void PrintTo(const RangeCase& c, std::ostream* os) {
    *os << c.name;
}

class ReverseRange : public testing::TestWithParam<RangeCase> {};

TEST_P(ReverseRange, WritesTheRangeLastFrameFirstAsANewH264QuickTimeMovie) {
    const RangeCase& c = GetParam();
    const auto source = c.source();
    const auto r = render(source, c.from, c.to);
    ASSERT_TRUE(r.file) << r.log;

    char chunked[96];
    std::snprintf(chunked, sizeof chunked, "chunked [%f..%f] into %d windows", c.shownFrom,
                  c.shownTo, c.windows);
    char wrote[64];
    std::snprintf(wrote, sizeof wrote, "wrote %zu frames at %ffps", c.frames, c.rate);
    for (const std::string& line : {"start: " + source.filename().string(), std::string(chunked),
                                    std::string(wrote), "wrote " + r.file->string()})
        EXPECT_TRUE(contains(r.log, line)) << line << " is not in\n" << r.log;

    EXPECT_EQ(r.file->parent_path(), fs::temp_directory_path());
    const std::regex name(
        "vantrell-reversed-[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-"
        "[0-9A-F]{12}\\.mov");
    EXPECT_TRUE(std::regex_match(r.file->filename().string(), name)) << *r.file;
    // libx264 takes yuv420p whatever the source's pixel format.
    EXPECT_EQ(
        ffprobe(*r.file,
                "-show_entries stream=codec_type,codec_name,width,height,pix_fmt -of csv=p=0"),
        "h264,video,160,120,yuv420p\n");
    EXPECT_EQ(ffprobe(*r.file, "-show_entries format_tags=major_brand -of csv=p=0"), "qt  \n");

    // Frames are spaced by the spacing rule.
    const auto times = frameTimes(*r.file);
    ASSERT_EQ(times.size(), c.frames);
    for (std::size_t i = 0; i < times.size(); ++i)
        EXPECT_NEAR(times[i], i * reverseFrameSpacingTicks(c.rate) / 600.0, 1e-4);
    expectReversedFrames(source, *r.file, c.shownFrom, c.shownTo, c.frames);
}

// A source made only when a test needs it.
std::function<fs::path()> later(const std::string& name, const std::string& args) {
    return [=] { return makeMedia(name, args); };
}

INSTANTIATE_TEST_SUITE_P(
    RenderReversedMedia, ReverseRange,
    testing::Values(
        RangeCase{"FiveSecondsInThreeWindows", shortGopSource, 0, 5, 0, 5, 3, 150},
        // 1.3, 3.3 and 4.7 s fall exactly on frames 39, 99 and 141: a frame on a window's
        // start belongs to that window, one on its end to the next, so each is written once.
        RangeCase{"RangeOffKeyframes", longGopSource, 1.3, 4.7, 1.3, 4.7, 2, 102},
        RangeCase{"RangeBetweenFramesStartsAtTheNextFrame", longGopSource, 2.51, 4.49, 2.51, 4.49,
                  1, 59},
        // The MPEG-TS demuxer's seek may land a keyframe later than asked, even at the start.
        RangeCase{"TransportStreamThatSeeksLate",
                  later("reverse_long_gop.ts", kPicture + kH264WithBFrames + "-g 45"), 0.9, 4.7,
                  0.9, 4.7, 2, 114},
        RangeCase{"EndPastTheFileIsClamped", longGopSource, 4, 100, 4, 6, 1, 60},
        RangeCase{"NegativeStartIsClampedToZero", shortGopSource, -3, 0.5, 0, 0.5, 1, 15},
        RangeCase{"TwentyFiveFramesASecond",
                  later("reverse_25fps.mp4",
                        sample_media::picture(kWidth, kHeight, 25) + "-t 1 " + kH264WithBFrames),
                  0, 1, 0, 1, 1, 25, 25}),
    [](const testing::TestParamInfo<RangeCase>& info) { return info.param.name; });

TEST(RenderReversedMedia, KeepsTheStoredPictureEvenSizedWithoutADisplayMatrix) {
    const auto turned = render(sample_media::rotatedClockwise90Mp4(), 0, 1);
    ASSERT_TRUE(turned.file) << turned.log;
    EXPECT_EQ(ffprobe(*turned.file, "-show_entries stream=width,height -of csv=p=0"), "320,240\n");
    EXPECT_FALSE(
        contains(ffprobe(*turned.file, "-show_entries stream_side_data=side_data_type -of csv=p=0"),
                 "Display Matrix"));
    // An odd-sized source loses its last row and column.
    const auto odd = render(
        makeMedia("reverse_161x121.mkv", sample_media::picture(kWidth, kHeight) +
                                             "-t 1 -vf scale=161:121 -c:v ffv1 -pix_fmt yuv420p"),
        0, 1);
    ASSERT_TRUE(odd.file) << odd.log;
    EXPECT_EQ(ffprobe(*odd.file, "-show_entries stream=width,height -of csv=p=0"), "160,120\n");
    EXPECT_EQ(frameTimes(*odd.file).size(), 30u);
}

TEST(RenderReversedMedia, WhatCantBeRenderedAnswersNothingAndSaysWhy) {
    const fs::path text = testing_support::makeFile("reverse_notes.mov", "not a movie\n");
    struct Failure {
        fs::path source;
        double from;
        double to;
        std::string says;
    };
    for (const auto& [source, from, to, says] : {
             Failure{shortGopSource(), 2, 2, "error: requested reverse range is empty"},
             Failure{shortGopSource(), 3, 1, "error: requested reverse range is empty"},
             Failure{shortGopSource(), 7, 9, "error: requested reverse range is empty"},
             Failure{sample_media::aacM4a(), 0, 1, "error: source has no video track"},
             Failure{text, 0, 1, "error: failed to load asset duration"},
             Failure{text.parent_path() / "missing.mov", 0, 1, "error: "},
         }) {
        const auto r = render(source, from, to);
        EXPECT_FALSE(r.file) << source << " " << from << ".." << to;
        EXPECT_TRUE(contains(r.log, says)) << r.log;
    }
}

TEST(RenderReversedMedia, FailuresOfTheTemporaryFolderLeaveNoFile) {
    const fs::path folder = testing_support::freshDir("reverse-empty");
    const auto empty = renderInto(folder, shortGopSource(), 1.01, 1.02);
    EXPECT_FALSE(empty.file);
    EXPECT_TRUE(contains(empty.log, "error: no frames in the requested range")) << empty.log;
    EXPECT_TRUE(fs::is_empty(folder));

    const auto nowhere = renderInto(folder / "no-such-folder", shortGopSource(), 0, 1);
    EXPECT_FALSE(nowhere.file);
    EXPECT_TRUE(contains(nowhere.log, "error: failed to create writer")) << nowhere.log;
}

TEST(RenderReversedMedia, RendersAreRemovedWhenTheProcessExits) {
    const auto source = shortGopSource();
    const fs::path folder = testing_support::freshDir("reverse-exit");
    EXPECT_EXIT(
        {
            ::setenv("TMPDIR", folder.c_str(), 1);
            const auto file = renderReversedMedia(source, 0, 0.5);
            std::exit(file && fs::exists(*file) ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_TRUE(fs::is_empty(folder));
}

}  // namespace
