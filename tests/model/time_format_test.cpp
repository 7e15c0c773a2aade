#include "model/time_format.h"

#include <gtest/gtest.h>

namespace {

using model::formatHMS;
using model::formatTimecode;
using model::RulerIntervals;
using model::rulerIntervals;

// formatTimecode

TEST(TimeFormat, TimecodeBelowAMinuteShowsSecondsWithTwoDecimals) {
    EXPECT_EQ(formatTimecode(0), "0.00s");
    EXPECT_EQ(formatTimecode(0.5), "0.50s");
    EXPECT_EQ(formatTimecode(59.99), "59.99s");
    EXPECT_EQ(formatTimecode(7.123), "7.12s");
    EXPECT_EQ(formatTimecode(7.126), "7.13s");
}

TEST(TimeFormat, TimecodeShowsNegativeValuesAsZero) {
    EXPECT_EQ(formatTimecode(-3), "0.00s");
    EXPECT_EQ(formatTimecode(-0.0), "0.00s");
    EXPECT_EQ(formatTimecode(-0.004), "0.00s");
    EXPECT_EQ(formatTimecode(-90), "0.00s");
}

TEST(TimeFormat, TimecodeFromAMinuteOnShowsMinutesAndPaddedSeconds) {
    EXPECT_EQ(formatTimecode(60), "1:00.00");
    EXPECT_EQ(formatTimecode(61.5), "1:01.50");
    EXPECT_EQ(formatTimecode(65.05), "1:05.05");
    EXPECT_EQ(formatTimecode(600), "10:00.00");
}

TEST(TimeFormat, TimecodeCountsMinutesOnWithoutAnHoursField) {
    EXPECT_EQ(formatTimecode(3725.5), "62:05.50");
    EXPECT_EQ(formatTimecode(36000), "600:00.00");
}

TEST(TimeFormat, TimecodeRoundsOnlyInItsLastDigit) {
    EXPECT_EQ(formatTimecode(59.996), "60.00s");
    EXPECT_EQ(formatTimecode(119.999), "1:60.00");
    EXPECT_EQ(formatTimecode(60.004), "1:00.00");
}

TEST(TimeFormat, TimecodeLabelsTheRulerTicksOfAHundredSecondTimeline) {
    EXPECT_EQ(formatTimecode(0), "0.00s");
    EXPECT_EQ(formatTimecode(30), "30.00s");
    EXPECT_EQ(formatTimecode(60), "1:00.00");
    EXPECT_EQ(formatTimecode(90), "1:30.00");
}

// formatHMS

TEST(TimeFormat, HMSBelowAnHourShowsMinutesAndSeconds) {
    EXPECT_EQ(formatHMS(0), "0:00");
    EXPECT_EQ(formatHMS(59.4), "0:59");
    EXPECT_EQ(formatHMS(59.5), "1:00");
    EXPECT_EQ(formatHMS(3599.4), "59:59");
    EXPECT_EQ(formatHMS(605), "10:05");
}

TEST(TimeFormat, HMSFromAnHourOnShowsHoursMinutesAndSeconds) {
    EXPECT_EQ(formatHMS(3599.5), "1:00:00");
    EXPECT_EQ(formatHMS(3600), "1:00:00");
    EXPECT_EQ(formatHMS(3661), "1:01:01");
    EXPECT_EQ(formatHMS(36000), "10:00:00");
    EXPECT_EQ(formatHMS(90061), "25:01:01");
}

TEST(TimeFormat, HMSRoundsHalvesAwayFromZero) {
    EXPECT_EQ(formatHMS(0.5), "0:01");
    EXPECT_EQ(formatHMS(2.5), "0:03");
    EXPECT_EQ(formatHMS(0.49), "0:00");
}

// Ruler tick choice

TEST(RulerIntervals, EachCandidateHoldsFromTheZoomWhereItSpansSixtyPoints) {
    struct Row {
        double pxPerSecond;
        double major;
        double minor;
    };
    const Row rows[] = {
        {120, 0.5, 0.1}, {60, 1, 0.2},   {30, 2, 0.4},    {12, 5, 1},
        {6, 10, 2},      {4, 15, 3},     {2, 30, 6},      {1, 60, 12},
        {0.5, 120, 24},  {0.2, 300, 60}, {0.1, 600, 120}, {0.09, 1800, 360},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(rulerIntervals(row.pxPerSecond), (RulerIntervals{row.major, row.minor}))
            << "at " << row.pxPerSecond << " points per second";
    }
}

TEST(RulerIntervals, JustBelowEachThresholdTheNextCandidateIsChosen) {
    EXPECT_EQ(rulerIntervals(119.99).majorSeconds, 1);
    EXPECT_EQ(rulerIntervals(59.99).majorSeconds, 2);
    EXPECT_EQ(rulerIntervals(29.99).majorSeconds, 5);
    EXPECT_EQ(rulerIntervals(11.99).majorSeconds, 10);
    EXPECT_EQ(rulerIntervals(5.99).majorSeconds, 15);
    EXPECT_EQ(rulerIntervals(3.99).majorSeconds, 30);
    EXPECT_EQ(rulerIntervals(1.99).majorSeconds, 60);
    EXPECT_EQ(rulerIntervals(0.99).majorSeconds, 120);
    EXPECT_EQ(rulerIntervals(0.49).majorSeconds, 300);
    EXPECT_EQ(rulerIntervals(0.19).majorSeconds, 600);
    EXPECT_EQ(rulerIntervals(0.099).majorSeconds, 1800);
}

TEST(RulerIntervals, ExactlySixtyPointsPerSecondGivesOneSecondNotTwo) {
    EXPECT_EQ(rulerIntervals(60), (RulerIntervals{1, 0.2}));
    EXPECT_EQ(rulerIntervals(59.99), (RulerIntervals{2, 0.4}));
}

TEST(RulerIntervals, LargeZoomKeepsTheSmallestCandidate) {
    EXPECT_EQ(rulerIntervals(2400), (RulerIntervals{0.5, 0.1}));
}

TEST(RulerIntervals, ZoomTooSmallForAnyCandidateFallsBackToHalfAnHour) {
    EXPECT_EQ(rulerIntervals(0.001), (RulerIntervals{1800, 360}));
    EXPECT_EQ(rulerIntervals(0), (RulerIntervals{1800, 360}));
}

}  // namespace
