#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace timeline {

// Widths of a clip bar's zones, in points.
inline constexpr double kEdgeZone = 8;
inline constexpr double kSnapPixels = 6;
inline constexpr double kMinMoveZone = 14;
// A clip keeps at least this much source, in seconds, whatever a trim does.
inline constexpr double kMinSourceSeconds = 0.05;

enum class DragMode { move = 1, resizeLeft, resizeRight };

// The zone of a bar `width` wide under `x`, measured from the bar's left edge. The trim
// zones shrink on narrow bars so that 14 points always stay for moving.
DragMode hoverZone(double width, double x);

// The history entry a drag in that zone records.
std::string dragHistoryName(DragMode mode);

// The nearest of `targets` within `tolerance` seconds of `time`, the tolerance included;
// of equally near targets the later one wins. None for a tolerance of 0 or less.
std::optional<double> nearestSnap(const std::vector<double>& targets, double time,
                                  double tolerance);

using SnapQuery = std::function<std::optional<double>(double time, double tolerance)>;

// One step of a trim: the new in or out point in source seconds, whether an edge target
// pulled it, and where the edge then lies on the timeline. in0 and out0 are the points at the
// start of the drag; `deltaSeconds` is the drag's whole horizontal distance so far.
struct TrimStep {
    double value = 0;
    bool snapped = false;
    double timelineSeconds = 0;
};
TrimStep trimOutStep(double in0, double out0, double deltaSeconds, double fullDurationSeconds,
                     double globalStart, double tolerance, const SnapQuery& snap);
// `inSeconds` and `globalStart` are the clip's current pair: each change of the in point
// also moves the clip's start.
TrimStep trimInStep(double in0, double out0, double deltaSeconds, double inSeconds,
                    double globalStart, double tolerance, const SnapQuery& snap);

// One step of a move: where the clip's start would land, with either edge snapping to the
// nearer target (the leading edge on a tie).
struct MoveStep {
    double targetStart = 0;
    bool snapped = false;
};
MoveStep moveStep(double globalStart, double inSeconds, double outSeconds, double deltaSeconds,
                  double tolerance, const SnapQuery& snap);

}  // namespace timeline
