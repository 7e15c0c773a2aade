#include "media/filmstrip.h"

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/sample_media.h"
#include "support/media_fixtures.h"

namespace {

using media::filmstripTimes;
using media::generateFilmstrip;
using testing_support::makeMedia;
namespace samples = sample_media;

// The numbered clips run at 5 frames a second and show their frame number in binary: bit b
// is bar b, 8 pixels wide from the left, white when set. Lossless, so every bar reads back.
constexpr int kNumberedRate = 5;

std::string numberedArgs(double seconds, const std::string& encoder) {
    return "-f lavfi -i color=c=black:size=64x36:rate=" + std::to_string(kNumberedRate) + " -t " +
           std::to_string(seconds) +
           " -vf \"geq=lum='if(bitand(N,pow(2,floor(X/8))),235,16)':cb=128:cr=128\" "
           "-pix_fmt yuv420p -c:v libx264 -qp 0 " +
           encoder;
}

// One keyframe at the start, so every frame after it is a decode away.
std::filesystem::path numbered(const std::string& name, double seconds) {
    return makeMedia(name, numberedArgs(seconds, "-preset ultrafast -g 1000"));
}

// A stored frame number, read from bar centres at (x, y) = position(bar).
template <typename Position>
int frameNumberOf(const model::ImageData& image, Position position) {
    int number = 0;
    for (int bit = 0; bit < 8; ++bit) {
        const auto [x, y] = position(bit);
        if (samples::pixel(image, x, y).g > 128) number |= 1 << bit;
    }
    return number;
}

int frameNumberOf(const model::ImageData& image) {
    return frameNumberOf(image, [](int bit) { return std::pair{bit * 8 + 4, 18}; });
}

// Every frame is there and comes from within the tolerance of its time.
void expectFramesNearTheirTimes(const std::filesystem::path& file, double seconds) {
    const auto times = filmstripTimes(seconds);
    const auto frames = generateFilmstrip(file, seconds);
    ASSERT_EQ(frames.size(), times.size()) << file;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        ASSERT_TRUE(frames[i]);
        const double shown = static_cast<double>(frameNumberOf(*frames[i])) / kNumberedRate;
        EXPECT_LE(std::abs(shown - times[i]), media::kFilmstripToleranceSeconds + 1e-9)
            << file.filename() << ": frame " << i << " asked for " << times[i] << " s, got "
            << shown << " s";
    }
}

TEST(FilmstripTimes, OneFramePerSecondAndAHalfFromThreeToTwentyFour) {
    EXPECT_EQ(filmstripTimes(1).size(), 3u);
    EXPECT_EQ(filmstripTimes(4.4).size(), 3u);
    EXPECT_EQ(filmstripTimes(7.5).size(), 5u);
    EXPECT_EQ(filmstripTimes(36).size(), 24u);
    EXPECT_EQ(filmstripTimes(3600).size(), 24u);
}

TEST(FilmstripTimes, StandInTheMiddlesOfEqualStretches) {
    EXPECT_EQ(filmstripTimes(3), (std::vector<double>{0.5, 1.5, 2.5}));
    // 1/6 s rounds to a 600th of a second.
    const auto times = filmstripTimes(1);
    ASSERT_EQ(times.size(), 3u);
    EXPECT_DOUBLE_EQ(times[0], 100.0 / 600);
    EXPECT_DOUBLE_EQ(times[2], 500.0 / 600);
}

TEST(FilmstripTimes, NoneForADurationThatIsNotFiniteOrNotPositive) {
    EXPECT_TRUE(filmstripTimes(0).empty());
    EXPECT_TRUE(filmstripTimes(-3).empty());
    EXPECT_TRUE(filmstripTimes(std::numeric_limits<double>::quiet_NaN()).empty());
    EXPECT_TRUE(filmstripTimes(std::numeric_limits<double>::infinity()).empty());
    EXPECT_TRUE(filmstripTimes(1e300).empty());
}

TEST(Filmstrip, CountFollowsTheDuration) {
    EXPECT_EQ(generateFilmstrip(numbered("numbered_1s.mp4", 1), 1).size(), 3u);
    EXPECT_EQ(generateFilmstrip(numbered("numbered_4.4s.mp4", 4.4), 4.4).size(), 3u);
    EXPECT_EQ(generateFilmstrip(numbered("numbered_7.5s.mp4", 7.5), 7.5).size(), 5u);
    EXPECT_EQ(generateFilmstrip(numbered("numbered_36s.mp4", 36), 36).size(), 24u);
}

TEST(Filmstrip, FramesComeFromWithinTheToleranceOfTheirTimes) {
    expectFramesNearTheirTimes(numbered("numbered_1s.mp4", 1), 1);
    expectFramesNearTheirTimes(numbered("numbered_7.5s.mp4", 7.5), 7.5);
    expectFramesNearTheirTimes(numbered("numbered_36s.mp4", 36), 36);
}

TEST(Filmstrip, FramesAreRightWhateverTheKeyframeSpacing) {
    // A keyframe every second or every 0.4 s puts some in the windows and some not.
    const auto everySecond =
        makeMedia("numbered_12s_g5.mp4", numberedArgs(12, "-preset ultrafast -g 5"));
    expectFramesNearTheirTimes(everySecond, 12);
    const auto dense = makeMedia("numbered_12s_g2.mp4", numberedArgs(12, "-preset ultrafast -g 2"));
    expectFramesNearTheirTimes(dense, 12);
    // B-frames make the decoder hand frames out in another order than it takes them.
    const auto reordered =
        makeMedia("numbered_12s_bframes.mp4", numberedArgs(12, "-preset veryfast -bf 3 -g 12"));
    expectFramesNearTheirTimes(reordered, 12);
    const auto matroska =
        makeMedia("numbered_12s_g5.mkv", numberedArgs(12, "-preset ultrafast -g 5"));
    expectFramesNearTheirTimes(matroska, 12);
    // A fragmented file's index grows only as its fragments are read.
    const auto fragmented =
        makeMedia("numbered_12s_fragmented.mp4",
                  numberedArgs(12, "-preset ultrafast -g 5 -movflags +frag_keyframe+empty_moov"));
    expectFramesNearTheirTimes(fragmented, 12);
}

