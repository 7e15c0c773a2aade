#include "preview/waveform_window.h"

#include <algorithm>
#include <cmath>

#include "model/project.h"

namespace preview {

WaveformWindow waveformWindow(double playheadSeconds) {
    const double half = model::Project::audioPreviewWindowSeconds / 2;
    return {playheadSeconds - half, playheadSeconds + half};
}

std::vector<WaveformStroke> waveformStrokes(const std::vector<model::Clip>& clips,
                                            WaveformWindow window, double width, double height) {
    std::vector<WaveformStroke> strokes;
    const double t0 = window.startSeconds;
    const double t1 = window.endSeconds;
    if (!(t1 > t0)) return strokes;
    const double middle = height * 0.5;
    const double full = height * 0.42;
    for (const model::Clip& clip : clips) {
        if (!clip.hasAudio || clip.streamMask == model::StreamMask::videoOnly ||
            !clip.waveformPeaks)
            continue;
        const double r = clip.rateMultiplier > 0 ? clip.rateMultiplier : 1.0;
        const double s = clip.startOnTimeline;
        const double e = s + std::max(clip.outSeconds - clip.inSeconds, 0.0) / r;
        const double a = std::max(t0, s);
        const double b = std::min(t1, e);
        if (!(a < b) || !(clip.fullDurationSeconds > 0)) continue;
        const std::vector<float>& peaks = *clip.waveformPeaks;
        const auto n = static_cast<std::ptrdiff_t>(peaks.size());
        const auto indexAt = [&](double t) {
            return static_cast<std::ptrdiff_t>((clip.inSeconds + (t - s) * r) /
                                               clip.fullDurationSeconds * static_cast<double>(n));
        };
        const std::ptrdiff_t i0 = std::max<std::ptrdiff_t>(indexAt(a), 0);
        const std::ptrdiff_t i1 = std::min(indexAt(b), n);
        if (i1 - i0 < 1) continue;
        const double d = width * (b - a) / (t1 - t0);
        const double x0 = width * (a - t0) / (t1 - t0);
        const auto c = std::max<std::ptrdiff_t>(std::lround(d), 1);
        const std::ptrdiff_t q = std::max<std::ptrdiff_t>((i1 - i0) / c, 1);
        WaveformStroke stroke{std::max(d / static_cast<double>(c), 1.0), {}};
        for (std::ptrdiff_t k = 0; k < c; ++k) {
            const std::ptrdiff_t from = i0 + k * q;
            const std::ptrdiff_t to = std::min(i0 + (k + 1) * q, i1);
            if (from >= to) continue;
            const float v =
                std::max(*std::max_element(peaks.begin() + from, peaks.begin() + to), 0.0f);
            const double x = x0 + static_cast<double>(k) + 0.5;
            stroke.lines.emplace_back(x, middle - full * v, x, middle + full * v);
        }
        strokes.push_back(std::move(stroke));
    }
    return strokes;
}

}  // namespace preview
