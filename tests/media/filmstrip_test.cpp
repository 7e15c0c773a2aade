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

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kTolerance = media::kFilmstripToleranceSeconds + 1e-9;

// The numbered clips run at 5 frames a second and show their frame number in binary: bit b
// is bar b, 8 pixels wide from the left, white when set. Lossless, so every bar reads back.
constexpr int kNumberedRate = 5;

std::filesystem::path numbered(const std::string& name, double seconds,
                               const std::string& encoder = "-preset ultrafast -g 1000") {
    return makeMedia(name, "-f lavfi -i color=c=black:size=64x36:rate=" +
                               std::to_string(kNumberedRate) + " -t " + std::to_string(seconds) +
                               " -vf \"geq=lum='if(bitand(N,pow(2,floor(X/8))),235,16)':cb=128:"
                               "cr=128\" -pix_fmt yuv420p -c:v libx264 -qp 0 " +
                               encoder);
}

// The time of the frame a filmstrip image shows, read from the bar centres; turned a
// quarter clockwise, the bars run down the picture from its top.
double shownSeconds(const model::ImageData& image, bool turned = false) {
    int number = 0;
    for (int bit = 0; bit < 8; ++bit) {
        const int along = bit * 8 + 4;
        const auto bar =
            turned ? sample_media::pixel(image, 17, along) : sample_media::pixel(image, along, 18);
        if (bar.g > 128) number |= 1 << bit;
    }
    return static_cast<double>(number) / kNumberedRate;
}

TEST(FilmstripTimes, OneFramePerSecondAndAHalfFromThreeToTwentyFourInTheMiddlesOfStretches) {
    EXPECT_EQ(filmstripTimes(7.5).size(), 5u);
    EXPECT_EQ(filmstripTimes(3600).size(), 24u);
    EXPECT_EQ(filmstripTimes(3), (std::vector<double>{0.5, 1.5, 2.5}));
    // 1/6 s rounds to a 600th of a second.
    const auto times = filmstripTimes(1);
    ASSERT_EQ(times.size(), 3u);
    EXPECT_DOUBLE_EQ(times[0], 100.0 / 600);
    EXPECT_DOUBLE_EQ(times[2], 500.0 / 600);
    for (double duration : {0.0, -3.0, kNaN, kInfinity, 1e300})
        EXPECT_TRUE(filmstripTimes(duration).empty()) << duration;
    EXPECT_TRUE(generateFilmstrip(testing_support::scratchDir() / "no-such-file.mp4", 1).empty());
    EXPECT_TRUE(generateFilmstrip(numbered("numbered_1s.mp4", 1), kNaN).empty());
}

TEST(Filmstrip, FramesComeUprightFromWithinTheToleranceOfTheirTimesWhateverTheKeyframeSpacing) {
    struct Source {
        std::string name;
        double seconds;
        std::string encoder;
        bool turned = false;
    };
    const std::string fast = "-preset ultrafast ";
    for (const auto& [name, seconds, encoder, turned] : {
             // One keyframe at the start, so every frame after it is a decode away.
             Source{"numbered_36s.mp4", 36, fast + "-g 1000"},
             // A keyframe every second puts some in the windows and some not.
             Source{"numbered_12s_g5.mkv", 12, fast + "-g 5"},
             // B-frames make the decoder hand frames out in another order than it takes them.
             Source{"numbered_12s_bframes.mp4", 12, "-preset veryfast -bf 3 -g 12"},
             // A fragmented file's index grows only as its fragments are read.
             Source{"numbered_12s_fragmented.mp4", 12,
                    fast + "-g 5 -movflags +frag_keyframe+empty_moov"},
             // Turned a quarter clockwise, the bars run down the picture from its top.
             Source{"numbered_7.5s.mp4", 7.5, fast + "-g 1000", true},
         }) {
        SCOPED_TRACE(name);
        const auto file = turned ? testing_support::turnedCopy("cw90_" + name,
                                                               numbered(name, seconds, encoder), 90)
                                 : numbered(name, seconds, encoder);
        const auto times = filmstripTimes(seconds);
        const auto frames = generateFilmstrip(file, seconds);
        ASSERT_EQ(frames.size(), times.size());
        for (std::size_t i = 0; i < frames.size(); ++i) {
            ASSERT_TRUE(frames[i]);
            // A small picture is not enlarged.
            EXPECT_EQ(frames[i]->width, turned ? 36 : 64);
            EXPECT_EQ(frames[i]->height, turned ? 64 : 36);
            EXPECT_NEAR(shownSeconds(*frames[i], turned), times[i], kTolerance) << "frame " << i;
        }
    }
}

TEST(Filmstrip, EachFrameCarriesItsTimeAndTimesPastTheEndOfTheVideoAreSkipped) {
    const auto whole = media::generateFilmstripFrames(numbered("numbered_7.5s.mp4", 7.5), 7.5);
    std::vector<double> times;
    for (const auto& frame : whole) times.push_back(frame.seconds);
    EXPECT_EQ(times, filmstripTimes(7.5));

    // Asked as if 10 s long, a 2-second clip serves only the first of 6 times (0.83 s).
    const auto cut = media::generateFilmstripFrames(numbered("numbered_2s.mp4", 2), 10);
    ASSERT_EQ(cut.size(), 1u);
    EXPECT_EQ(cut[0].seconds, filmstripTimes(10)[0]);
    ASSERT_TRUE(cut[0].image);
    EXPECT_NEAR(shownSeconds(*cut[0].image), 10.0 / 12, kTolerance);
    EXPECT_EQ(generateFilmstrip(numbered("numbered_2s.mp4", 2), 10).size(), 1u);
}

}  // namespace
