#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include <QFont>
#include <QPointF>
#include <QRectF>

#include "model/clip_link_state.h"

namespace timeline {

// One clip bar as a row lays it out: drawn from x for `width` points, at stacking height z.
struct BarSlot {
    double x = 0;
    double width = 0;
    int z = 0;
};

// The bar that takes a click at `p` (row coordinates): the highest z, and of equal z the one
// later in the list, as they are drawn. Bars fill the row less its padding above and below.
std::optional<std::size_t> topmostBarAt(const std::vector<BarSlot>& bars, QPointF p);

// The gap bar under `p`; gap bars lie under the clip bars, so ask this only after
// topmostBarAt found nothing.
std::optional<std::size_t> gapAt(const std::vector<QRectF>& gapBars, QPointF p);

// Parts of a bar, in the bar's own coordinates (its top-left at 0,0, `height` high).
bool showsLinkChip(model::ClipLinkState state, double width);
QRectF linkChipRect(double width);
bool showsLocateButton(double width);
QRectF locateButtonRect(double width, double height);
// The "Reversing…" capsule, centred on the bar; its text is set in reversingBadgeFont(base)
// for a bar drawn in the font `base`.
bool showsReversingBadge(bool isReversing, double width);
QFont reversingBadgeFont(const QFont& base);
QRectF reversingBadgeRect(double width, double height, const QFont& base);

}  // namespace timeline
