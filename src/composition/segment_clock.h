#pragma once

#include <cstdint>

#include "common/media_time.h"
#include "composition/composition.h"

namespace composition {

using common::detail::Int128;

// A time in seconds as an exact fraction, so that mapping composition time to source time
// and on to a stream's time base rounds only once, at the very end.
struct ExactSeconds {
    Int128 numerator = 0;
    Int128 denominator = 1;  // above 0
};

inline std::int64_t floorDivide(Int128 numerator, Int128 denominator) {
    Int128 quotient = numerator / denominator;
    if (numerator % denominator != 0 && (numerator < 0) != (denominator < 0)) --quotient;
    return static_cast<std::int64_t>(quotient);
}

// The same fraction in lowest terms, which keeps chained products far from overflow.
inline ExactSeconds reduced(ExactSeconds seconds) {
    Int128 a = seconds.numerator < 0 ? -seconds.numerator : seconds.numerator;
    Int128 b = seconds.denominator;
    while (b != 0) {
        const Int128 rest = a % b;
        a = b;
        b = rest;
    }
    if (a <= 1) return seconds;
    return {seconds.numerator / a, seconds.denominator / a};
}

// `value` units of 1/`scale` seconds.
inline ExactSeconds exactSeconds(std::int64_t value, std::int64_t scale) {
    return {value, scale};
}

inline ExactSeconds exactSeconds(common::MediaTime time) {
    return {time.ticks, common::MediaTime::kTicksPerSecond};
}

// The source time, in seconds from the movie's origin (see media::movieOrigin), that
// composition time `time` maps to within `segment`, which must have a source. A scaled
// segment plays its whole asset range over its whole duration, so the factor is exactly
// assetRange.duration / duration (1 when unscaled), not the rounded-off rate.
inline ExactSeconds sourceSecondsAt(const Segment& segment, ExactSeconds time) {
    constexpr Int128 kTicks = common::MediaTime::kTicksPerSecond;
    const SegmentSource& source = *segment.source;
    const Int128 assetStart = source.assetRange.start.ticks;
    const Int128 assetLength = source.assetRange.duration.ticks;
    const Int128 start = segment.start.ticks;
    const Int128 length = segment.duration.ticks;
    // assetStart/600 + (t - start/600) * assetLength/length, over one common denominator.
    return reduced({assetStart * time.denominator * length +
                        (time.numerator * kTicks - start * time.denominator) * assetLength,
                    kTicks * time.denominator * length});
}

// The last whole count of `timeBase` units at or before `seconds`.
inline std::int64_t floorToTimeBase(ExactSeconds seconds, int timeBaseNum, int timeBaseDen) {
    return floorDivide(seconds.numerator * timeBaseDen, seconds.denominator * timeBaseNum);
}

// The count of `timeBase` units nearest to `seconds`, halves away from zero.
inline std::int64_t roundToTimeBase(ExactSeconds seconds, int timeBaseNum, int timeBaseDen) {
    return common::detail::divideNearest(seconds.numerator * timeBaseDen,
                                         seconds.denominator * timeBaseNum);
}

// a - b.
inline ExactSeconds difference(ExactSeconds a, ExactSeconds b) {
    return reduced(
        {a.numerator * b.denominator - b.numerator * a.denominator, a.denominator * b.denominator});
}

// Whether a < b.
inline bool earlier(ExactSeconds a, ExactSeconds b) {
    return a.numerator * b.denominator < b.numerator * a.denominator;
}

}  // namespace composition
