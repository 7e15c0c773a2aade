#include "preview/fit_rect.h"

namespace preview {

QRectF aspectFitRect(const QRectF& bounds, std::optional<double> aspect) {
    if (!aspect || !(*aspect > 0) || !(bounds.width() > 0) || !(bounds.height() > 0)) return bounds;
    if (bounds.width() / bounds.height() < *aspect) {
        const double height = bounds.width() / *aspect;
        return {bounds.x(), bounds.y() + (bounds.height() - height) / 2, bounds.width(), height};
    }
    const double width = *aspect * bounds.height();
    return {bounds.x() + (bounds.width() - width) / 2, bounds.y(), width, bounds.height()};
}

}  // namespace preview
