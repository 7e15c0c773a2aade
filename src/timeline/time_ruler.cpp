#include "timeline/time_ruler.h"

#include <QFontDatabase>
#include <QPaintEvent>
#include <QPainter>

#include "model/time_format.h"
#include "timeline/timeline_geometry.h"
#include "timeline/timeline_style.h"

namespace timeline {

void TimeRuler::setScale(double pxPerSecond, double totalDuration) {
    if (pxPerSecond == pxPerSecond_ && totalDuration == totalDuration_) return;
    pxPerSecond_ = pxPerSecond;
    totalDuration_ = totalDuration;
    update();
}

void TimeRuler::paintEvent(QPaintEvent* event) {
    QPainter p(this);
    const QRectF exposed = QRectF(event->rect()).adjusted(-kRulerMinPx, 0, 1, 0);
    const double h = height();
    auto ticks = rulerTicks(pxPerSecond_, totalDuration_, width());
    const QColor minor = primaryColor(0.12);
    for (double x : ticks.minorX)
        if (x >= exposed.left() && x <= exposed.right()) p.fillRect(QRectF(x, h - 4, 1, 3), minor);

    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(9);
    p.setFont(font);
    const QColor major = primaryColor(0.28);
    for (const auto& tick : ticks.major) {
        if (tick.x < exposed.left() || tick.x > exposed.right()) continue;
        p.fillRect(QRectF(tick.x, h - 5, 1, 5), major);
        if (!tick.labelled) continue;
        p.setPen(tertiaryColor());
        p.drawText(QRectF(tick.x + 3, 2, kRulerMinPx - 3, h - 7), Qt::AlignLeft | Qt::AlignTop,
                   QString::fromStdString(model::formatTimecode(tick.seconds)));
    }
}

}  // namespace timeline
