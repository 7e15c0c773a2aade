#include "media/reverse_render.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/sample_media.h"
#include "support/media_fixtures.h"
#include "support/player_decode.h"

namespace {

namespace fs = std::filesystem;
using media::renderReversedMedia;
using media::ReverseChunk;
using media::reverseChunks;
using media::reverseFrameSpacingTicks;
using testing_support::ffprobe;
using testing_support::makeMedia;

constexpr std::size_t kLumaBytes = 160 * 120;

// testsrc2 moves every frame; B-frames make presentation and decoding order differ.
const std::string kPicture = sample_media::picture(160, 120) + "-t 6 ";
const std::string kH264WithBFrames = "-c:v libx264 -preset ultrafast -bf 2 -pix_fmt yuv420p ";

fs::path shortGopSource() {
    return makeMedia("reverse_short_gop.mp4", kPicture + kH264WithBFrames + "-g 15");
}
// One keyframe at the start only, so no window starts on a keyframe.
fs::path longGopSource() {
    return makeMedia("reverse_long_gop.mp4",
                     kPicture + kH264WithBFrames + "-g 600 -keyint_min 600 -sc_threshold 0");
}

// Every frame as the ffmpeg tool decodes it, none dropped or repeated.
testing_support::DecodedVideo decoded(const fs::path& file) {
    static const fs::path dir = testing_support::freshDir("reverse-decoded");
    return testing_support::decodeVideo(file, testing_support::Player::ffmpeg, dir);
}

// The share of luma samples, in percent, that differ by more than re-encoding noise.
double percentChanged(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
    std::size_t changed = 0;
    for (std::size_t i = 0; i < kLumaBytes; ++i) changed += std::abs(a[i] - b[i]) > 32;
    return 100.0 * static_cast<double>(changed) / kLumaBytes;
}

// The output holds the source frames in [from, to) last first, each nearest its own.
void expectReversedFrames(const fs::path& source, const testing_support::DecodedVideo& written,
                          double from, double to) {
    const auto sourceFrames = decoded(source);
    const auto& times = sourceFrames.seconds;
    std::vector<std::size_t> range;
    for (std::size_t i = 0; i < times.size(); ++i) {
        const double time = times[i] - times.front();  // six decimals of whole frames
        if (time >= from - 1e-4 && time < to - 1e-4) range.push_back(i);
    }
    ASSERT_EQ(written.frameCount(), range.size());
    for (std::size_t i = 0; i < written.frameCount(); ++i) {
        const std::size_t expected = range[range.size() - 1 - i];
        const auto frame = written.frame(i);
        const double own = percentChanged(frame, sourceFrames.frame(expected));
        EXPECT_LT(own, 1.0) << "output frame " << i << " against source frame " << expected;
        for (std::size_t j = expected >= 3 ? expected - 3 : 0;
             j <= expected + 3 && j < sourceFrames.frameCount(); ++j)
            EXPECT_TRUE(j == expected || own * 2 < percentChanged(frame, sourceFrames.frame(j)))
                << "output frame " << i << " is near source frame " << j << " too";
    }
}

// What renderReversedMedia answered and logged, with the temporary folder at `folder`.
struct Render {
    std::optional<fs::path> file;
    std::string log;
};

Render render(const fs::path& source, double from, double to, const fs::path& folder = {}) {
    const std::string previous = std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "";
    if (!folder.empty()) ::setenv("TMPDIR", folder.c_str(), 1);
    testing::internal::CaptureStderr();
    Render r{renderReversedMedia(source, from, to), ""};
    r.log = testing::internal::GetCapturedStderr();
    if (!folder.empty())
        previous.empty() ? ::unsetenv("TMPDIR") : ::setenv("TMPDIR", previous.c_str(), 1);
    return r;
}

TEST(ReverseRender, FrameSpacingAndTwoSecondWindowsInTicks) {
    // Half away from zero, at least 1 and within 32 bits; an unknown rate gives 20 ticks.
    const double rates[] = {29.97, 23.976, 25, 48, 5000, 1e-300, 0, -25, std::nan("")};
    const int ticks[] = {20, 25, 24, 13, 1, INT32_MAX, 20, 20, 20};
    for (std::size_t i = 0; i < std::size(rates); ++i)
        EXPECT_EQ(reverseFrameSpacingTicks(rates[i]), ticks[i]) << rates[i];

    EXPECT_EQ(reverseChunks(0, 5),
              (std::vector<ReverseChunk>{{0, 1200}, {1200, 2400}, {2400, 3000}}));
    EXPECT_EQ(reverseChunks(1.3, 4.7), (std::vector<ReverseChunk>{{780, 1980}, {1980, 2820}}));
    EXPECT_EQ(reverseChunks(2, 2.5), (std::vector<ReverseChunk>{{1200, 1500}}));
    for (auto [from, to] : {std::pair{3.0, 3.0}, {4, 3}, {0, INFINITY}, {std::nan(""), 3}})
        EXPECT_TRUE(reverseChunks(from, to).empty()) << from << ".." << to;
}

TEST(ReverseRender, WritesTheRangeLastFrameFirstAsANewH264QuickTimeMovie) {
    struct Range {
        fs::path source;
        double from, to, shownFrom, shownTo;
        int windows;
        std::size_t frames;
        double rate = 30;
    };
    for (const auto& c : {
             Range{shortGopSource(), 0, 5, 0, 5, 3, 150},
             // 1.3, 3.3 and 4.7 s fall on frames: each is written once.
             Range{longGopSource(), 1.3, 4.7, 1.3, 4.7, 2, 102},
             // The MPEG-TS demuxer's seek may land a keyframe late, even at the start.
             Range{makeMedia("reverse_long_gop.ts", kPicture + kH264WithBFrames + "-g 45"), 0.9,
                   4.7, 0.9, 4.7, 2, 114},
             // Both ends clamped to the file, at 25 frames a second.
             Range{makeMedia("reverse_25fps.mp4",
                             sample_media::picture(160, 120, 25) + "-t 1 " + kH264WithBFrames),
                   -3, 100, 0, 1, 1, 25, 25},
         }) {
        SCOPED_TRACE(c.source.filename().string() + " " + std::to_string(c.from));
        const auto r = render(c.source, c.from, c.to);
        ASSERT_TRUE(r.file) << r.log;
        using std::to_string;  // "%f", as the log writes its seconds and rates
        for (const std::string& line :
             {"start: " + c.source.filename().string(),
              "chunked [" + to_string(c.shownFrom) + ".." + to_string(c.shownTo) + "] into " +
                  to_string(c.windows) + " windows",
              "wrote " + to_string(c.frames) + " frames at " + to_string(c.rate) + "fps",
              "wrote " + r.file->string()})
            EXPECT_NE(r.log.find(line), std::string::npos) << line << " is not in\n" << r.log;

        EXPECT_EQ(r.file->parent_path(), fs::temp_directory_path());
        EXPECT_TRUE(std::regex_match(
            r.file->filename().string(),
            std::regex("vantrell-reversed-[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-"
                       "[0-9A-F]{12}\\.mov")))
            << *r.file;
        EXPECT_EQ(
            ffprobe(*r.file,
                    "-show_entries stream=codec_type,codec_name,width,height,pix_fmt -of csv=p=0"),
            "h264,video,160,120,yuv420p\n");
        EXPECT_EQ(ffprobe(*r.file, "-show_entries format_tags=major_brand -of csv=p=0"), "qt  \n");
        const auto written = decoded(*r.file);
        ASSERT_EQ(written.frameCount(), c.frames);
        for (std::size_t i = 0; i < c.frames; ++i)
            EXPECT_NEAR(written.seconds[i], i * reverseFrameSpacingTicks(c.rate) / 600.0, 1e-4);
        expectReversedFrames(c.source, written, c.shownFrom, c.shownTo);
    }
}

TEST(ReverseRender, KeepsTheStoredPictureEvenSizedWithoutADisplayMatrix) {
    const auto turned = render(sample_media::turned(90), 0, 1);
    ASSERT_TRUE(turned.file) << turned.log;
    EXPECT_EQ(ffprobe(*turned.file, "-show_entries stream=width,height -of csv=p=0"), "320,240\n");
    EXPECT_EQ(ffprobe(*turned.file, "-show_entries stream_side_data=side_data_type -of csv=p=0")
                  .find("Display Matrix"),
              std::string::npos);
    // An odd-sized source loses its last row and column.
    const auto odd = render(makeMedia("reverse_161x121.mkv", sample_media::picture(160, 120) +
                                                                 "-t 1 -vf scale=161:121 -c:v "
                                                                 "ffv1 -pix_fmt yuv420p"),
                            0, 1);
    ASSERT_TRUE(odd.file) << odd.log;
    EXPECT_EQ(ffprobe(*odd.file, "-show_entries stream=width,height -of csv=p=0"), "160,120\n");
    EXPECT_EQ(decoded(*odd.file).frameCount(), 30u);
}

TEST(ReverseRender, WhatCantBeRenderedAnswersNothingLeavesNothingAndSaysWhy) {
    const fs::path text = testing_support::makeFile("reverse_notes.mov", "not a movie\n");
    const fs::path folder = testing_support::freshDir("reverse-failures");
    const std::string empty = "error: requested reverse range is empty";
    struct Failure {
        fs::path source;
        double from, to;
        std::string says;
        fs::path folder = {};
    };
    for (const auto& [source, from, to, says, tmp] : {
             Failure{shortGopSource(), 2, 2, empty},
             Failure{shortGopSource(), 7, 9, empty},
             Failure{sample_media::tone("m4a", "aac"), 0, 1, "error: source has no video track"},
             Failure{text, 0, 1, "error: failed to load asset duration"},
             Failure{text.parent_path() / "missing.mov", 0, 1, "error: "},
             Failure{shortGopSource(), 1.01, 1.02, "error: no frames in the requested range",
                     folder},
             Failure{shortGopSource(), 0, 1, "error: failed to create writer", folder / "none"},
         }) {
        const auto r = render(source, from, to, tmp);
        EXPECT_FALSE(r.file) << source << " " << from << ".." << to;
        EXPECT_NE(r.log.find(says), std::string::npos) << r.log;
    }
    EXPECT_TRUE(fs::is_empty(folder));
}

TEST(ReverseRender, RendersAreRemovedWhenTheProcessExits) {
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
