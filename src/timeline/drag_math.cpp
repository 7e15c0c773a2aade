#include "timeline/drag_math.h"

#include <algorithm>
#include <cmath>

namespace timeline {

DragMode hoverZone(double width, double x) {
    double e = std::min(kEdgeZone, std::max(0.0, (width - kMinMoveZone) / 2));
    if (e <= 0) return DragMode::move;
    if (x <= e) return DragMode::resizeLeft;
    if (x >= width - e) return DragMode::resizeRight;
    return DragMode::move;
}

std::string dragHistoryName(DragMode mode) {
    switch (mode) {
        case DragMode::move:
            return "Move Clip";
        case DragMode::resizeLeft:
            return "Trim In";
        case DragMode::resizeRight:
            return "Trim Out";
    }
    return "Move Clip";
}

std::optional<double> nearestSnap(const std::vector<double>& targets, double time,
                                  double tolerance) {
    if (tolerance <= 0) return std::nullopt;
    double best = tolerance;
    std::optional<double> result;
    for (double target : targets) {
        double d = std::abs(time - target);
        if (d <= best) {
            result = target;
            best = d;
        }
    }
    return result;
}

TrimStep trimOutStep(double in0, double out0, double deltaSeconds, double fullDurationSeconds,
                     double globalStart, double tolerance, const SnapQuery& snap) {
    double lo = in0 + kMinSourceSeconds;
    double value = std::min(fullDurationSeconds, std::max(lo, out0 + deltaSeconds));
    auto s = snap(globalStart + (value - in0), tolerance);
    if (s) value = std::min(fullDurationSeconds, std::max(lo, in0 + (*s - globalStart)));
    return {value, s.has_value(), globalStart + (value - in0)};
}

TrimStep trimInStep(double in0, double out0, double deltaSeconds, double inSeconds,
                    double globalStart, double tolerance, const SnapQuery& snap) {
    double hi = out0 - kMinSourceSeconds;
    double value = std::min(hi, std::max(in0 + deltaSeconds, 0.0));
    auto s = snap(globalStart + (value - inSeconds), tolerance);
    if (s) value = std::min(hi, std::max(inSeconds + (*s - globalStart), 0.0));
    return {value, s.has_value(), globalStart + (value - inSeconds)};
}

MoveStep moveStep(double globalStart, double inSeconds, double outSeconds, double deltaSeconds,
                  double tolerance, const SnapQuery& snap) {
    double start = globalStart + deltaSeconds;
    double span = outSeconds - inSeconds;
    double end = start + span;
    auto a = snap(start, tolerance);
    auto b = snap(end, tolerance);
    double target = start;
    if (a && b)
        target = std::abs(*a - start) <= std::abs(*b - end) ? *a : *b - span;
    else if (a)
        target = *a;
    else if (b)
        target = *b - span;
    return {target, a || b};
}

}  // namespace timeline
