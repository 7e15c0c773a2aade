#include "model/peak_count.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace model {

int peakCountFor(double fullDurationSeconds) {
    if (!std::isfinite(fullDurationSeconds)) return kFewestPeaks;
    const double wanted = std::trunc(fullDurationSeconds * kPeaksPerSecond);
    return static_cast<int>(
        std::clamp(wanted, static_cast<double>(kFewestPeaks), static_cast<double>(INT_MAX)));
}

}  // namespace model
