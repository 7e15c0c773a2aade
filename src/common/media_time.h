#pragma once

#include <cassert>
#include <cmath>
#include <compare>
#include <cstdint>

namespace common {

namespace detail {

__extension__ typedef __int128 Int128;  // wide enough for a 64-bit value times a 32-bit one

// numerator / denominator to the nearest integer, halves away from zero; denominator > 0.
inline std::int64_t divideNearest(Int128 numerator, Int128 denominator) {
    Int128 quotient = numerator / denominator;
    Int128 remainder = numerator % denominator;
    if (remainder < 0) remainder = -remainder;
    if (2 * remainder >= denominator) quotient += numerator < 0 ? -1 : 1;
    assert(quotient >= INT64_MIN && quotient <= INT64_MAX);
    return static_cast<std::int64_t>(quotient);
}

}  // namespace detail

// A time on the composition's clock: a whole number of 1/600 s ticks, so sums and
// differences are exact. Model times stay double seconds; they become MediaTime only at
// the edge of the composition, and FFmpeg time bases only inside media code.
struct MediaTime {
    static constexpr std::int64_t kTicksPerSecond = 600;

    std::int64_t ticks = 0;

    // The tick nearest to `seconds`, halves away from zero. The product with 600 is
    // rounded as a double first, so a decimal half such as 0.0075 s gives 5 ticks although
    // its double lies a hair below 4.5 ticks.
    static MediaTime fromSeconds(double seconds) {
        assert(std::isfinite(seconds));
        const double rounded = std::round(seconds * kTicksPerSecond);
        assert(std::abs(rounded) < 0x1p63);
        return MediaTime{static_cast<std::int64_t>(rounded)};
    }

    // The time of `value` units of `num`/`den` seconds each (an FFmpeg time base), to the
    // nearest tick, halves away from zero.
    static MediaTime fromTimeBase(std::int64_t value, int num, int den) {
        assert(num > 0 && den > 0);
        return MediaTime{
            detail::divideNearest(static_cast<detail::Int128>(value) * num * kTicksPerSecond, den)};
    }

    double seconds() const { return static_cast<double>(ticks) / kTicksPerSecond; }

    // This time in units of `num`/`den` seconds each (an FFmpeg time base), to the
    // nearest unit, halves away from zero. Computed from the ticks in one division, so
    // converting many times never accumulates drift.
    std::int64_t toTimeBase(int num, int den) const {
        assert(num > 0 && den > 0);
        return detail::divideNearest(static_cast<detail::Int128>(ticks) * den,
                                     static_cast<detail::Int128>(num) * kTicksPerSecond);
    }

    friend constexpr auto operator<=>(const MediaTime&, const MediaTime&) = default;
    friend constexpr MediaTime operator+(MediaTime a, MediaTime b) {
        return MediaTime{a.ticks + b.ticks};
    }
    friend constexpr MediaTime operator-(MediaTime a, MediaTime b) {
        return MediaTime{a.ticks - b.ticks};
    }
};

// A stretch of time given by its start and its duration, both in ticks.
struct MediaTimeRange {
    MediaTime start;
    MediaTime duration;

    // The range from `start` to `end`: its duration is exactly their difference, so both
    // ends keep their own rounding.
    static constexpr MediaTimeRange fromStartEnd(MediaTime start, MediaTime end) {
        return MediaTimeRange{start, end - start};
    }

    constexpr MediaTime end() const { return start + duration; }

    friend constexpr bool operator==(const MediaTimeRange&, const MediaTimeRange&) = default;
};

}  // namespace common
