#include "timeline/clip_bar.h"

#include <algorithm>
#include <cmath>

#include <QFontMetricsF>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include "timeline/hit_testing.h"
#include "timeline/icons.h"
#include "timeline/row_painting.h"
#include "timeline/timeline_labels.h"
#include "timeline/timeline_style.h"

namespace timeline {

namespace {

constexpr double kHoverScale = 1.06;
constexpr double kScaleSeconds = 0.12;
constexpr double kCornerRadius = 5;

}  // namespace

ClipBar::ClipBar(ClipBarCallbacks callbacks) : callbacks_(std::move(callbacks)) {}

bool ClipBar::setValues(const ClipBarValues& values, const std::filesystem::path& clipURL) {
    const ClipBarValues& v = values_;
    bool changed = v.clipID != values.clipID || v.xOffset != values.xOffset ||
                   v.width != values.width || v.height != values.height ||
                   v.selected != values.selected || v.underPlayhead != values.underPlayhead ||
                   v.snapHighlight != values.snapHighlight || v.linkState != values.linkState ||
                   v.isReversing != values.isReversing || v.isReversed != values.isReversed ||
                   v.isMissing != values.isMissing || v.inSeconds != values.inSeconds ||
                   v.outSeconds != values.outSeconds ||
                   v.fullDurationSeconds != values.fullDurationSeconds;
    std::filesystem::path url = std::move(values_.clipURL);
    values_ = values;
    values_.clipURL = std::move(url);
    if (values_.clipURL.native() != clipURL.native()) {
        values_.clipURL = clipURL;
        changed = true;
    }
    return changed;
}

QRectF ClipBar::paintedRect() const {
    // The selection shadow reaches 5 beyond the bar and 2 lower; the hover scale 3 up and down.
    return QRectF(std::floor(drawnX()) - 7, 0, std::max(values_.width, 1.0) + 16, kTrackHeight);
}

Qt::CursorShape ClipBar::hover(QPointF p) {
    hovering_ = true;
    // A running drag keeps the mode it began with, whatever the pointer passes over.
    DragMode zone = dragMode_ ? *dragMode_ : hoverZone(values_.width, p.x() - values_.xOffset);
    if (values_.isMissing) zone = DragMode::move;
    hoverLeftEdge_ = zone == DragMode::resizeLeft;
    hoverRightEdge_ = zone == DragMode::resizeRight;
    if (zone != DragMode::move) return Qt::SizeHorCursor;
    return dragMode_ ? Qt::ClosedHandCursor : Qt::OpenHandCursor;
}

void ClipBar::leave() {
    hovering_ = false;
    hoverLeftEdge_ = false;
    hoverRightEdge_ = false;
}

void ClipBar::press(QPointF p) {
    pressAt_ = p;
    cancelled_ = false;
    QPointF local(p.x() - values_.xOffset, p.y() - kBarPadding);
    pressTarget_ = PressTarget::bar;
    if (values_.isMissing) {
        if (showsLocateButton(values_.width) &&
            locateButtonRect(values_.width, values_.height).contains(local))
            pressTarget_ = PressTarget::locateButton;
    } else if (showsLinkChip(values_.linkState, values_.width) &&
               linkChipRect(values_.width).contains(local)) {
        pressTarget_ = PressTarget::linkChip;
    }
}

void ClipBar::dragTo(QPointF p) {
    if (!pressAt_ || cancelled_ || values_.isMissing || pressTarget_ != PressTarget::bar) return;
    const double dx = p.x() - pressAt_->x();
    if (!dragMode_) {
        // A drag needs 1 point of movement in any direction; less is a click.
        if (std::hypot(dx, p.y() - pressAt_->y()) < 1) return;
        dragInitial_ = {values_.inSeconds, values_.outSeconds};
        dragMode_ = hoverZone(values_.width, pressAt_->x() - values_.xOffset);
        callbacks_.onPickup();
        callbacks_.onDragBegin(dragHistoryName(*dragMode_));
    }
    if (*dragMode_ == DragMode::move)
        moveStepTo(dx);
    else
        trimStep(*dragMode_, dx);
}

void ClipBar::trimStep(DragMode mode, double dx) {
    // The values of this step: callbacks below may replace values_.
    const ClipBarValues v = values_;
    const auto [in0, out0] = *dragInitial_;
    const double deltaS = dx / v.pxPerSecond;
    const double tol = kSnapPixels / v.pxPerSecond;
    if (mode == DragMode::resizeRight) {
        TrimStep step = trimOutStep(in0, out0, deltaS, v.fullDurationSeconds, v.globalStart, tol,
                                    callbacks_.onSnapQuery);
        callbacks_.onResizeOut(step.value);
        callbacks_.onSnap(step.snapped ? std::optional(v.clipID) : std::nullopt);
        publishReadout(step.value, step.timelineSeconds, model::TrimReadoutInfo::Edge::out,
                       v.width);
        callbacks_.onTrimPreview(
            model::TrimPreviewState{v.clipURL, std::max(step.value - 0.04, 0.0)});
    } else {
        TrimStep step =
            trimInStep(in0, out0, deltaS, v.inSeconds, v.globalStart, tol, callbacks_.onSnapQuery);
        callbacks_.onResizeIn(step.value);
        callbacks_.onSnap(step.snapped ? std::optional(v.clipID) : std::nullopt);
        publishReadout(step.value, step.timelineSeconds, model::TrimReadoutInfo::Edge::in, 0);
        callbacks_.onTrimPreview(model::TrimPreviewState{v.clipURL, step.value});
    }
}

void ClipBar::publishReadout(double absClip, double timelineSeconds,
                             model::TrimReadoutInfo::Edge edge, double cursorXLocal) {
    callbacks_.onTrimReadout(model::TrimReadoutInfo{values_.clipID, edge, absClip, timelineSeconds,
                                                    cursorXLocal + values_.xOffset,
                                                    values_.hasVideo});
}

void ClipBar::moveStepTo(double dx) {
    const ClipBarValues v = values_;
    MoveStep step = moveStep(v.globalStart, v.inSeconds, v.outSeconds, dx / v.pxPerSecond,
                             kSnapPixels / v.pxPerSecond, callbacks_.onSnapQuery);
    liveMoveDelta_ = v.pxPerSecond * (step.targetStart - v.globalStart);
    callbacks_.onTrimReadout(std::nullopt);
    callbacks_.onMoveLive(v.xOffset + liveMoveDelta_);
    callbacks_.onSnap(step.snapped ? std::optional(v.clipID) : std::nullopt);
}

void ClipBar::release() {
    if (dragMode_) {
        if (*dragMode_ == DragMode::move) callbacks_.onMove(liveMoveDelta_);
        endDrag();
        callbacks_.onCommit();
    } else if (pressAt_ && !cancelled_) {
        switch (pressTarget_) {
            case PressTarget::linkChip:
                callbacks_.onLinkToggle();
                break;
            case PressTarget::locateButton:
                callbacks_.onRelink();
                break;
            case PressTarget::bar:
                callbacks_.onTap();
                break;
        }
    }
    pressAt_.reset();
    cancelled_ = false;
}

bool ClipBar::cancel() {
    if (!dragMode_) return false;
    endDrag();
    callbacks_.onCancel();
    cancelled_ = true;
    return true;
}

void ClipBar::endDrag() {
    callbacks_.onMoveLive(-1);
    callbacks_.onTrimReadout(std::nullopt);
    callbacks_.onTrimPreview(std::nullopt);
    callbacks_.onSnap(std::nullopt);
    dragInitial_.reset();
    dragMode_.reset();
    liveMoveDelta_ = 0;
}

bool ClipBar::stepScale(bool reducedMotion) {
    double target = hovering_ || values_.selected ? kHoverScale : 1.0;
    if (target != scaleTo_) {
        scaleFrom_ = scale_;
        scaleTo_ = target;
        scaleClock_.start();
    }
    if (reducedMotion || !scaleClock_.isValid()) {
        scale_ = scaleTo_;
        return false;
    }
    double t = std::min(static_cast<double>(scaleClock_.elapsed()) / 1000.0 / kScaleSeconds, 1.0);
    double eased = 1 - (1 - t) * (1 - t);
    scale_ = scaleFrom_ + (scaleTo_ - scaleFrom_) * eased;
    return t < 1;
}

double ClipBar::linkChipOpacity() const {
    // One animation for both, keyed on the same state: the chip fades as the bar grows.
    return std::clamp((scale_ - 1) / (kHoverScale - 1), 0.0, 1.0);
}

void ClipBar::paint(QPainter& p, const std::function<void(QPainter&, const QRectF&)>& paintContent,
                    double spinPhase) const {
    // Whole pixels: fractional edges make every row of a fill several spans, and Qt's raster
    // engine sends long span lists to its thread pool (see paintInBands).
    const double left = std::round(drawnX());
    double w = std::round(drawnX() + std::max(values_.width, 0.0)) - left;
    if (w < 1 && values_.width > 0) w = 1;
    const double h = values_.height;
    if (w <= 2 && !values_.isMissing) {
        // A sliver shows only its edge: at the widest zooms thousands of these are painted.
        p.fillRect(QRectF(left, kBarPadding, w, h), strokeColor());
        return;
    }
    p.save();
    p.translate(left, kBarPadding + h / 2);
    p.scale(1, scale_);
    p.translate(0, -h / 2);
    if (values_.isMissing)
        paintMissingBody(p, QRectF(0, 0, w, h), values_.selected,
                         QString::fromStdString(values_.clipURL.filename().string()));
    else
        paintNormalBody(p, w, paintContent, spinPhase);
    p.restore();
}

void ClipBar::paintNormalBody(QPainter& p, double w,
                              const std::function<void(QPainter&, const QRectF&)>& paintContent,
                              double spinPhase) const {
    const auto& v = values_;
    const double h = v.height;
    const QRectF bar(0, 0, w, h);
    // Narrower than its two corners, a bar is drawn with rectangles alone: its rounding would
    // show in a pixel or two, and hundreds of such bars fill a view between the widest zooms
    // and the closest, where paths would cost most of a frame.
    const bool antialias = w >= 2 * kCornerRadius;
    p.setRenderHint(QPainter::Antialiasing, antialias);

    if (v.selected) {
        // A soft accent shadow below the bar, offset 2 down; rounded corners make many spans.
        paintInBands(p, bar.adjusted(-6, -4, 6, 8), [&] {
            for (int ring = 5; ring >= 1; ring -= 2) {
                QPainterPath path;
                path.addRoundedRect(bar.translated(0, 2).adjusted(-ring, -ring, ring, ring),
                                    kCornerRadius + ring, kCornerRadius + ring);
                p.fillPath(path, accentColor(0.55 / 4));
            }
        });
    }

    QPainterPath shape;
    if (antialias)
        shape.addRoundedRect(bar, kCornerRadius, kCornerRadius);
    else
        shape.addRect(bar);

    if (w > 2 && h > 2) {
        QRectF area(1, 1, w - 2, h - 2);
        QPainterPath inner;
        inner.addRoundedRect(area, kCornerRadius, kCornerRadius);
        p.save();
        if (antialias)
            p.setClipPath(inner, Qt::IntersectClip);
        else
            p.setClipRect(area, Qt::IntersectClip);
        paintContent(p, area);
        p.restore();
    }

    QColor fill = accentColor(v.selected ? 0.45 : v.underPlayhead ? 0.28 : 0.16);
    if (antialias) {
        // The rows between the corners as a plain rectangle; only the corner rows as a path.
        p.fillRect(QRectF(0, kCornerRadius, w, h - 2 * kCornerRadius), fill);
        for (double y : {0.0, h - kCornerRadius}) {
            p.save();
            p.setClipRect(QRectF(0, y, w, kCornerRadius), Qt::IntersectClip);
            p.fillPath(shape, fill);
            p.restore();
        }
    } else {
        p.fillRect(bar, fill);
    }
    if (w >= 3) {
        QLinearGradient gloss(0, 0, 0, h / 2);
        gloss.setColorAt(0, QColor::fromRgbF(1, 1, 1, 0.18f));
        gloss.setColorAt(1, Qt::transparent);
        // Clear below the centre, so only the top half is filled.
        const QRectF upperHalf(0, 0, w, h / 2);
        if (antialias) {
            p.save();
            p.setClipRect(upperHalf, Qt::IntersectClip);
            p.fillPath(shape, gloss);
            p.restore();
        } else {
            p.fillRect(upperHalf, gloss);
        }
    }

    QColor stroke = strokeColor();
    double strokeWidth = v.snapHighlight ? 2.5 : v.selected ? 2 : 0.5;
    if (antialias) {
        // A stroke makes two spans on every row of the bar.
        paintInBands(p, bar.adjusted(-2, -2, 2, 2), [&] {
            p.setPen(QPen(stroke, strokeWidth));
            p.setBrush(Qt::NoBrush);
            p.drawPath(shape);
        });
    } else if (strokeWidth < 1) {
        // A thinner line as a whole pixel inside the edge, at that share of its opacity.
        stroke.setAlphaF(stroke.alphaF() * static_cast<float>(strokeWidth));
        paintOutline(p, bar, stroke, 1);
    } else {
        // Centred on the edge, as a stroke is.
        const double half = strokeWidth / 2;
        paintOutline(p, bar.adjusted(-half, -half, half, half), stroke, strokeWidth);
    }

    if (w > 3 * kEdgeZone) {
        double handleH = std::max(h - 8, 0.0);
        double iconSize = std::min(h * 0.55, 14.0);
        auto handle = [&](double x, bool highlighted, bool pointsRight) {
            QRectF r(x, (h - handleH) / 2, kEdgeZone - 1, handleH);
            p.setPen(Qt::NoPen);
            p.setBrush(QColor::fromRgbF(0, 0, 0, highlighted ? 0.35f : 0.18f));
            p.drawRoundedRect(r, 2, 2);
            QRectF icon(0, 0, iconSize, iconSize);
            icon.moveCenter(r.center());
            drawChevron(p, icon, pointsRight,
                        QColor::fromRgbF(1, 1, 1, highlighted ? 0.98f : 0.6f));
        };
        handle(1, hoverLeftEdge_, true);
        handle(w - kEdgeZone, hoverRightEdge_, false);
    }

    if (showsReversingBadge(v.isReversing, w)) {
        const QFont font = reversingBadgeFont(p.font());
        const QRectF capsule = reversingBadgeRect(w, h, p.font());
        p.setPen(QPen(QColor::fromRgbF(1, 1, 1, 0.18f), 0.5));
        p.setBrush(QColor::fromRgbF(0, 0, 0, 0.55f));
        p.drawRoundedRect(capsule, capsule.height() / 2, capsule.height() / 2);
        paintSpinningArc(p, QRectF(capsule.left() + 10, capsule.center().y() - 5.5, 11, 11),
                         Qt::white, 1.5, spinPhase);
        p.setFont(font);
        p.setPen(Qt::white);
        p.drawText(
            QRectF(capsule.left() + 27, capsule.top(), capsule.width() - 27, capsule.height()),
            Qt::AlignVCenter | Qt::AlignLeft, QStringLiteral("Reversing…"));
    }

    if (v.isReversed && !v.isReversing && w > 4 * kEdgeZone + 22) {
        QRectF badge(kEdgeZone + 4, 4, 13, 13);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor::fromRgbF(0, 0, 0, 0.25f));
        p.drawEllipse(badge.translated(0, 1));
        drawReversedBadge(p, badge, accentColor());
    }

