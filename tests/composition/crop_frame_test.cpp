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

// Where the scaled frame's bottom edge lies above the canvas's bottom edge: the vertical
// move of a frame counted from the bottom of the canvas upwards.
double moveFromBottom(const OutputFrame& frame, const Placement& p, double height) {
    return frame.renderHeight - (p.y + p.scale * height);
}

TEST(CropFrame, InsetsGiveTheOutputFrameRoundingHalvesUpAndNeverForcingItEven) {
    struct Case {
        VideoSettings settings;
        int width;
        int height;
        double cropX;
        double cropY;
    };
    for (const auto& c : {
             Case{settings(1920, 1080, 0.25, 0.1, 0, 0), 1728, 810, 192, 270},
             Case{settings(1001, 1001, 0.25, 0.25, 0.25, 0.25), 501, 501, 250.25, 250.25},
             Case{settings(160, 120, 0.1, 0.1, 0.26875, 0.425), 101, 57, 16, 12},
             Case{settings(1280, 720, 0, 0, 0, 0), 1280, 720, 0, 0},
             Case{settings(1000, 1000, 0.1, 0, 0, 0.3), 1000, 600, 0, 100},
         }) {
        const OutputFrame frame = outputFrame(c.settings);
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
        EXPECT_EQ(frame.renderWidth, c.width);
        EXPECT_EQ(frame.renderHeight, c.height);
        EXPECT_DOUBLE_EQ(frame.cropX, c.cropX);
        EXPECT_DOUBLE_EQ(frame.cropY, c.cropY);
        EXPECT_EQ(frame.largestWidth, c.settings.largestSize.width);
        EXPECT_EQ(frame.largestHeight, c.settings.largestSize.height);
    }
}

TEST(CropFrame, LargestSizeFrameMovesLeftAndUpByTheCropOffsets) {
    const OutputFrame frame = outputFrame(settings(1920, 1080, 0.25, 0.1, 0, 0));
    // Within less than a pixel of the largest size counts as that size.
    for (const auto& [width, height] : {std::pair{1920.0, 1080.0}, std::pair{1920.6, 1079.4}}) {
        const Placement p = placeFrame(frame, width, height);
        EXPECT_EQ(p.scale, 1);
        EXPECT_DOUBLE_EQ(p.x, -192);
        EXPECT_DOUBLE_EQ(p.y, -270);
    }
    // With the origin at the top, the 270 rows cut from the top move the frame up; seen
    // from the bottom it does not move, as the bottom inset is 0.
    EXPECT_NEAR(moveFromBottom(frame, placeFrame(frame, 1920, 1080), 1080), 0, 1e-9);
    // A bottom inset cuts the bottom rows, which counted from the bottom edge is a move down.
    const OutputFrame both = outputFrame(settings(1000, 1000, 0.1, 0, 0, 0.3));
    const Placement q = placeFrame(both, 1000, 1000);
    EXPECT_DOUBLE_EQ(q.y, -100);
    EXPECT_DOUBLE_EQ(moveFromBottom(both, q, 1000), -300);
}

TEST(CropFrame, AnyOtherFrameIsFittedAndCentredNotCropped) {
    struct Case {
        VideoSettings settings;
        double width;
        double height;
        Placement expected;
    };
    for (const auto& c : {
             // (324, 0) from the bottom left is (324, 0) from the top left too: the fitted
             // frame fills the height, and centring is the same seen from either edge.
             Case{settings(1920, 1080, 0.25, 0.1, 0, 0), 640, 480, {1.6875, 324, 0}},
             Case{settings(1920, 1080, 0.25, 0.1, 0, 0),
                  1919,
                  1080,
                  {810.0 / 1080, (1728 - 1919 * 0.75) / 2, 0}},
             // Wider but smaller in area: reduced.
             Case{settings(1920, 1080, 0, 0, 0, 0), 2400, 400, {0.8, 0, (1080 - 320) / 2.0}},
             // Fitted into 1536x864: the height limits, bars left and right.
             Case{
                 settings(1920, 1080, 0.1, 0.1, 0.1, 0.1), 160, 120, {7.2, (1536 - 1152) / 2.0, 0}},
         }) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
        const OutputFrame frame = outputFrame(c.settings);
        const Placement p = placeFrame(frame, c.width, c.height);
        EXPECT_DOUBLE_EQ(p.scale, c.expected.scale);
        EXPECT_DOUBLE_EQ(p.x, c.expected.x);
        EXPECT_DOUBLE_EQ(p.y, c.expected.y);
        EXPECT_NEAR(moveFromBottom(frame, p, c.height), c.expected.y, 1e-9);
    }
}

}  // namespace
