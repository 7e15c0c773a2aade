#include "app/window_fitting.h"

#include <algorithm>
#include <cmath>

namespace app {

QRect fittedWindowFrame(const FitInput& in) {
    double w = in.videoWidth, h = in.videoHeight;
    if (w <= 0 || h <= 0) return in.frame;
    const double footer = in.footerHeight;
    const double maxW = in.available.width();
    const double maxH = std::max(0.0, in.available.height() - in.chromeHeight - footer);
    const double minH = std::max(0.0, kMinimumContentHeight - footer);
    const double aspect = w / h;
    if (w > maxW) w = maxW, h = maxW / aspect;
    if (h > maxH) h = maxH, w = maxH * aspect;
    if (h < minH) {
        h = minH, w = minH * aspect;
        if (w > maxW) w = maxW, h = maxW / aspect;
    }
    const int width = static_cast<int>(std::lround(std::max<double>(kMinimumContentWidth, w)));
    const int height = static_cast<int>(std::lround(h + footer)) + in.chromeHeight;
    // Top left corner kept, then pulled back onto the screen: right, left, top, bottom.
    QRect frame(in.frame.left(), in.frame.top(), width, height);
    const QRect& a = in.available;
    if (frame.left() + frame.width() > a.left() + a.width())
        frame.moveLeft(a.left() + a.width() - frame.width());
    if (frame.left() < a.left()) frame.moveLeft(a.left());
    if (frame.top() < a.top()) frame.moveTop(a.top());
    if (frame.top() + frame.height() > a.top() + a.height())
        frame.moveTop(a.top() + a.height() - frame.height());
    return frame;
}

}  // namespace app
