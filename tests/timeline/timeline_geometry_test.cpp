#include "timeline/timeline_geometry.h"

#include <cmath>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "timeline/drag_math.h"
#include "timeline/hit_testing.h"
#include "timeline/timeline_labels.h"

namespace {

using namespace timeline;

TEST(TimelineGeometry, StripLayoutFitsTheProjectAtZoomOneAndNeverCollapses) {
    struct Case {
        double width, total, zoom;
        StripLayout expected;
    };
    const std::vector<Case> cases = {
        {1036, 0, 1, {1000, 0.5, 2000, 1000}},      // empty: half a second
        {1036, 100, 1, {1000, 100, 10, 1000}},      // fills the strip exactly
        {1036, 100, 2, {1000, 100, 20, 2000}},      // twice as wide
        {1036, 100, 0.25, {1000, 100, 2.5, 1000}},  // clips fill a quarter
        {20, 10, 1, {1, 10, 0.1, 1}},               // narrower than the gutter
    };
    for (const auto& c : cases) {
        auto l = stripLayout(c.width, c.total, c.zoom);
        EXPECT_DOUBLE_EQ(l.axisAvail, c.expected.axisAvail) << c.width;
        EXPECT_DOUBLE_EQ(l.fitDuration, c.expected.fitDuration) << c.total;
        EXPECT_DOUBLE_EQ(l.pxPerSec, c.expected.pxPerSec) << c.zoom;
        EXPECT_DOUBLE_EQ(l.contentWidth, c.expected.contentWidth) << c.zoom;
    }
    EXPECT_DOUBLE_EQ(kTotalHeight, 166);
}

TEST(TimelineGeometry, EveryZoomWriteIsClampedAndPinchFollowsTheGestureNotTheClamp) {
    EXPECT_DOUBLE_EQ(wheelZoom(1, 10), 1.1);
    EXPECT_DOUBLE_EQ(wheelZoom(2, -100), 0.25);
    EXPECT_DOUBLE_EQ(wheelZoom(11, 50), 12);
    EXPECT_DOUBLE_EQ(wheelDeltaPoints(0, 120), 10);
    EXPECT_DOUBLE_EQ(wheelDeltaPoints(-7, 120), -7);
    // Pinching past 12 stays there; pinching back acts at once from the gesture's scale.
    double z = pinchZoom(10, 1.5, 1.0);
    EXPECT_DOUBLE_EQ(z, 12);
    EXPECT_DOUBLE_EQ(pinchZoom(z, 1.2, 1.5), 12 * 0.8);
}

TEST(TimelineGeometry, ScrubStopsAtZeroAndTheRealTotalAndTheThumbAtTheStripsEnds) {
    EXPECT_DOUBLE_EQ(scrubSeconds(-30, 10, 50), 0);
    EXPECT_DOUBLE_EQ(scrubSeconds(250, 10, 50), 25);
    EXPECT_DOUBLE_EQ(scrubSeconds(900, 10, 50), 50);
    // The thumb, at x = 100 * 2 - scroll, vanishes half its diameter beyond the visible strip.
    EXPECT_EQ(thumbCentreX(100, 2, 207, 500), std::optional(kGutter - 7));
    EXPECT_EQ(thumbCentreX(100, 2, 207.5, 500), std::nullopt);
    EXPECT_EQ(thumbCentreX(1, 507, 0, 500), std::optional(kGutter + 507));
    EXPECT_EQ(thumbCentreX(1, 508, 0, 500), std::nullopt);
}

TEST(TimelineGeometry, TrimMappingStaysFiniteAndPutsTheInPointAtTheLeftEdge) {
    auto untrimmed = trimMapping(200, 10, 0, 10);
    EXPECT_DOUBLE_EQ(untrimmed.stripWidth, 200);
    EXPECT_DOUBLE_EQ(untrimmed.offsetX, 0);
    auto trimmed = trimMapping(100, 10, 2.5, 7.5);
    EXPECT_DOUBLE_EQ(trimmed.stripWidth, 200);
    EXPECT_DOUBLE_EQ(trimmed.offsetX, -50);
    EXPECT_DOUBLE_EQ(trimMapping(10, 0, 0, 0).stripWidth, 100000);
    EXPECT_DOUBLE_EQ(trimMapping(10, 10, 4, 3).stripWidth, 100000);
}

TEST(TimelineGeometry, AudioPreviewWindowStartsAtZeroAndRunsPastTheEnd) {
    auto r = audioPreviewWindowRect(10, 1);
    EXPECT_DOUBLE_EQ(r.left(), 0);
    EXPECT_DOUBLE_EQ(r.right(), 40);
    EXPECT_DOUBLE_EQ(r.top(), kSliderHeight);
    EXPECT_DOUBLE_EQ(r.height(), kTotalHeight - kSliderHeight);
    EXPECT_DOUBLE_EQ(readoutBubbleOrigin(40).x(), 0);
    EXPECT_DOUBLE_EQ(readoutBubbleOrigin(300).y(), -130);
}

TEST(TimelineGeometry, RulerTicksStopAtTheWidthAndLabelsNeedSixtyPoints) {
    // Half a second at 2400 points a second in 1200: the tick at 1200 is not below the width.
    auto half = rulerTicks(2400, 0.5, 1200);
    ASSERT_EQ(half.major.size(), 1u);
    EXPECT_TRUE(half.major[0].labelled);
    // 100 s at 2 points a second: 30 s apart, at x 0, 60, 120 and 180 in a width of 200.
    auto hundred = rulerTicks(2, 100, 200);
    ASSERT_EQ(hundred.major.size(), 4u);
    EXPECT_DOUBLE_EQ(hundred.major[3].seconds, 90);
    EXPECT_TRUE(hundred.major[2].labelled);
    EXPECT_FALSE(hundred.major[3].labelled) << "180 + 60 is past 200";
    EXPECT_EQ(hundred.minorX.size(), 17u);
}

TEST(DragMath, HoverZonesShrinkOnNarrowBarsAndKeepFourteenPointsForMoving) {
    struct Case {
        double width, x;
        DragMode zone;
    };
    const std::vector<Case> cases = {
        {14, 0, DragMode::move},   {14, 14, DragMode::move},         {20, 3, DragMode::resizeLeft},
        {20, 3.5, DragMode::move}, {20, 17, DragMode::resizeRight},  {30, 8, DragMode::resizeLeft},
        {100, 50, DragMode::move}, {100, 92, DragMode::resizeRight},
    };
    for (const auto& c : cases) EXPECT_EQ(hoverZone(c.width, c.x), c.zone) << c.width << " " << c.x;
}

TEST(DragMath, SnapTakesTheNearestTargetWithinToleranceAndAMoveTheNearerEdge) {
    const std::vector<double> targets = {0, 10, 12, 8};
    EXPECT_EQ(nearestSnap(targets, 10.4, 0.5), std::optional(10.0));
    EXPECT_EQ(nearestSnap(targets, 10.5, 0.5), std::optional(10.0)) << "tolerance included";
    EXPECT_EQ(nearestSnap(targets, 10.6, 0.5), std::nullopt);
    EXPECT_EQ(nearestSnap(targets, 9, 1), std::optional(8.0)) << "10 and 8 tie; 8 is later";
    EXPECT_EQ(nearestSnap(targets, 0, 0), std::nullopt);

    // A move snaps the nearer edge, and the leading one on a tie: start 10 is 0.2 from 10.2,
    // end 15 is 0.3 from 15.3; 10.25 and 14.75 pull the clip opposite ways by as much.
    const std::vector<double> edges = {10.2, 15.3}, tie = {10.25, 14.75};
    auto snap = [&](double t, double tol) { return nearestSnap(edges, t, tol); };
    auto tied = [&](double t, double tol) { return nearestSnap(tie, t, tol); };
    EXPECT_DOUBLE_EQ(moveStep(0, 0, 5, 10, 0.5, snap).targetStart, 10.2);
    EXPECT_DOUBLE_EQ(moveStep(0, 0, 5, 10, 0.5, tied).targetStart, 10.25);
    auto free = moveStep(0, 0, 5, 3, 0.5, snap);
    EXPECT_DOUBLE_EQ(free.targetStart, 3);
    EXPECT_FALSE(free.snapped);
}

TEST(DragMath, TrimsKeepASliverOfSourceAndNeverPassTheSourceEnds) {
    auto noSnap = [](double, double) { return std::optional<double>(); };
    auto snapAt = [](double t) { return [t](double, double) { return std::optional<double>(t); }; };
    // Out past the file's end stops there, and a target beyond it cannot pull it further.
    EXPECT_DOUBLE_EQ(trimOutStep(0, 8, 5, 10, 0, 0.1, noSnap).value, 10);
    EXPECT_DOUBLE_EQ(trimOutStep(0, 8, 5, 10, 0, 0.1, snapAt(12)).value, 10);
    // In past the out point leaves 0.05 seconds.
    EXPECT_DOUBLE_EQ(trimInStep(2, 6, 9, 2, 4, 0.1, noSnap).value, 6 - 0.05);
    // An in edge that snaps lands on the target: start 4 with in 2, target 5 gives in 3.
    auto in = trimInStep(2, 6, 0.9, 2, 4, 0.2, snapAt(5));
    EXPECT_DOUBLE_EQ(in.value, 3);
    EXPECT_TRUE(in.snapped);
    EXPECT_DOUBLE_EQ(in.timelineSeconds, 5);
}

TEST(HitTesting, TheHighestBarTakesTheClickAndOnlyWithinTheRowPadding) {
    const std::vector<BarSlot> bars = {{0, 100, 0}, {50, 100, 1000}, {60, 20, 2}};
    EXPECT_EQ(topmostBarAt(bars, {70, 20}), std::optional<std::size_t>(1));
    EXPECT_EQ(topmostBarAt(bars, {10, 20}), std::optional<std::size_t>(0));
    EXPECT_EQ(topmostBarAt(bars, {10, 2}), std::nullopt);
    EXPECT_EQ(topmostBarAt({{0, 10, 3}, {0, 10, 3}}, {5, 20}), std::optional<std::size_t>(1));
    EXPECT_EQ(gapAt({QRectF(200, 4, 50, 50)}, {210, 20}), std::optional<std::size_t>(0));
    EXPECT_FALSE(collapseButtonRect(QRectF(0, 4, 90, 50)));
    EXPECT_TRUE(collapseButtonRect(QRectF(0, 4, 91, 50)));
}

TEST(TimelineLabels, ScreenReaderTextsNameKindLengthFileAndState) {
    using model::ClipLinkState;
    EXPECT_EQ(clipAccessibilityLabel({false, "a.mov", true, ClipLinkState::linked, 1, 5, true}),
              "Video and audio clip, 4.00 seconds, a.mov, reversed");
    EXPECT_EQ(clipAccessibilityLabel({false, "a.mov", true, ClipLinkState::none, 1, 5, false}),
              "Video clip, 4.00 seconds, a.mov");
    EXPECT_EQ(clipAccessibilityLabel({false, "b.wav", false, ClipLinkState::none, 5, 1, false}),
              "Audio clip, 0.00 seconds, b.wav");
    EXPECT_EQ(clipAccessibilityLabel({true, "a.mov"}), "Missing: a.mov");
    EXPECT_EQ(gapAccessibilityLabel({false, 2, 3.5}), "Gap, 1.50 seconds, video row");
    EXPECT_EQ(gapAccessibilityLabel({true, 2, 1}), "Gap, 0.00 seconds, audio row");
    EXPECT_EQ(playheadAccessibilityValue(1.5, 75), "00:01.50 of 01:15.00");
    EXPECT_EQ(trimReadoutText(12.4, 63.25), "12.40s src · 1:03.25 timeline");
}

}  // namespace