    if (const double opacity = linkChipOpacity(); showsLinkChip(v.linkState, w) && opacity > 0) {
        QRectF chip = linkChipRect(w);
        p.setOpacity(opacity);
        p.setPen(QPen(QColor::fromRgbF(1, 1, 1, 0.25f), 0.5));
        p.setBrush(QColor::fromRgbF(0, 0, 0, 0.55f));
        p.drawEllipse(chip.adjusted(0.25, 0.25, -0.25, -0.25));
        drawLinkSymbol(p, chip.adjusted(4.5, 4.5, -4.5, -4.5),
                       v.linkState != model::ClipLinkState::linked, Qt::white);
        p.setOpacity(1);
    }
}

QColor ClipBar::strokeColor() const {
    return values_.snapHighlight ? QColor(Qt::cyan)
           : values_.selected    ? QColor(Qt::white)
                                 : accentColor(0.7);
}

QString ClipBar::toolTipAt(QPointF p) const {
    QPointF local(p.x() - drawnX(), p.y() - kBarPadding);
    if (values_.isMissing)
        return showsLocateButton(values_.width) &&
                       locateButtonRect(values_.width, values_.height).contains(local)
                   ? QStringLiteral("Locate moved or renamed source file")
                   : QString();
    if (showsLinkChip(values_.linkState, values_.width) &&
        linkChipRect(values_.width).contains(local))
        return values_.linkState == model::ClipLinkState::linked ? QStringLiteral("Unlink Audio")
                                                                 : QStringLiteral("Re-link Audio");
    return {};
}

QString ClipBar::accessibleLabel() const {
    return clipAccessibilityLabel({values_.isMissing,
                                   QString::fromStdString(values_.clipURL.filename().string()),
                                   values_.hasVideo, values_.linkState, values_.inSeconds,
                                   values_.outSeconds, values_.isReversed});
}

}  // namespace timeline
