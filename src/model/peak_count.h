#pragma once

namespace model {

// Enrichment asks for kPeaksPerSecond peaks a second of media, and never fewer than
// kFewestPeaks.
inline constexpr int kPeaksPerSecond = 200;
inline constexpr int kFewestPeaks = 1600;

// How many peaks enrichment asks for from a file `fullDurationSeconds` long:
// max(Int(duration × 200), 1600), the product cut toward zero; 1600 when the duration is not
// finite, and at most the largest int.
int peakCountFor(double fullDurationSeconds);

}  // namespace model
