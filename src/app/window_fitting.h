#pragma once

#include <QRect>
#include <QSize>

namespace app {

// The smallest content of a document window.
inline constexpr int kMinimumContentWidth = 640;
inline constexpr int kMinimumContentHeight = 762;

// What the window fitting knows: the video's natural size, the window's frame and the
// height of its decoration (title bar, menu bar), the footer's height and the screen's
// usable area, all in screen pixels with y growing downwards.
struct FitInput {
    double videoWidth = 0;
    double videoHeight = 0;
    QRect frame;
    int chromeHeight = 0;
    double footerHeight = 0;
    QRect available;
};

// The window frame that shows the video at its natural size, or as near to it as the
// screen allows at the video's aspect, with the top left corner kept where it can be and
// the frame pulled back onto the usable area.
QRect fittedWindowFrame(const FitInput& in);

}  // namespace app
