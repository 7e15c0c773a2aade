#include "timeline/playhead_slider.h"

#include <algorithm>

#include <QPainter>

#include "timeline/timeline_geometry.h"
#include "timeline/timeline_style.h"

namespace timeline {

void PlayheadSlider::setFillWidth(double width) {
    width = std::max(width, 0.0);
    if (width == fillWidth_) return;
    fillWidth_ = width;
    update();
}

void PlayheadSlider::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    const double r = kSliderTrackH / 2;
    const double y = (height() - kSliderTrackH) / 2;
    p.setBrush(primaryColor(0.18));
    p.drawRoundedRect(QRectF(0, y, width(), kSliderTrackH), r, r);
    if (fillWidth_ > 0) {
        p.setBrush(accentColor());
        p.drawRoundedRect(QRectF(0, y, fillWidth_, kSliderTrackH), r, r);
    }
}

PlayheadThumb::PlayheadThumb(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    // Room for the shadow around the circle.
    resize(static_cast<int>(kSliderThumbD) + 8, static_cast<int>(kSliderThumbD) + 8);
}

void PlayheadThumb::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QRectF circle(0, 0, kSliderThumbD, kSliderThumbD);
    circle.moveCenter(QRectF(rect()).center());
    p.setPen(Qt::NoPen);
    for (int ring = 2; ring >= 1; --ring) {
        p.setBrush(QColor::fromRgbF(0, 0, 0, 0.15f));
        p.drawEllipse(
            circle.translated(0, 1).adjusted(-ring / 2.0, -ring / 2.0, ring / 2.0, ring / 2.0));
    }
    p.setBrush(Qt::white);
    p.drawEllipse(circle);
    p.setPen(QPen(accentColor(), 2));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(circle.adjusted(1, 1, -1, -1));
}

}  // namespace timeline
