#pragma once

#include <optional>
#include <vector>

#include <QRectF>

#include "model/clip.h"
#include "model/project_types.h"

namespace timeline {

// The strip's fixed measures, in points (device-independent pixels).
inline constexpr double kGutter = 36;
inline constexpr double kSliderHeight = 22;
inline constexpr double kSliderTrackH = 4;
inline constexpr double kSliderThumbD = 14;
inline constexpr double kRulerHeight = 22;
inline constexpr double kTrackHeight = 58;
inline constexpr double kTrackGap = 6;
inline constexpr double kTotalHeight = kSliderHeight + kRulerHeight + 2 * kTrackHeight + kTrackGap;
// A bar sits inside its row with this much room above and below.
inline constexpr double kBarPadding = 4;
inline constexpr double kBarHeight = kTrackHeight - 2 * kBarPadding;

inline constexpr double kMinZoom = 0.25;
inline constexpr double kMaxZoom = 12;

// How seconds map to points at one width, length and zoom: x = pxPerSec * t in the strip's
// content coordinates. Recomputed on every layout, never stored.
struct StripLayout {
    double axisAvail = 1;      // width of the scrolling strip
    double fitDuration = 0.5;  // seconds that fill the strip at zoom 1
    double pxPerSec = 0;
    double contentWidth = 1;
};

// `offeredWidth` includes the gutter.
StripLayout stripLayout(double offeredWidth, double totalDurationSeconds, double zoomFactor);

// Every write of the zoom goes through this: the upper bound first, then the lower.
double clampZoom(double zoomFactor);
// A wheel event's vertical distance in scroll points: a touchpad's pixel delta as it is, a
// mouse wheel's notch (120 eighths of a degree) as 10 points, so that a notch zooms by 10 %.
double wheelDeltaPoints(int pixelDeltaY, int angleDeltaY);
// Ctrl+scroll: `deltaY` in scroll points.
double wheelZoom(double zoomFactor, double deltaY);
// A pinch step: `scale` is the cumulative scale of the gesture, `lastScale` the one seen last.
double pinchZoom(double zoomFactor, double scale, double lastScale);

// Where a click or drag at `x` on the slider or the ruler puts the playhead: never before 0
// and never past the real total (not the fit duration).
double scrubSeconds(double x, double pxPerSec, double totalDurationSeconds);

// The thumb's centre x in the Timeline's coordinates (gutter included), or none while it is
// scrolled more than half its diameter beyond either end of the visible strip.
std::optional<double> thumbCentreX(double pxPerSec, double playheadSeconds, double scrollX,
                                   double axisAvail);

// The playhead line and the landing indicator, in content coordinates.
QRectF playheadLineRect(double pxPerSec, double playheadSeconds);
QRectF landingIndicatorRect(double landingX);

// Where a clip's bar lies in its row at one scale.
struct BarGeometry {
    double xOffset = 0;
    double width = 0;
};
BarGeometry barGeometry(const model::Clip& clip, double pxPerSec);
// Later clips lie over earlier ones, and selected clips over all others.
inline constexpr int kSelectedZ = 1000;
int barZ(bool selected, int indexInClips);

// A gap's bar in its row (y from the row's top).
QRectF gapBarRect(const model::GapSelection& gap, double pxPerSec);
// The "Collapse" button of a selected gap, none when the bar is 90 points or narrower.
std::optional<QRectF> collapseButtonRect(const QRectF& gapBar);

// How a clip's whole-source picture (filmstrip or waveform) is laid under a bar's content
// area of width `areaWidth`: `stripWidth` wide, moved by `offsetX` so that the in point
// meets the left edge. Finite for every clip.
struct TrimMapping {
    double stripWidth = 0;
    double offsetX = 0;
};
TrimMapping trimMapping(double areaWidth, double fullDurationSeconds, double inSeconds,
                        double outSeconds);

// The audio preview's span over ruler and rows, in content coordinates.
QRectF audioPreviewWindowRect(double pxPerSec, double playheadSeconds);

// The trim bubble's top-left in content coordinates: 90 left of the edge, never left of 0,
// 130 above the content's top.
QPointF readoutBubbleOrigin(double cursorX);

// The ruler's ticks over a width `width`: minor ticks under majors, majors with a label
// only where the whole label fits.
struct RulerTick {
    double x = 0;
    double seconds = 0;
    bool labelled = false;
};
struct RulerTicks {
    std::vector<double> minorX;
    std::vector<RulerTick> major;
};
RulerTicks rulerTicks(double pxPerSecond, double totalDuration, double width);
inline constexpr double kRulerMinPx = 60;

}  // namespace timeline
