#include "app/crop_math.h"

#include <algorithm>
#include <cmath>

namespace app {

long long pixelsOf(double fraction, double side) {
    return std::llround(fraction * side);
}

long long insetCap(double side, double maxFraction) {
    return static_cast<long long>(side * maxFraction);
}

double CropPixels::side(CropEdge edge) const {
    return edge == CropEdge::top || edge == CropEdge::bottom ? frame_.height : frame_.width;
}

long long CropPixels::pixels(CropEdge edge) const {
    switch (edge) {
        case CropEdge::top:
            return pixelsOf(project_.cropInsetTop(), frame_.height);
        case CropEdge::leading:
            return pixelsOf(project_.cropInsetLeading(), frame_.width);
        case CropEdge::trailing:
            return pixelsOf(project_.cropInsetTrailing(), frame_.width);
        case CropEdge::bottom:
            return pixelsOf(project_.cropInsetBottom(), frame_.height);
    }
    return 0;
}

void CropPixels::setPixels(CropEdge edge, long long px, bool locked) {
    if (locked) return setAll(px);
    double fraction = static_cast<double>(px) / side(edge);
    switch (edge) {
        case CropEdge::top:
            return project_.setCropInsetTop(fraction);
        case CropEdge::leading:
            return project_.setCropInsetLeading(fraction);
        case CropEdge::trailing:
            return project_.setCropInsetTrailing(fraction);
        case CropEdge::bottom:
            return project_.setCropInsetBottom(fraction);
    }
}

void CropPixels::setAll(long long px) {
    auto v = static_cast<double>(px);
    project_.setCropInsetTop(v / frame_.height);
    project_.setCropInsetBottom(v / frame_.height);
    project_.setCropInsetLeading(v / frame_.width);
    project_.setCropInsetTrailing(v / frame_.width);
}

void CropPixels::resetAll() {
    project_.setCropInsetTop(0);
    project_.setCropInsetBottom(0);
    project_.setCropInsetLeading(0);
    project_.setCropInsetTrailing(0);
}

long long CropPixels::cap(CropEdge edge) const {
    return insetCap(side(edge));
}

QSize CropPixels::outputSize() const {
    auto w = static_cast<long long>(frame_.width) - pixels(CropEdge::leading) -
             pixels(CropEdge::trailing);
    auto h =
        static_cast<long long>(frame_.height) - pixels(CropEdge::top) - pixels(CropEdge::bottom);
    return {static_cast<int>(std::max(w, 1LL)), static_cast<int>(std::max(h, 1LL))};
}

long long CropPixels::total() const {
    return pixels(CropEdge::top) + pixels(CropEdge::leading) + pixels(CropEdge::trailing) +
           pixels(CropEdge::bottom);
}

QRectF fittedVideoRect(QSizeF canvas, double videoAspect) {
    double W = canvas.width(), H = canvas.height();
    if (W <= 0 || H <= 0 || videoAspect <= 0) return {};
    if (videoAspect <= W / H) {
        double w = H * videoAspect;
        return {(W - w) / 2, 0, w, H};
    }
    double h = W / videoAspect;
    return {0, (H - h) / 2, W, h};
}

QRectF croppedRect(const QRectF& v, double top, double leading, double trailing, double bottom) {
    return {v.x() + leading * v.width(), v.y() + top * v.height(),
            v.width() * (1 - leading - trailing), v.height() * (1 - top - bottom)};
}

}  // namespace app
