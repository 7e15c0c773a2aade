#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include <QColor>
#include <QElapsedTimer>
#include <QPointF>
#include <QRectF>
#include <QString>

#include "common/uuid.h"
#include "model/clip_link_state.h"
#include "model/project_types.h"
#include "timeline/drag_math.h"
#include "timeline/timeline_geometry.h"

class QPainter;

namespace timeline {

// What one bar shows, as plain values taken from a clip and its project.
struct ClipBarValues {
    common::Uuid clipID;
    double xOffset = 0;  // left edge in the row: pxPerSecond * globalStart
    double width = 0;
    double height = kBarHeight;
    bool selected = false;
    bool underPlayhead = false;
    bool snapHighlight = false;
    double pxPerSecond = 1;
    double fullDurationSeconds = 0;
    double inSeconds = 0;
    double outSeconds = 0;
    double globalStart = 0;
    bool hasVideo = false;
    model::ClipLinkState linkState = model::ClipLinkState::none;
    bool isReversing = false;  // reversed, with its backward file still being made
    bool isReversed = false;   // reversed, with its backward file in place
    bool isMissing = false;
    double playheadGlobal = 0;
    std::filesystem::path clipURL;
};

// What a bar asks of whoever shows it. Every member must be set.
struct ClipBarCallbacks {
    std::function<void()> onRelink;
    std::function<void()> onTap;
    std::function<void()> onPickup;
    std::function<void(double)> onResizeIn;   // new in point, source seconds
    std::function<void(double)> onResizeOut;  // new out point, source seconds
    std::function<void(double)> onMove;       // final horizontal delta, points
    std::function<void(double)> onMoveLive;   // landing x in the row; negative clears it
    std::function<void()> onCommit;
    std::function<void(const std::string&)> onDragBegin;  // history entry name
    std::function<void(std::optional<model::TrimReadoutInfo>)> onTrimReadout;
    std::function<void(std::optional<model::TrimPreviewState>)> onTrimPreview;
    std::function<void(std::optional<common::Uuid>)> onSnap;
    SnapQuery onSnapQuery;
    std::function<void()> onLinkToggle;
    // Escape during a drag: undo what the drag wrote and drop its history entry.
    std::function<void()> onCancel;
};

// One clip in one row: its look in every state, its hover zones, and the one drag from which
// a move, a trim of the in point and a trim of the out point all come. Knows nothing of the
// project: it is given values and reports through callbacks, which may change the values
// (through setValues) while a callback runs. Pointer positions are in the row's coordinates.
// UI thread only.
class ClipBar {
  public:
    explicit ClipBar(ClipBarCallbacks callbacks);

    // `values.clipURL` is ignored: the url is given apart, and copied only when it changed.
    // True if anything that shows changed.
    bool setValues(const ClipBarValues& values, const std::filesystem::path& clipURL);
    const ClipBarValues& values() const { return values_; }
    // Where the bar is drawn: moved by the running move drag.
    double drawnX() const { return values_.xOffset + liveMoveDelta_; }
    // All that painting the bar may touch, shadow and hover scale included, in the row.
    QRectF paintedRect() const;

    // The pointer moved over the bar without a button: the cursor to show.
    Qt::CursorShape hover(QPointF p);
    void leave();
    bool isHovered() const { return hovering_; }

    void press(QPointF p);
    void dragTo(QPointF p);
    void release();
    // Ends a running drag as if it had never begun; true if there was one. The rest of the
    // gesture, up to the release, is ignored.
    bool cancel();
    bool isDragging() const { return dragMode_.has_value(); }

    // Vertical scale: 1.06 while hovered or selected, eased over 0.12 s unless motion is
    // reduced. Stepped by the row; true while still moving.
    double scale() const { return scale_; }
    bool stepScale(bool reducedMotion);
    // The link chip's opacity: 1 while hovered or selected, else 0, eased with the scale.
    double linkChipOpacity() const;

    // Paints the bar's frame and badges around `paintContent`, which fills the content area.
    void paint(QPainter& p, const std::function<void(QPainter&, const QRectF&)>& paintContent,
               double spinPhase) const;

    QString accessibleLabel() const;
    // The help text of the button under `p` (row coordinates), if any.
    QString toolTipAt(QPointF p) const;
    void tap() { callbacks_.onTap(); }

  private:
    enum class PressTarget { bar = 1, linkChip, locateButton };
    void paintNormalBody(QPainter& p, double w,
                         const std::function<void(QPainter&, const QRectF&)>& paintContent,
                         double spinPhase) const;
    QColor strokeColor() const;
    void trimStep(DragMode mode, double dx);
    void moveStepTo(double dx);
    void publishReadout(double absClip, double timelineSeconds, model::TrimReadoutInfo::Edge edge,
                        double cursorXLocal);
    void endDrag();

    ClipBarCallbacks callbacks_;
    ClipBarValues values_;

    bool hovering_ = false;
    bool hoverLeftEdge_ = false;
    bool hoverRightEdge_ = false;
    std::optional<QPointF> pressAt_;
    PressTarget pressTarget_ = PressTarget::bar;
    bool cancelled_ = false;
    std::optional<DragMode> dragMode_;
    std::optional<std::pair<double, double>> dragInitial_;  // in and out points at the start
    double liveMoveDelta_ = 0;

    double scale_ = 1;
    double scaleFrom_ = 1;
    double scaleTo_ = 1;
    QElapsedTimer scaleClock_;
};

}  // namespace timeline
