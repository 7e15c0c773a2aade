#include "timeline/hit_testing.h"

#include <QFontMetricsF>

#include "timeline/drag_math.h"
#include "timeline/timeline_geometry.h"

namespace timeline {

std::optional<std::size_t> topmostBarAt(const std::vector<BarSlot>& bars, QPointF p) {
    if (p.y() < kBarPadding || p.y() >= kBarPadding + kBarHeight) return std::nullopt;
    std::optional<std::size_t> hit;
    for (std::size_t i = 0; i < bars.size(); ++i) {
        const auto& b = bars[i];
        if (p.x() < b.x || p.x() >= b.x + b.width) continue;
        if (!hit || b.z >= bars[*hit].z) hit = i;
    }
    return hit;
}

std::optional<std::size_t> gapAt(const std::vector<QRectF>& gapBars, QPointF p) {
    for (std::size_t i = 0; i < gapBars.size(); ++i)
        if (gapBars[i].contains(p)) return i;
    return std::nullopt;
}

bool showsLinkChip(model::ClipLinkState state, double width) {
    return state != model::ClipLinkState::none && width > 4 * kEdgeZone + 22;
}

QRectF linkChipRect(double width) {
    return {width - (kEdgeZone + 2) - 18, 3, 18, 18};
}

bool showsLocateButton(double width) {
    return width > 110;
}

QRectF locateButtonRect(double width, double height) {
    return {width - 10 - 64, (height - 20) / 2, 64, 20};
}

bool showsReversingBadge(bool isReversing, double width) {
    return isReversing && width > 90;
}

QFont reversingBadgeFont(const QFont& base) {
    QFont font = base;
    font.setPointSizeF(font.pointSizeF() * 0.85);
    font.setWeight(QFont::DemiBold);
    return font;
}

QRectF reversingBadgeRect(double width, double height, const QFont& base) {
    const double textWidth =
        QFontMetricsF(reversingBadgeFont(base)).horizontalAdvance(QStringLiteral("Reversing…"));
    // Padded 10 across and 5 down, around an 11-point arc, 6 apart from the text.
    QRectF capsule(0, 0, 10 + 11 + 6 + textWidth + 10, 5 + 14 + 5);
    capsule.moveCenter(QPointF(width / 2, height / 2));
    return capsule;
}

}  // namespace timeline
