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

// The image is as large as the box allows for a picture shown at displayWidth ×
// displayHeight, and keeps that shape to within a pixel of rounding.
void expectFitted(const model::Image& image, double displayWidth, double displayHeight) {
    ASSERT_TRUE(image);
    EXPECT_LE(image->width, media::kThumbnailMaxWidth);
    EXPECT_LE(image->height, media::kThumbnailMaxHeight);
    EXPECT_TRUE(image->width == media::kThumbnailMaxWidth ||
                image->height == media::kThumbnailMaxHeight);
    EXPECT_NEAR(static_cast<double>(image->width) / image->height, displayWidth / displayHeight,
                1.0 / image->height);
    EXPECT_EQ(image->rgba.size(), static_cast<std::size_t>(image->width) * image->height * 4);
}

TEST(Thumbnail, FitsInsideTheBoxKeepingItsShape) {
    expectFitted(thumbnailOf(samples::h264Mp4()), 320, 240);
    expectFitted(thumbnailOf(samples::h264WideMp4()), 640, 360);
    expectFitted(thumbnailOf(samples::h264PortraitMp4()), 240, 320);
    expectFitted(thumbnailOf(samples::hevcMkv()), 320, 240);
    expectFitted(thumbnailOf(samples::mpeg4Avi()), 320, 240);
}

TEST(Thumbnail, SmallPictureIsNotEnlarged) {
    const auto image = thumbnailOf(samples::h264SmallMp4());
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, 160);
    EXPECT_EQ(image->height, 120);
    EXPECT_TRUE(thumbnailOf(samples::vp9Webm()));
}

TEST(Thumbnail, PixelsAreOpaqueRgbaOfThePicture) {
    // The test pattern's leftmost bar is red.
    const auto image = thumbnailOf(samples::h264Mp4());
    ASSERT_TRUE(image);
    const auto left = pixel(*image, 5, image->height / 2);
    EXPECT_TRUE(isRed(left)) << left.r << "," << left.g << "," << left.b;
    EXPECT_EQ(left.a, 255);
}

TEST(Thumbnail, RotatedClipComesOutUpright) {
    // Turned a quarter clockwise, the red left bar of the picture runs along the top.
    const auto clockwise = thumbnailOf(samples::rotatedClockwise90Mp4());
    expectFitted(clockwise, 240, 320);
    ASSERT_TRUE(clockwise);
    EXPECT_LT(clockwise->width, clockwise->height);
    EXPECT_TRUE(isRed(pixel(*clockwise, clockwise->width / 2, 3)));

    const auto counterClockwise = thumbnailOf(samples::rotatedClockwise270Mp4());
    expectFitted(counterClockwise, 240, 320);
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

TEST(Thumbnail, PosterIsTheFrameShowingAtATenthOfASecond) {
    // At 30 frames per second frame 3 starts exactly at 0.1 s.
    const auto redFromPosterTime = thumbnailOf(turningRed("red_from_frame3.mp4", 3, "-t 1"));
    ASSERT_TRUE(redFromPosterTime);
    EXPECT_TRUE(isRed(pixel(*redFromPosterTime, 80, 60)));

    const auto redJustAfter = thumbnailOf(turningRed("red_from_frame4.mp4", 4, "-t 1"));
    ASSERT_TRUE(redJustAfter);
    EXPECT_TRUE(isBlue(pixel(*redJustAfter, 80, 60)));
}

TEST(Thumbnail, ClipShorterThanPosterTimeGivesItsLastFrame) {
    const auto image = thumbnailOf(turningRed("two_frames.mp4", 1, "-frames:v 2"));
    ASSERT_TRUE(image);
    EXPECT_TRUE(isRed(pixel(*image, 80, 60)));
}

TEST(Thumbnail, NoneWithoutVideo) {
    EXPECT_FALSE(thumbnailOf(samples::wav()));
    EXPECT_FALSE(thumbnailOf(samples::mp3WithCoverArt()));
    EXPECT_FALSE(thumbnailOf(samples::subtitleOnlyMkv()));
}

}  // namespace
