#include "export/export_settings.h"

#include <vector>

#include <gtest/gtest.h>

#include "common/uuid.h"

namespace {

using exporting::CropInsets;
using exporting::Framing;
using exporting::reencodeSettings;
using exporting::uprightLargestVideoSize;
using model::SmallClipMode;

model::Clip videoClip(double width, double height, double frameRate = 30, int rotation = 0) {
    model::Clip c;
    c.id = common::Uuid::random();
    c.url = "/media/clip.mov";
    c.hasVideo = true;
    c.hasAudio = true;
    c.fullDurationSeconds = 5;
    c.outSeconds = 5;
    c.frameRate = frameRate;
    c.naturalSize = {width, height};
    c.rotationDegrees = rotation;
    return c;
}

model::Clip audioClip() {
    model::Clip c;
    c.id = common::Uuid::random();
    c.url = "/media/sound.m4a";
    c.hasAudio = true;
    c.fullDurationSeconds = 5;
    c.outSeconds = 5;
    return c;
}

TEST(ExportSettings, NoVideoGivesNoFrameAndThirtyFramesASecondWhateverTheInsets) {
    for (const CropInsets& insets : {CropInsets{}, CropInsets{0.1, 0.1, 0.1, 0.1}}) {
        const auto settings = reencodeSettings({audioClip()}, SmallClipMode::proportional, insets);
        EXPECT_FALSE(settings.frame);
        EXPECT_EQ(settings.framing, Framing::whole);
        EXPECT_EQ(settings.framesPerSecond, 30);
    }
}

TEST(ExportSettings, LargestStoredAreaGivesTheOutputFrameUprightTheEarliestOfEqualAreasWinning) {
    const std::vector<model::Clip> clips{videoClip(640, 480), videoClip(1920, 1080),
                                         videoClip(1280, 720)};
    const auto settings = reencodeSettings(clips, SmallClipMode::proportional, {});
    ASSERT_TRUE(settings.frame);
    EXPECT_EQ(settings.frame->renderWidth, 1920);
    EXPECT_EQ(settings.frame->renderHeight, 1080);
    EXPECT_EQ(settings.frame->cropX, 0);
    EXPECT_EQ(settings.frame->cropY, 0);
    EXPECT_EQ(settings.framing, Framing::whole);

    EXPECT_EQ(uprightLargestVideoSize({videoClip(200, 100), videoClip(100, 200)}),
              (model::Size{200, 100}));
    EXPECT_EQ(uprightLargestVideoSize({videoClip(160, 120, 30, 90), videoClip(100, 100)}),
              (model::Size{120, 160}));
    EXPECT_EQ(uprightLargestVideoSize({videoClip(160, 120, 30, 270)}), (model::Size{120, 160}));
    EXPECT_EQ(uprightLargestVideoSize({videoClip(160, 120, 30, 180)}), (model::Size{160, 120}));
}

TEST(ExportSettings, InsetsReferToTheUprightFrame) {
    const std::vector<model::Clip> clips{videoClip(1920, 1080, 30, 90)};
    const CropInsets insets{0.25, 0.1, 0, 0};
    const auto video = exporting::exportVideoSettings(clips, SmallClipMode::fill, insets);
    ASSERT_TRUE(video);
    EXPECT_EQ(video->largestSize, (model::Size{1080, 1920}));
    EXPECT_EQ(video->smallClipMode, SmallClipMode::fill);
    const auto settings = reencodeSettings(clips, SmallClipMode::fill, insets);
    ASSERT_TRUE(settings.frame);
    EXPECT_EQ(settings.frame->renderWidth, 972);
    EXPECT_EQ(settings.frame->renderHeight, 1440);
    EXPECT_DOUBLE_EQ(settings.frame->cropX, 108);
    EXPECT_DOUBLE_EQ(settings.frame->cropY, 480);
    EXPECT_EQ(settings.framing, Framing::crop);
}

TEST(ExportSettings, ClipsOffTheVideoRowOrWithoutASizeDoNotCount) {
    model::Clip soundOnly = videoClip(3840, 2160, 60);
    soundOnly.streamMask = model::StreamMask::audioOnly;
    model::Clip missing = videoClip(0, 0, 120);
    missing.isMissing = true;
    const std::vector<model::Clip> clips{soundOnly, missing, videoClip(640, 360, 25)};
    const auto settings = reencodeSettings(clips, SmallClipMode::proportional, {});
    ASSERT_TRUE(settings.frame);
    EXPECT_EQ(settings.frame->renderWidth, 640);
    EXPECT_EQ(settings.frame->renderHeight, 360);
    // The placeholder is on the video row: its nominal rate counts, though it has no size.
    EXPECT_EQ(settings.framesPerSecond, 120);
}

TEST(ExportSettings, HighestExactRateOfTheVideoRowWinsOrThirtyWithoutOne) {
    model::Clip soundOnly = videoClip(640, 480, 60);
    soundOnly.streamMask = model::StreamMask::audioOnly;
    // Rates come narrowed to a float, as the probe reports them; NTSC ones come back exact.
    const std::vector<model::Clip> clips{videoClip(1920, 1080, 24), soundOnly,
                                         videoClip(640, 480, float(30000.0 / 1001)), audioClip()};
    EXPECT_EQ(reencodeSettings(clips, SmallClipMode::proportional, {}).framesPerSecond,
              30000.0 / 1001);
    EXPECT_EQ(reencodeSettings({videoClip(640, 480, float(24000.0 / 1001))},
                               SmallClipMode::proportional, {})
                  .framesPerSecond,
              24000.0 / 1001);
    EXPECT_EQ(reencodeSettings({videoClip(640, 480, 12.5)}, SmallClipMode::proportional, {})
                  .framesPerSecond,
              12.5);
    EXPECT_EQ(
        reencodeSettings({videoClip(640, 480, 0)}, SmallClipMode::proportional, {}).framesPerSecond,
        30);
    // The crop road runs at the clips' rate when they share one, else at thirty.
    const auto crop = reencodeSettings({videoClip(1280, 720, 60), videoClip(640, 480, 60)},
                                       SmallClipMode::proportional, {0, 0, 0, 0.5});
    EXPECT_EQ(crop.framing, Framing::crop);
    EXPECT_EQ(crop.framesPerSecond, 60);
    EXPECT_EQ(reencodeSettings({videoClip(1280, 720, 60), videoClip(640, 480, 25)},
                               SmallClipMode::proportional, {0, 0, 0, 0.5})
                  .framesPerSecond,
              30);
    ASSERT_TRUE(crop.frame);
    EXPECT_EQ(crop.frame->renderHeight, 360);
}

}  // namespace
