#include "timeline/timeline_geometry.h"

#include <algorithm>
#include <cmath>

#include "model/time_format.h"

namespace timeline {

StripLayout stripLayout(double offeredWidth, double totalDurationSeconds, double zoomFactor) {
    StripLayout l;
    l.axisAvail = std::max(offeredWidth - kGutter, 1.0);
    l.fitDuration = std::max(totalDurationSeconds, 0.5);
    l.pxPerSec = l.axisAvail / l.fitDuration * zoomFactor;
    l.contentWidth = std::max(l.axisAvail, l.fitDuration * l.pxPerSec);
    return l;
}

double clampZoom(double zoomFactor) {
    return std::max(std::min(zoomFactor, kMaxZoom), kMinZoom);
}

double wheelDeltaPoints(int pixelDeltaY, int angleDeltaY) {
    return pixelDeltaY != 0 ? pixelDeltaY : angleDeltaY / 12.0;
}

double wheelZoom(double zoomFactor, double deltaY) {
    return clampZoom(zoomFactor * (1 + deltaY * 0.01));
}

double pinchZoom(double zoomFactor, double scale, double lastScale) {
    return clampZoom(zoomFactor * (scale / lastScale));
}

double scrubSeconds(double x, double pxPerSec, double totalDurationSeconds) {
    if (pxPerSec <= 0) return 0;
    return std::min(std::max(x, 0.0) / pxPerSec, totalDurationSeconds);
}

std::optional<double> thumbCentreX(double pxPerSec, double playheadSeconds, double scrollX,
                                   double axisAvail) {
    double x = pxPerSec * playheadSeconds - scrollX;
    if (x < -kSliderThumbD / 2 || x > axisAvail + kSliderThumbD / 2) return std::nullopt;
    return x + kGutter;
}

QRectF playheadLineRect(double pxPerSec, double playheadSeconds) {
    return {pxPerSec * playheadSeconds - 0.5, kSliderHeight, 1,
            std::max(kTotalHeight - kSliderHeight, 0.0)};
}

QRectF landingIndicatorRect(double landingX) {
    return {std::max(landingX, 0.0) - 1, 0, 2, kTotalHeight};
}

BarGeometry barGeometry(const model::Clip& clip, double pxPerSec) {
    return {pxPerSec * clip.startOnTimeline, pxPerSec * clip.timelineLength()};
}

int barZ(bool selected, int indexInClips) {
    return selected ? 1000 : indexInClips;
}

QRectF gapBarRect(const model::GapSelection& gap, double pxPerSec) {
    double width = pxPerSec * std::max(gap.endTime - gap.startTime, 0.0);
    return {pxPerSec * gap.startTime, kBarPadding, std::max(width, 0.0), kBarHeight};
}

std::optional<QRectF> collapseButtonRect(const QRectF& gapBar) {
    if (gapBar.width() <= 90) return std::nullopt;
    QRectF button(0, 0, 72, 22);
    button.moveCenter(gapBar.center());
    return button;
}

TrimMapping trimMapping(double areaWidth, double fullDurationSeconds, double inSeconds,
                        double outSeconds) {
    double full = fullDurationSeconds <= 0.0001 ? 0.0001 : fullDurationSeconds;
    double span = std::max(outSeconds - inSeconds, 0.0);
    double visibleFraction = std::max(span / full, 0.0001);
    double stripWidth = areaWidth / visibleFraction;
    return {stripWidth, -(stripWidth * (inSeconds / full))};
}

QRectF audioPreviewWindowRect(double pxPerSec, double playheadSeconds) {
    double startX = pxPerSec * std::max(playheadSeconds - 3.0, 0.0);
    double endX = pxPerSec * (playheadSeconds + 3.0);
    return {startX, kSliderHeight, std::max(endX - startX, 0.0),
            std::max(kTotalHeight - kSliderHeight, 0.0)};
}

QPointF readoutBubbleOrigin(double cursorX) {
    return {std::max(cursorX - 90, 0.0), -130};
}

RulerTicks rulerTicks(double pxPerSecond, double totalDuration, double width) {
    RulerTicks ticks;
    auto intervals = model::rulerIntervals(pxPerSecond);
    auto minorCount = static_cast<long>(std::floor(totalDuration / intervals.minorSeconds));
    for (long i = 0; i <= minorCount; ++i) {
        double x = pxPerSecond * (intervals.minorSeconds * static_cast<double>(i));
        if (x >= width) break;
        ticks.minorX.push_back(x);
    }
    auto majorCount = static_cast<long>(std::floor(totalDuration / intervals.majorSeconds));
    for (long i = 0; i <= majorCount; ++i) {
        double t = intervals.majorSeconds * static_cast<double>(i);
        double x = pxPerSecond * t;
        if (x >= width) break;
        ticks.major.push_back({x, t, x + kRulerMinPx <= width});
    }
    return ticks;
}

}  // namespace timeline
