#include "export/export_settings.h"

#include <vector>

#include <gtest/gtest.h>

#include "support/model_test_support.h"

namespace {

using exporting::CropInsets;
using exporting::Framing;
using exporting::reencodeSettings;
using model::SmallClipMode;

model::Clip clip(double width, double height, double frameRate = 30, int rotation = 0) {
    model::Clip c = model_test::clipAt(0, 5, width > 0);
    c.frameRate = frameRate;
    c.naturalSize = {width, height};
    c.rotationDegrees = rotation;
    return c;
}

model::Clip soundOnly(model::Clip c) {
    return model_test::masked(c, model::StreamMask::audioOnly);
}

TEST(ExportSettings, FrameAndRateFollowTheVideoRow) {
    model::Clip missing = clip(0, 0, 120);
    missing.hasVideo = true;
    missing.isMissing = true;
    const model::Clip sound = clip(0, 0, 0);
    struct Row {
        std::vector<model::Clip> clips;
        CropInsets insets;
        std::vector<double> frame;  // width, height, left and top cut; empty: none
        double framesPerSecond;
    };
    // Rates come narrowed to a float, as the probe reports them; NTSC ones come back exact.
    const Row rows[] = {
        {{sound}, {}, {}, 30},
        {{sound}, {0.1, 0.1, 0.1, 0.1}, {}, 30},
        // The largest stored area, the earliest of equal areas, at the highest exact rate.
        {{clip(640, 480, 24), clip(1920, 1080), clip(1280, 720, 25)}, {}, {1920, 1080, 0, 0}, 30},
        {{clip(200, 100), clip(100, 200, 60)}, {}, {200, 100, 0, 0}, 60},
        {{clip(1920, 1080, 24), soundOnly(clip(640, 480, 60)),
          clip(640, 480, float(30000.0 / 1001)), sound},
         {},
         {1920, 1080, 0, 0},
         30000.0 / 1001},
        {{clip(640, 480, float(24000.0 / 1001))}, {}, {640, 480, 0, 0}, 24000.0 / 1001},
        {{clip(640, 480, 12.5)}, {}, {640, 480, 0, 0}, 12.5},
        {{clip(160, 120, 30, 270)}, {}, {120, 160, 0, 0}, 30},
        {{clip(160, 120, 30, 180)}, {}, {160, 120, 0, 0}, 30},
        // Insets refer to the upright frame.
        {{clip(1920, 1080, 30, 90)}, {0.25, 0.1, 0, 0}, {972, 1440, 108, 480}, 30},
        // Clips off the video row or without a size give no frame; a placeholder's nominal
        // rate counts, as it is on the video row.
        {{soundOnly(clip(3840, 2160, 60)), missing, clip(640, 360, 25)}, {}, {640, 360, 0, 0}, 120},
        // The crop road runs at the clips' rate when they share one, else at thirty.
        {{clip(1280, 720, 60), clip(640, 480, 60)}, {0, 0, 0, 0.5}, {1280, 360, 0, 0}, 60},
        {{clip(1280, 720, 60), clip(640, 480, 25)}, {0, 0, 0, 0.5}, {1280, 360, 0, 0}, 30},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows);
        const auto settings = reencodeSettings(row.clips, SmallClipMode::fill, row.insets);
        std::vector<double> frame;
        if (settings.frame)
            frame = {settings.frame->renderWidth, settings.frame->renderHeight,
                     settings.frame->cropX, settings.frame->cropY};
        EXPECT_EQ(frame, row.frame);
        const auto& i = row.insets;
        const bool cropped = i.top + i.leading + i.trailing + i.bottom > 0 && !row.frame.empty();
        EXPECT_EQ(settings.framing, cropped ? Framing::crop : Framing::whole);
        EXPECT_EQ(settings.framesPerSecond, row.framesPerSecond);
    }
    const auto video = exporting::exportVideoSettings({clip(1920, 1080, 30, 90)},
                                                      SmallClipMode::fill, {0.25, 0.1, 0, 0});
    ASSERT_TRUE(video);
    EXPECT_EQ(video->largestSize, (model::Size{1080, 1920}));
    EXPECT_EQ(video->smallClipMode, SmallClipMode::fill);
}

}  // namespace
