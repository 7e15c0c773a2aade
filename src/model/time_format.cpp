#include "model/time_format.h"

#include <array>
#include <cassert>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <system_error>

namespace model {

namespace {

constexpr std::array<double, 12> kRulerCandidatesSeconds = {0.5, 1,  2,   5,   10,  15,
                                                            30,  60, 120, 300, 600, 1800};
constexpr double kRulerMinPx = 60;

// "%.2f" in the C locale: printf would follow the process locale, which a Qt
// application sets from the environment and which may use a decimal comma.
std::string fixed2(double value) {
    // Values that fit 64 bits need at most 23 characters.
    std::array<char, 32> buffer{};
    [[maybe_unused]] auto [end, ec] = std::to_chars(buffer.data(), buffer.data() + buffer.size(),
                                                    value, std::chars_format::fixed, 2);
    assert(ec == std::errc{});
    return std::string(buffer.data(), end);
}

std::string twoDigits(std::int64_t value) {
    std::string text = std::to_string(value);
    return text.size() < 2 ? "0" + text : text;
}

std::int64_t wholeMinutes(double s) {
    return static_cast<std::int64_t>(s) / 60;
}

// The seconds past the whole minutes as "%05.2f".
std::string secondsOfMinute(double s) {
    std::string rest = fixed2(s - 60.0 * static_cast<double>(wholeMinutes(s)));
    if (rest.size() < 5) rest.insert(0, 5 - rest.size(), '0');
    return rest;
}

}  // namespace

std::string formatTimecode(double seconds) {
    // Written so that -0.0 also shows as 0.00s.
    const double s = seconds > 0 ? seconds : 0.0;
    if (s < 60) return fixed2(s) + "s";
    return std::to_string(wholeMinutes(s)) + ":" + secondsOfMinute(s);
}

std::string formatLCDTimecode(double seconds) {
    const double s = seconds > 0 ? seconds : 0.0;
    return twoDigits(wholeMinutes(s)) + ":" + secondsOfMinute(s);
}

std::string formatHMS(double seconds) {
    const std::int64_t total = std::llround(seconds);
    const std::int64_t h = total / 3600;
    const std::int64_t m = total % 3600 / 60;
    const std::int64_t s = total % 60;
    if (total < 3600) return std::to_string(m) + ":" + twoDigits(s);
    return std::to_string(h) + ":" + twoDigits(m) + ":" + twoDigits(s);
}

RulerIntervals rulerIntervals(double pxPerSecond) {
    double major = kRulerCandidatesSeconds.back();
    for (double candidate : kRulerCandidatesSeconds) {
        if (pxPerSecond * candidate >= kRulerMinPx) {
            major = candidate;
            break;
        }
    }
    return RulerIntervals{major, major / 5};
}

}  // namespace model
