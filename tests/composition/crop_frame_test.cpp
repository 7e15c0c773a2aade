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

TEST(CropFrame, LeadingAndTopInsetsGiveTheWorkedOutputFrame) {
    const OutputFrame frame = outputFrame(settings(1920, 1080, 0.25, 0.1, 0, 0));
    EXPECT_EQ(frame.renderWidth, 1728);
    EXPECT_EQ(frame.renderHeight, 810);
    EXPECT_DOUBLE_EQ(frame.cropX, 192);
    EXPECT_DOUBLE_EQ(frame.cropY, 270);
    EXPECT_EQ(frame.largestWidth, 1920);
    EXPECT_EQ(frame.largestHeight, 1080);
}

TEST(CropFrame, LargestSizeFrameMovesLeftAndUpByTheCropOffsets) {
    const OutputFrame frame = outputFrame(settings(1920, 1080, 0.25, 0.1, 0, 0));
    const Placement p = placeFrame(frame, 1920, 1080);
    EXPECT_EQ(p.scale, 1);
    EXPECT_DOUBLE_EQ(p.x, -192);
    // With the origin at the top, the 270 rows cut from the top move the frame up; seen
    // from the bottom it does not move, as the bottom inset is 0.
    EXPECT_DOUBLE_EQ(p.y, -270);
    EXPECT_NEAR(moveFromBottom(frame, p, 1080), 0, 1e-9);
}

TEST(CropFrame, SmallerFrameIsFittedAndCentredNotCropped) {
    const OutputFrame frame = outputFrame(settings(1920, 1080, 0.25, 0.1, 0, 0));
    const Placement p = placeFrame(frame, 640, 480);
    EXPECT_DOUBLE_EQ(p.scale, 1.6875);
    // (324, 0) from the bottom left is (324, 0) from the top left too: the fitted frame
    // fills the height, and centring is the same seen from either edge.
    EXPECT_DOUBLE_EQ(p.x, 324);
    EXPECT_DOUBLE_EQ(p.y, 0);
    EXPECT_NEAR(moveFromBottom(frame, p, 480), 0, 1e-9);
}

TEST(CropFrame, QuarterInsetsOnAnOddFrameRoundHalvesUpToAnOddSize) {
    const OutputFrame frame = outputFrame(settings(1001, 1001, 0.25, 0.25, 0.25, 0.25));
    EXPECT_EQ(frame.renderWidth, 501);
    EXPECT_EQ(frame.renderHeight, 501);
    EXPECT_DOUBLE_EQ(frame.cropX, 250.25);
    EXPECT_DOUBLE_EQ(frame.cropY, 250.25);
}

TEST(CropFrame, SizeIsNotForcedEven) {
    const OutputFrame frame = outputFrame(settings(160, 120, 0.1, 0.1, 0.26875, 0.425));
    EXPECT_EQ(frame.renderWidth, 101);
    EXPECT_EQ(frame.renderHeight, 57);
}

TEST(CropFrame, NoInsetsKeepTheLargestSize) {
    const OutputFrame frame = outputFrame(settings(1280, 720, 0, 0, 0, 0));
    EXPECT_EQ(frame.renderWidth, 1280);
    EXPECT_EQ(frame.renderHeight, 720);
    EXPECT_EQ(placeFrame(frame, 1280, 720), (Placement{1, 0, 0}));
}

TEST(CropFrame, FrameWithinLessThanAPixelOfTheLargestSizeIsCropped) {
    const OutputFrame frame = outputFrame(settings(1920, 1080, 0.25, 0.1, 0, 0));
    const Placement p = placeFrame(frame, 1920.6, 1079.4);
    EXPECT_EQ(p.scale, 1);
    EXPECT_DOUBLE_EQ(p.x, -192);
    EXPECT_DOUBLE_EQ(p.y, -270);
}

TEST(CropFrame, FrameOnePixelNarrowerIsFitted) {
    const OutputFrame frame = outputFrame(settings(1920, 1080, 0.25, 0.1, 0, 0));
    const Placement p = placeFrame(frame, 1919, 1080);
    EXPECT_DOUBLE_EQ(p.scale, 810.0 / 1080);
    EXPECT_DOUBLE_EQ(p.x, (1728 - 1919 * 0.75) / 2);
    EXPECT_DOUBLE_EQ(p.y, 0);
}

TEST(CropFrame, FrameWiderButSmallerInAreaIsReduced) {
    const OutputFrame frame = outputFrame(settings(1920, 1080, 0, 0, 0, 0));
    const Placement p = placeFrame(frame, 2400, 400);
    EXPECT_LT(2400 * 400, 1920 * 1080);
    EXPECT_DOUBLE_EQ(p.scale, 0.8);
    EXPECT_DOUBLE_EQ(p.x, 0);
    EXPECT_DOUBLE_EQ(p.y, (1080 - 320) / 2.0);
}

TEST(CropFrame, BottomInsetCutsTheBottomRowsSoTheFrameMovesDownFromTheBottom) {
    const OutputFrame frame = outputFrame(settings(1920, 1080, 0, 0, 0, 0.25));
    EXPECT_EQ(frame.renderHeight, 810);
    const Placement p = placeFrame(frame, 1920, 1080);
    // The top rows stay in place and the bottom 270 are cut off...
    EXPECT_DOUBLE_EQ(p.y, 0);
    EXPECT_DOUBLE_EQ(p.y + 1080 - frame.renderHeight, 270);
    // ...which, counted from the bottom edge, is a move down by the bottom inset.
    EXPECT_DOUBLE_EQ(moveFromBottom(frame, p, 1080), -270);
}

TEST(CropFrame, TopAndBottomInsetsTogetherMoveUpByTheTopOnly) {
    const OutputFrame frame = outputFrame(settings(1000, 1000, 0.1, 0, 0, 0.3));
    const Placement p = placeFrame(frame, 1000, 1000);
    EXPECT_EQ(frame.renderHeight, 600);
    EXPECT_DOUBLE_EQ(p.y, -100);
    EXPECT_DOUBLE_EQ(moveFromBottom(frame, p, 1000), -300);
}

TEST(CropFrame, SmallerFrameInACroppedProjectIsShownWholeWithBars) {
    const OutputFrame frame = outputFrame(settings(1920, 1080, 0.1, 0.1, 0.1, 0.1));
    const Placement p = placeFrame(frame, 160, 120);
    // Fitted into 1536x864: the height limits, bars left and right.
    EXPECT_DOUBLE_EQ(p.scale, 7.2);
    EXPECT_DOUBLE_EQ(p.y, 0);
    EXPECT_DOUBLE_EQ(p.x, (1536 - 1152) / 2.0);
}

}  // namespace
