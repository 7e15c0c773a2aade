#include "common/media_time.h"

#include <cstdint>

#include <gtest/gtest.h>

namespace {

using common::MediaTime;
using common::MediaTimeRange;

std::int64_t ticksOf(double seconds) {
    return MediaTime::fromSeconds(seconds).ticks;
}

TEST(MediaTime, FromSecondsTakesTheNearestTick) {
    EXPECT_EQ(ticksOf(0), 0);
    EXPECT_EQ(ticksOf(1), 600);
    EXPECT_EQ(ticksOf(0.1), 60);
    EXPECT_EQ(ticksOf(1.0 / 3), 200);
    EXPECT_EQ(ticksOf(0.0008), 0);  // 0.48 ticks
    EXPECT_EQ(ticksOf(0.0009), 1);  // 0.54 ticks
    EXPECT_EQ(ticksOf(-0.0009), -1);
    EXPECT_EQ(ticksOf(36000.0001), 21600000);
}

TEST(MediaTime, FromSecondsRoundsHalvesAwayFromZero) {
    EXPECT_EQ(ticksOf(0.0625), 38);  // exactly 37.5 ticks
    EXPECT_EQ(ticksOf(-0.0625), -38);
    EXPECT_EQ(ticksOf(0.1875), 113);  // exactly 112.5 ticks
    EXPECT_EQ(ticksOf(0.0075), 5);    // a decimal half tick
    EXPECT_EQ(ticksOf(-0.0075), -5);
}

TEST(MediaTime, SecondsOfTicksRoundTrip) {
    EXPECT_EQ(MediaTime{900}.seconds(), 1.5);
    EXPECT_EQ(MediaTime{-60}.seconds(), -0.1);
    for (std::int64_t ticks = -1000; ticks <= 100000; ticks += 7) {
        EXPECT_EQ(MediaTime::fromSeconds(MediaTime{ticks}.seconds()).ticks, ticks);
    }
}

TEST(MediaTime, ArithmeticAndComparisonAreExactOnTicks) {
    EXPECT_EQ(MediaTime{600} + MediaTime{300}, MediaTime{900});
    EXPECT_EQ(MediaTime{600} - MediaTime{900}, MediaTime{-300});
    EXPECT_LT(MediaTime{599}, MediaTime{600});
    EXPECT_GT(MediaTime{1}, MediaTime{0});
    EXPECT_NE(MediaTime{1}, MediaTime{2});
    EXPECT_EQ(MediaTime{}, MediaTime{0});

    // A tenth of a second added ten times is one second, which doubles would miss.
    MediaTime sum;
    for (int i = 0; i < 10; ++i) sum = sum + MediaTime::fromSeconds(0.1);
    EXPECT_EQ(sum, MediaTime{600});
}

TEST(MediaTime, ToTimeBaseConvertsExactMultiples) {
    EXPECT_EQ(MediaTime{600}.toTimeBase(1, 90000), 90000);
    EXPECT_EQ(MediaTime{1}.toTimeBase(1, 48000), 80);
    EXPECT_EQ(MediaTime{20}.toTimeBase(1001, 30000), 1);  // one frame at 29.97
    EXPECT_EQ(MediaTime{-600}.toTimeBase(1, 1000), -1000);
    EXPECT_EQ(MediaTime{0}.toTimeBase(1, 44100), 0);
}

TEST(MediaTime, ToTimeBaseRoundsToTheNearestUnitWithHalvesAwayFromZero) {
    EXPECT_EQ(MediaTime{1}.toTimeBase(1, 1000), 2);  // 1.67 ms
    EXPECT_EQ(MediaTime{2}.toTimeBase(1, 1000), 3);  // 3.33 ms
    EXPECT_EQ(MediaTime{1}.toTimeBase(1, 300), 1);   // half a unit
    EXPECT_EQ(MediaTime{-1}.toTimeBase(1, 300), -1);
    EXPECT_EQ(MediaTime{3}.toTimeBase(1, 300), 2);          // one and a half units
    EXPECT_EQ(MediaTime{600}.toTimeBase(1001, 30000), 30);  // 29.97 frames
}

TEST(MediaTime, ToTimeBaseDoesNotDriftOverLongRuns) {
    // Every tenth of a second for ten hours: each time converts on its own, and the last
    // lands exactly where the whole duration does.
    for (std::int64_t i = 0; i <= 360000; i += 997) {
        EXPECT_EQ(MediaTime{i * 60}.toTimeBase(1, 90000), i * 9000);
        EXPECT_EQ(MediaTime{i * 60}.toTimeBase(1, 44100), i * 4410);
    }
    EXPECT_EQ(MediaTime{36000 * 600}.toTimeBase(1, 1000000), 36000000000);
}

TEST(MediaTime, ToTimeBaseSurvivesProductsBeyondSixtyFourBits) {
    // 10^15 ticks times 10^6 overflows 64 bits before the division brings it back.
    EXPECT_EQ(MediaTime{1000000000000000}.toTimeBase(1, 1000000), 1666666666666666667);
    EXPECT_EQ(MediaTime{-1000000000000000}.toTimeBase(1, 1000000), -1666666666666666667);
}

TEST(MediaTime, FromTimeBaseTakesTheNearestTick) {
    EXPECT_EQ(MediaTime::fromTimeBase(90000, 1, 90000), MediaTime{600});
    EXPECT_EQ(MediaTime::fromTimeBase(3003, 1, 90000), MediaTime{20});  // 20.02 ticks
    EXPECT_EQ(MediaTime::fromTimeBase(1, 1, 1200), MediaTime{1});       // half a tick
    EXPECT_EQ(MediaTime::fromTimeBase(-1, 1, 1200), MediaTime{-1});
    EXPECT_EQ(MediaTime::fromTimeBase(1, 1001, 30000), MediaTime{20});
    EXPECT_EQ(MediaTime::fromTimeBase(1000000000000000000, 1, 1000000), MediaTime{600000000000000});
}

TEST(MediaTime, TimeBaseRoundTripKeepsTicksWhenTheBaseIsFiner) {
    for (std::int64_t ticks = -6000; ticks <= 6000; ticks += 13) {
        const MediaTime t{ticks};
        EXPECT_EQ(MediaTime::fromTimeBase(t.toTimeBase(1, 90000), 1, 90000), t);
        EXPECT_EQ(MediaTime::fromTimeBase(t.toTimeBase(1, 48000), 1, 48000), t);
    }
}

TEST(MediaTimeRange, FromStartEndKeepsBothEndsExactly) {
    const auto range = MediaTimeRange::fromStartEnd(MediaTime{600}, MediaTime{1500});
    EXPECT_EQ(range.start, MediaTime{600});
    EXPECT_EQ(range.duration, MediaTime{900});
    EXPECT_EQ(range.end(), MediaTime{1500});
}

TEST(MediaTimeRange, DurationIsTheDifferenceOfRoundedEndsNotTheRoundedLength) {
    // 0.48 ticks round down and 600.96 round up: 601 ticks, though the length is 600.48.
    const auto range = MediaTimeRange::fromStartEnd(MediaTime::fromSeconds(0.0008),
                                                    MediaTime::fromSeconds(1.0016));
    EXPECT_EQ(range.start, MediaTime{0});
    EXPECT_EQ(range.duration, MediaTime{601});
}

TEST(MediaTimeRange, EmptyAndEqualRanges) {
    const auto empty = MediaTimeRange::fromStartEnd(MediaTime{300}, MediaTime{300});
    EXPECT_EQ(empty.duration, MediaTime{0});
    EXPECT_EQ(empty.end(), MediaTime{300});
    EXPECT_EQ(empty, (MediaTimeRange{MediaTime{300}, MediaTime{0}}));
    EXPECT_NE(empty, (MediaTimeRange{MediaTime{300}, MediaTime{1}}));
}

}  // namespace
