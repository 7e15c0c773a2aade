#include "model/time_format.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using model::formatHMS;
using model::formatTimecode;
using model::RulerIntervals;
using model::rulerIntervals;

using Formatted = std::vector<std::pair<double, std::string>>;

TEST(TimeFormat, Timecode) {
    // Below a minute: seconds with two decimals, and negative values as zero. From a minute
    // on: minutes and padded seconds, with no hours field. Rounding only in the last digit.
    const Formatted cases = {
        {0, "0.00s"},         {0.5, "0.50s"},     {59.99, "59.99s"},    {7.123, "7.12s"},
        {7.126, "7.13s"},     {30, "30.00s"},     {-3, "0.00s"},        {-0.0, "0.00s"},
        {-0.004, "0.00s"},    {-90, "0.00s"},     {60, "1:00.00"},      {61.5, "1:01.50"},
        {65.05, "1:05.05"},   {90, "1:30.00"},    {600, "10:00.00"},    {3725.5, "62:05.50"},
        {36000, "600:00.00"}, {59.996, "60.00s"}, {119.999, "1:60.00"}, {60.004, "1:00.00"}};
    for (const auto& [seconds, text] : cases) EXPECT_EQ(formatTimecode(seconds), text) << seconds;
}

TEST(TimeFormat, LCDTimecode) {
    // Two-digit minutes from zero on, counting past an hour; seconds always padded.
    const Formatted cases = {{0, "00:00.00"},     {-2, "00:00.00"},     {5.5, "00:05.50"},
                             {61.25, "01:01.25"}, {3725.5, "62:05.50"}, {59.996, "00:60.00"}};
    for (const auto& [seconds, text] : cases)
        EXPECT_EQ(model::formatLCDTimecode(seconds), text) << seconds;
}

TEST(TimeFormat, HMS) {
    // Minutes and seconds below an hour, hours too from an hour on; halves round away from
    // zero.
    const Formatted cases = {{0, "0:00"},         {59.4, "0:59"},    {59.5, "1:00"},
                             {3599.4, "59:59"},   {605, "10:05"},    {3599.5, "1:00:00"},
                             {3600, "1:00:00"},   {3661, "1:01:01"}, {36000, "10:00:00"},
                             {90061, "25:01:01"}, {0.5, "0:01"},     {2.5, "0:03"},
                             {0.49, "0:00"}};
    for (const auto& [seconds, text] : cases) EXPECT_EQ(formatHMS(seconds), text) << seconds;
}

// Each candidate holds from the zoom where it spans sixty points, and just below that the
// next one is chosen; beyond the ends, the smallest candidate and half an hour as the fallback.
TEST(RulerIntervals, EachCandidateHoldsFromTheZoomWhereItSpansSixtyPoints) {
    const std::vector<std::pair<double, RulerIntervals>> rows = {
        {120, {0.5, 0.1}},    {119.99, {1, 0.2}},   {60, {1, 0.2}},      {59.99, {2, 0.4}},
        {30, {2, 0.4}},       {29.99, {5, 1}},      {12, {5, 1}},        {11.99, {10, 2}},
        {6, {10, 2}},         {5.99, {15, 3}},      {4, {15, 3}},        {3.99, {30, 6}},
        {2, {30, 6}},         {1.99, {60, 12}},     {1, {60, 12}},       {0.99, {120, 24}},
        {0.5, {120, 24}},     {0.49, {300, 60}},    {0.2, {300, 60}},    {0.19, {600, 120}},
        {0.1, {600, 120}},    {0.099, {1800, 360}}, {0.09, {1800, 360}}, {2400, {0.5, 0.1}},
        {0.001, {1800, 360}}, {0, {1800, 360}}};
    for (const auto& [pxPerSecond, intervals] : rows)
        EXPECT_EQ(rulerIntervals(pxPerSecond), intervals) << "at " << pxPerSecond;
}

}  // namespace
