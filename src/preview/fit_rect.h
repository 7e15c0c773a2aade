#pragma once

#include <optional>

#include <QRectF>

namespace preview {

// The largest rectangle of `aspect` (width / height) centred in `bounds`; `bounds` itself
// when there is no aspect above 0 or `bounds` is empty.
QRectF aspectFitRect(const QRectF& bounds, std::optional<double> aspect);

}  // namespace preview
