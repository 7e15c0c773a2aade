#include "model/time_format.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using model::RulerIntervals;

TEST(TimeFormat, TimecodeShowsSecondsBelowAMinuteThenMinutesAndNeverANegative) {
    const std::vector<std::pair<double, std::string>> cases = {
        {7.126, "7.13s"}, {-0.004, "0.00s"},  {-90, "0.00s"},       {59.996, "60.00s"},
        {60, "1:00.00"},  {65.05, "1:05.05"}, {3725.5, "62:05.50"}, {119.999, "1:60.00"}};
    for (const auto& [seconds, text] : cases)
        EXPECT_EQ(model::formatTimecode(seconds), text) << seconds;
}

TEST(TimeFormat, HMSRoundsHalvesUpAndShowsHoursFromAnHourOn) {
    const std::vector<std::pair<double, std::string>> cases = {
        {0.49, "0:00"},      {2.5, "0:03"},     {3599.4, "59:59"},
        {3599.5, "1:00:00"}, {3661, "1:01:01"}, {90061, "25:01:01"}};
    for (const auto& [seconds, text] : cases) EXPECT_EQ(model::formatHMS(seconds), text) << seconds;
}

TEST(TimeFormat, LCDTimecodeHasTwoDigitMinutesFromZeroAndCountsPastAnHour) {
    const std::vector<std::pair<double, std::string>> cases = {
        {0, "00:00.00"},     {-2, "00:00.00"},     {5.5, "00:05.50"},
        {61.25, "01:01.25"}, {3725.5, "62:05.50"}, {59.996, "00:60.00"}};
    for (const auto& [seconds, text] : cases)
        EXPECT_EQ(model::formatLCDTimecode(seconds), text) << seconds;
}

// Each candidate holds from the zoom where it spans sixty points; beyond the ends, the
// smallest candidate and half an hour.
TEST(RulerIntervals, EachCandidateHoldsFromTheZoomWhereItSpansSixtyPoints) {
    const std::vector<std::pair<double, RulerIntervals>> rows = {
        {2400, {0.5, 0.1}}, {120, {0.5, 0.1}}, {119.99, {1, 0.2}},   {4, {15, 3}},
        {3.99, {30, 6}},    {0.1, {600, 120}}, {0.099, {1800, 360}}, {0, {1800, 360}}};
    for (const auto& [pxPerSecond, intervals] : rows)
        EXPECT_EQ(model::rulerIntervals(pxPerSecond), intervals) << "at " << pxPerSecond;
}

}  // namespace
