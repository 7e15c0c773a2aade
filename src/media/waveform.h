#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "model/image.h"
#include "model/peak_count.h"

// Audio levels of a whole file and their picture, for the timeline's audio row.
namespace media::waveform {

// A peak is the largest 16-bit magnitude of its stretch over kFullScale, times kDisplayGain,
// limited to 1, so everything from 62.5 % of full scale up shows at full height.
inline constexpr float kFullScale = 32767.0f;
inline constexpr float kDisplayGain = 1.6f;

// The waveform image: kImageWidth × kImageHeight pixels, one vertical line per peak about the
// row boundary kCentreY, reaching kGreatestHalfHeight × peak pixels up and down plus a round
// cap, in kTeal at kLineAlpha on a clear background.
inline constexpr int kImageWidth = 1600;
inline constexpr int kImageHeight = 60;
inline constexpr double kCentreY = 30.0;
inline constexpr double kGreatestHalfHeight = 29.0;
struct Rgb {
    int r = 0;
    int g = 0;
    int b = 0;
};
inline constexpr Rgb kTeal{48, 176, 199};
inline constexpr double kLineAlpha = 0.95;

// How many peaks enrichment asks for; the project decides, so the rule lives in the model.
using model::peakCountFor;

// Exactly `targetPeakCount` levels in 0...1 for the first audio stream of `url`, in time
// order. The stream is decoded to 16-bit signed interleaved PCM at its own rate and channel
// count; with N samples over all channels, bucket = max(N / target, 1) in whole numbers, and
// peak i is the largest magnitude among samples [i × bucket, min((i + 1) × bucket, N)), 0
// when that is empty, over kFullScale (−32768 counts as 32767), times kDisplayGain and
// limited to 1. Samples past target × bucket count for nothing. Nothing when there is no
// audio, when no sample decodes, when `targetPeakCount` is not above 0, or when decoding
// fails anywhere, such as in a truncated file: never a partial result. Holds a few maxima
// per peak rather than the samples, and may decode the file twice when its length is not
// known ahead. Blocks while it decodes; safe on any thread.
std::optional<std::vector<float>> extractPeaks(const std::filesystem::path& url,
                                               int targetPeakCount);

// The picture of `peaks` (n of them, each 0...1): line i is centred at
// x = (i + 0.5) × kImageWidth / n and runs from kCentreY − h to kCentreY + h, h = peak ×
// kGreatestHalfHeight, 1 pixel wide with round caps (so silence is a row of dots). Pixels
// hold the union of the lines' coverage, so more lines than columns merge instead of
// piling up; line centres are placed to 1/16 pixel. RGBA, not premultiplied: covered pixels
// are kTeal with alpha kLineAlpha × coverage, the rest (0, 0, 0, 0). Never null.
model::Image drawWaveform(const std::vector<float>& peaks);

}  // namespace media::waveform
