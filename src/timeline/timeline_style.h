#pragma once

#include <QColor>

namespace timeline {

// The colours the timeline paints with, taken from the application's palette so that they
// follow the desktop's light or dark theme.
QColor accentColor(double opacity = 1.0);
QColor primaryColor(double opacity = 1.0);
QColor tertiaryColor();
QColor secondaryColor();
QColor withOpacity(QColor colour, double opacity);

// The desktop's reduced-motion setting: animations are off when the style gives them no
// time. Motion is on where the desktop says nothing.
bool reduceMotion();

// The waveform's stroke colour.
inline QColor waveformColor() {
    return QColor::fromRgbF(0.19f, 0.69f, 0.78f, 0.95f);
}

}  // namespace timeline
