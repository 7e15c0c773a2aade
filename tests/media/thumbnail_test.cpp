#include "media/thumbnail.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "media/probe.h"
#include "media/sample_media.h"

namespace {

namespace samples = sample_media;
using samples::isBlue;
using samples::isRed;
using samples::pixel;

model::Image thumbnailOf(const std::filesystem::path& file) {
    auto probed = media::probeClip(file, std::nullopt, common::Uuid::random());
    EXPECT_TRUE(probed) << probed.error().message;
    return probed ? probed->thumbnail : nullptr;
}

TEST(Thumbnail, RotatedClipComesOutUpright) {
    // Turned a quarter clockwise, the red left bar of the picture runs along the top.
    const auto clockwise = thumbnailOf(samples::rotatedClockwise90Mp4());
    ASSERT_TRUE(clockwise);
    EXPECT_LT(clockwise->width, clockwise->height);
    EXPECT_TRUE(isRed(pixel(*clockwise, clockwise->width / 2, 3)));

    const auto counterClockwise = thumbnailOf(samples::rotatedClockwise270Mp4());
    ASSERT_TRUE(counterClockwise);
    EXPECT_TRUE(
        isRed(pixel(*counterClockwise, counterClockwise->width / 2, counterClockwise->height - 4)));
}

// Blue frames at 30 per second that turn red from frame `firstRed` on; B-frames and a
// single keyframe make the poster frame a decode away from the seek point.
std::filesystem::path turningRed(const std::string& name, int firstRed, const std::string& length) {
    return testing_support::makeMedia(
        name, "-f lavfi -i color=c=blue:size=160x120:rate=30 " + length +
                  " -vf \"drawbox=c=red:t=fill:enable='gte(n," + std::to_string(firstRed) +
                  ")'\" -c:v libx264 -preset superfast -bf 2 -g 300 -pix_fmt yuv420p");
}

TEST(Thumbnail, PosterIsTheFrameShowingAtATenthOfASecondOrTheLastFrame) {
    // At 30 frames per second frame 3 starts exactly at 0.1 s.
    const auto redFromPosterTime = thumbnailOf(turningRed("red_from_frame3.mp4", 3, "-t 1"));
    ASSERT_TRUE(redFromPosterTime);
    EXPECT_TRUE(isRed(pixel(*redFromPosterTime, 80, 60)));

    const auto redJustAfter = thumbnailOf(turningRed("red_from_frame4.mp4", 4, "-t 1"));
    ASSERT_TRUE(redJustAfter);
    EXPECT_TRUE(isBlue(pixel(*redJustAfter, 80, 60)));

    // A clip shorter than the poster time gives its last frame.
    const auto twoFrames = thumbnailOf(turningRed("two_frames.mp4", 1, "-frames:v 2"));
    ASSERT_TRUE(twoFrames);
    EXPECT_TRUE(isRed(pixel(*twoFrames, 80, 60)));
}

}  // namespace
