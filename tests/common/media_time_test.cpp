#include "common/media_time.h"

#include <cstdint>

#include <gtest/gtest.h>

namespace {

using common::MediaTime;
using common::MediaTimeRange;

TEST(MediaTime, FromSecondsTakesTheNearestTickWithHalvesAwayFromZeroAndRangesKeepBothEnds) {
    // 0.0008 s is 0.48 ticks, 0.0625 s exactly 37.5 and 0.0075 s a decimal half tick.
    const std::pair<double, std::int64_t> cases[] = {
        {1, 600},     {1.0 / 3, 200}, {0.0008, 0}, {0.0009, 1},           {-0.0009, -1},
        {0.0625, 38}, {-0.0625, -38}, {0.0075, 5}, {36000.0001, 21600000}};
    for (auto [seconds, ticks] : cases)
        EXPECT_EQ(MediaTime::fromSeconds(seconds).ticks, ticks) << seconds;
    for (std::int64_t ticks = -1000; ticks <= 100000; ticks += 7)
        EXPECT_EQ(MediaTime::fromSeconds(MediaTime{ticks}.seconds()).ticks, ticks);
    // A tenth of a second added ten times is one second, which doubles would miss.
    MediaTime sum;
    for (int i = 0; i < 10; ++i) sum = sum + MediaTime::fromSeconds(0.1);
    EXPECT_EQ(sum, MediaTime{600});
    // 0.48 ticks round down and 600.96 round up: 601 ticks, though the length is 600.48.
    const auto range = MediaTimeRange::fromStartEnd(MediaTime::fromSeconds(0.0008),
                                                    MediaTime::fromSeconds(1.0016));
    EXPECT_EQ(range, (MediaTimeRange{MediaTime{0}, MediaTime{601}}));
    EXPECT_EQ(range.end(), MediaTime{601});
}

TEST(MediaTime, TimeBasesTakeTheNearestUnitEitherWayWithoutDriftOrOverflowAndRoundTrip) {
    EXPECT_EQ(MediaTime{20}.toTimeBase(1001, 30000), 1);  // one frame at 29.97
    EXPECT_EQ(MediaTime{1}.toTimeBase(1, 1000), 2);       // 1.67 ms
    EXPECT_EQ(MediaTime{1}.toTimeBase(1, 300), 1);        // half a unit
    EXPECT_EQ(MediaTime{-1}.toTimeBase(1, 300), -1);
    EXPECT_EQ(MediaTime{3}.toTimeBase(1, 300), 2);
    for (std::int64_t i = 0; i <= 360000; i += 997) {
        EXPECT_EQ(MediaTime{i * 60}.toTimeBase(1, 90000), i * 9000);
        EXPECT_EQ(MediaTime{i * 60}.toTimeBase(1, 44100), i * 4410);
    }
    // 10^15 ticks times 10^6 overflows 64 bits before the division brings it back.
    EXPECT_EQ(MediaTime{1000000000000000}.toTimeBase(1, 1000000), 1666666666666666667);
    EXPECT_EQ(MediaTime{-1000000000000000}.toTimeBase(1, 1000000), -1666666666666666667);

    EXPECT_EQ(MediaTime::fromTimeBase(3003, 1, 90000), MediaTime{20});  // 20.02 ticks
    EXPECT_EQ(MediaTime::fromTimeBase(1, 1, 1200), MediaTime{1});       // half a tick
    EXPECT_EQ(MediaTime::fromTimeBase(-1, 1, 1200), MediaTime{-1});
    EXPECT_EQ(MediaTime::fromTimeBase(1000000000000000000, 1, 1000000), MediaTime{600000000000000});
    for (std::int64_t ticks = -6000; ticks <= 6000; ticks += 13)
        EXPECT_EQ(MediaTime::fromTimeBase(MediaTime{ticks}.toTimeBase(1, 90000), 1, 90000),
                  MediaTime{ticks});
}

}  // namespace