TEST(Filmstrip, TimesPastTheEndOfTheVideoAreSkipped) {
    // Asked as if 10 s long, a 2-second clip serves only the first of 6 times (0.83 s).
    const auto frames = generateFilmstrip(numbered("numbered_2s.mp4", 2), 10);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_NEAR(static_cast<double>(frameNumberOf(*frames[0])) / kNumberedRate, 10.0 / 12,
                media::kFilmstripToleranceSeconds);
}

TEST(Filmstrip, EachFrameCarriesTheTimeItWasAskedFor) {
    const auto whole = media::generateFilmstripFrames(numbered("numbered_7.5s.mp4", 7.5), 7.5);
    std::vector<double> times;
    for (const auto& frame : whole) times.push_back(frame.seconds);
    EXPECT_EQ(times, filmstripTimes(7.5));

    // Only the first time of six lies within a 2-second clip asked as if 10 s long.
    const auto cut = media::generateFilmstripFrames(numbered("numbered_2s.mp4", 2), 10);
    ASSERT_EQ(cut.size(), 1u);
    EXPECT_EQ(cut[0].seconds, filmstripTimes(10)[0]);
    EXPECT_TRUE(cut[0].image);
}

TEST(Filmstrip, FramesFitInsideTheBoxKeepingTheirShape) {
    for (const auto& frame : generateFilmstrip(samples::h264Mp4(), 1)) {
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->width, 120);
        EXPECT_EQ(frame->height, 90);
        EXPECT_EQ(frame->rgba.size(), 120u * 90 * 4);
    }
    const auto wide = generateFilmstrip(samples::h264WideMp4(), 0.5);
    ASSERT_EQ(wide.size(), 3u);
    for (const auto& frame : wide) {
        EXPECT_EQ(frame->width, media::kFilmstripFrameMaxWidth);
        EXPECT_EQ(frame->height, media::kFilmstripFrameMaxHeight);
    }
    const auto portrait = generateFilmstrip(samples::h264PortraitMp4(), 0.5);
    ASSERT_EQ(portrait.size(), 3u);
    EXPECT_EQ(portrait[0]->width, 68);
    EXPECT_EQ(portrait[0]->height, 90);
}

TEST(Filmstrip, SmallPictureIsNotEnlarged) {
    const auto frames = generateFilmstrip(numbered("numbered_1s.mp4", 1), 1);
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames[0]->width, 64);
    EXPECT_EQ(frames[0]->height, 36);
}

TEST(Filmstrip, RotatedClipComesOutUpright) {
    // Turned a quarter clockwise, the bars run down the picture from its top.
    const auto file =
        makeMedia("numbered_7.5s_cw90.mp4",
                  "-i " + testing_support::quote(numbered("numbered_7.5s.mp4", 7.5).string()) +
                      " -c copy -metadata:s:v:0 rotate=270");
    const auto times = filmstripTimes(7.5);
    const auto frames = generateFilmstrip(file, 7.5);
    ASSERT_EQ(frames.size(), times.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i]->width, 36);
        EXPECT_EQ(frames[i]->height, 64);
        const int number = frameNumberOf(*frames[i], [](int bit) {
            return std::pair{35 - 18, bit * 8 + 4};
        });
        EXPECT_LE(std::abs(static_cast<double>(number) / kNumberedRate - times[i]),
                  media::kFilmstripToleranceSeconds + 1e-9);
    }
}

TEST(Filmstrip, NoFramesWithoutVideo) {
    EXPECT_TRUE(generateFilmstrip(samples::wav(), 1).empty());
    EXPECT_TRUE(generateFilmstrip(samples::aacM4a(), 1).empty());
    EXPECT_TRUE(generateFilmstrip(samples::mp3WithCoverArt(), 1).empty());
    EXPECT_TRUE(generateFilmstrip(testing_support::scratchDir() / "no-such-file.mp4", 1).empty());
}

TEST(Filmstrip, NoFramesForADurationThatIsNotFiniteOrNotPositive) {
    const auto file = numbered("numbered_1s.mp4", 1);
    EXPECT_TRUE(generateFilmstrip(file, 0).empty());
    EXPECT_TRUE(generateFilmstrip(file, -1).empty());
    EXPECT_TRUE(generateFilmstrip(file, std::numeric_limits<double>::quiet_NaN()).empty());
    EXPECT_TRUE(generateFilmstrip(file, std::numeric_limits<double>::infinity()).empty());
}

TEST(Filmstrip, CommonFormatsGiveFrames) {
    EXPECT_EQ(generateFilmstrip(samples::h264Mkv(), 1).size(), 3u);
    EXPECT_EQ(generateFilmstrip(samples::hevcMkv(), 1).size(), 3u);
    EXPECT_EQ(generateFilmstrip(samples::mpeg4Avi(), 1).size(), 3u);
    EXPECT_EQ(generateFilmstrip(samples::vp9Webm(), 1).size(), 3u);
}

}  // namespace
