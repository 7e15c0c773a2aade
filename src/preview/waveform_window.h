#pragma once

#include <vector>

#include <QLineF>

#include "model/clip.h"

namespace preview {

// The stretch of timeline the audio preview shows: the project's window centred on the
// playhead, not limited to the timeline.
struct WaveformWindow {
    double startSeconds = 0;
    double endSeconds = 0;
};

WaveformWindow waveformWindow(double playheadSeconds);

// One clip's part of the waveform: vertical lines stroked together at one width.
struct WaveformStroke {
    double lineWidth = 1;
    std::vector<QLineF> lines;
};

// The waveform of `clips` over `window` on a canvas of `width` × `height` points, one
// stroke per clip with audio and peaks in the window, in `clips` order (later ones drawn
// over earlier). Peaks spread evenly over each whole file; one line per point of width.
std::vector<WaveformStroke> waveformStrokes(const std::vector<model::Clip>& clips,
                                            WaveformWindow window, double width, double height);

}  // namespace preview
