#include "composition/crop_frame.h"

#include <gtest/gtest.h>

namespace {

using composition::OutputFrame;
using composition::outputFrame;
using composition::placeFrame;
using composition::Placement;
using composition::VideoSettings;

VideoSettings settings(double width, double height, double top, double leading, double trailing,
                       double bottom) {
    VideoSettings s;
    s.cropTop = top;
    s.cropLeading = leading;
    s.cropTrailing = trailing;
    s.cropBottom = bottom;
    s.largestSize = {width, height};
    return s;
}

TEST(CropFrame, InsetsGiveTheOutputFrameRoundingHalvesUpAndNeverForcingItEven) {
    for (const auto& [s, frame] : {
             std::pair{settings(1920, 1080, 0.25, 0.1, 0, 0), OutputFrame{1728, 810, 192, 270}},
             {settings(1001, 1001, 0.25, 0.25, 0.25, 0.25), OutputFrame{501, 501, 250.25, 250.25}},
             {settings(160, 120, 0.1, 0.1, 0.26875, 0.425), OutputFrame{101, 57, 16, 12}},
             {settings(1280, 720, 0, 0, 0, 0), OutputFrame{1280, 720, 0, 0}},
             {settings(1000, 1000, 0.1, 0, 0, 0.3), OutputFrame{1000, 600, 0, 100}},
         }) {
        OutputFrame expected = frame;
        expected.largestWidth = s.largestSize.width;
        expected.largestHeight = s.largestSize.height;
        EXPECT_EQ(outputFrame(s), expected) << expected.renderWidth << "x" << expected.renderHeight;
    }
}

// A frame of the largest size, to within a pixel, moves left and up by the crop offsets;
// any other is fitted and centred, not cropped.
TEST(CropFrame, PlacesTheLargestSizeByTheCropAndFitsAnyOther) {
    const auto cropped = settings(1920, 1080, 0.25, 0.1, 0, 0);
    struct Case {
        VideoSettings settings;
        double width, height;
        Placement expected;
    };
    for (const auto& c : {
             Case{cropped, 1920, 1080, {1, -192, -270}},
             Case{cropped, 1920.6, 1079.4, {1, -192, -270}},
             Case{settings(1000, 1000, 0.1, 0, 0, 0.3), 1000, 1000, {1, 0, -100}},
             Case{cropped, 640, 480, {1.6875, 324, 0}},
             Case{cropped, 1919, 1080, {810.0 / 1080, (1728 - 1919 * 0.75) / 2, 0}},
             // Wider but smaller in area: reduced.
             Case{settings(1920, 1080, 0, 0, 0, 0), 2400, 400, {0.8, 0, (1080 - 320) / 2.0}},
             // Fitted into 1536x864: the height limits, bars left and right.
             Case{settings(1920, 1080, 0.1, 0.1, 0.1, 0.1), 160, 120, {7.2, 192, 0}},
         }) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
        const Placement p = placeFrame(outputFrame(c.settings), c.width, c.height);
        EXPECT_DOUBLE_EQ(p.scale, c.expected.scale);
        EXPECT_DOUBLE_EQ(p.x, c.expected.x);
        EXPECT_DOUBLE_EQ(p.y, c.expected.y);
    }
}

}  // namespace
