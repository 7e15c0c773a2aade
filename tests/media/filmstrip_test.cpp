#include "media/filmstrip.h"

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

// 5 frames a second, each showing its number in lossless 8-pixel bars, white for a set bit.
constexpr int kNumberedRate = 5;

std::filesystem::path numbered(const std::string& name, double seconds,
                               const std::string& encoder) {
    return makeMedia(name, "-f lavfi -i color=c=black:size=64x36:rate=" +
                               std::to_string(kNumberedRate) + " -t " + std::to_string(seconds) +
                               " -vf \"geq=lum='if(bitand(N,pow(2,floor(X/8))),235,16)':cb=128:"
                               "cr=128\" -pix_fmt yuv420p -c:v libx264 -qp 0 " +
                               encoder);
}

// The time of the frame a filmstrip image shows, read from the bar centres.
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
    EXPECT_EQ(filmstripTimes(1), (std::vector<double>{100.0 / 600, 300.0 / 600, 500.0 / 600}));
    for (double duration : {0.0, -3.0, kNaN, kInfinity, 1e300})
        EXPECT_TRUE(filmstripTimes(duration).empty()) << duration;
    EXPECT_TRUE(generateFilmstrip(testing_support::scratchDir() / "no-such-file.mp4", 1).empty());
    EXPECT_TRUE(generateFilmstrip(numbered("numbered_2s.mp4", 2, "-preset ultrafast -g 1000"), kNaN)
                    .empty());
}

TEST(Filmstrip, FramesComeUprightFromWithinTheToleranceOfTheirTimesWhateverTheKeyframeSpacing) {
    const std::string fast = "-preset ultrafast ";
    struct Source {
        std::string name;
        double seconds;
        std::string encoder;
        bool turned = false;
        double asked = 0;  // the length the filmstrip is asked for, if not the file's
    };
    for (const auto& [name, seconds, encoder, turned, asked] : {
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
             // Asked as if 10 s long, a 2-second clip serves only the first of 6 times.
             Source{"numbered_2s.mp4", 2, fast + "-g 1000", false, 10},
         }) {
        SCOPED_TRACE(name);
        const auto plain = numbered(name, seconds, encoder);
        const auto file = turned ? testing_support::turnedCopy("cw90_" + name, plain, 90) : plain;
        const double length = asked > 0 ? asked : seconds;
        auto times = filmstripTimes(length);
        if (asked > 0) times.resize(1);
        const auto frames = media::generateFilmstripFrames(file, length);
        ASSERT_EQ(frames.size(), times.size());
        EXPECT_EQ(generateFilmstrip(file, length).size(), times.size());
        for (std::size_t i = 0; i < frames.size(); ++i) {
            EXPECT_EQ(frames[i].seconds, times[i]);
            ASSERT_TRUE(frames[i].image);
            // A small picture is not enlarged.
            EXPECT_EQ(std::pair(frames[i].image->width, frames[i].image->height),
                      turned ? std::pair(36, 64) : std::pair(64, 36));
            EXPECT_NEAR(shownSeconds(*frames[i].image, turned), times[i], kTolerance) << i;
        }
    }
}

}  // namespace
