#include "timeline/timeline_style.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>

namespace timeline {

QColor withOpacity(QColor colour, double opacity) {
    colour.setAlphaF(static_cast<float>(colour.alphaF() * opacity));
    return colour;
}

QColor accentColor(double opacity) {
    return withOpacity(QApplication::palette().color(QPalette::Highlight), opacity);
}

QColor primaryColor(double opacity) {
    return withOpacity(QApplication::palette().color(QPalette::WindowText), opacity);
}

QColor secondaryColor() {
    return primaryColor(0.55);
}

QColor tertiaryColor() {
    return primaryColor(0.3);
}

bool reduceMotion() {
    return QApplication::style()->styleHint(QStyle::SH_Widget_Animation_Duration) <= 0;
}

}  // namespace timeline
