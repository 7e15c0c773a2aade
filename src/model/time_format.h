#pragma once

#include <string>

namespace model {

// Seconds as the ruler, the trim readout and the audio preview show them: "12.34s" below a
// minute, else "m:ss.ss" with minutes counting on past 59 (no hours field). Negative
// values show as 0. Rounding happens only in the last digit, so 119.999 shows as
// "1:60.00". Locale independent. `seconds` must be finite and within 64-bit integer range.
std::string formatTimecode(double seconds);

// Seconds as the window's time display and the playhead's accessibility value show them:
// "mm:ss.ss", minutes counting on past 59. Negative values show as 0. Locale independent.
std::string formatLCDTimecode(double seconds);

// Seconds rounded to whole seconds, halves away from zero, as the status line shows a
// duration: "m:ss" below an hour, else "h:mm:ss". `seconds` must be finite, not negative
// and within 64-bit integer range.
std::string formatHMS(double seconds);

// The ruler's tick spacing at one zoom, in seconds.
struct RulerIntervals {
    double majorSeconds = 0;  // labelled ticks, at least 60 points apart when possible
    double minorSeconds = 0;  // one fifth of the major interval
    friend bool operator==(const RulerIntervals&, const RulerIntervals&) = default;
};

// The first of 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600 and 1800 seconds that spans at
// least 60 points at `pxPerSecond`, or 1800 when none does.
RulerIntervals rulerIntervals(double pxPerSecond);

}  // namespace model
