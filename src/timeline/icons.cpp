#include "timeline/icons.h"

#include <algorithm>
#include <array>

#include <QPainter>
#include <QPainterPath>

namespace timeline {

namespace {

QRectF square(const QRectF& box) {
    double side = std::min(box.width(), box.height());
    QRectF s(0, 0, side, side);
    s.moveCenter(box.center());
    return s;
}

QPen roundPen(const QColor& colour, double width) {
    return QPen(colour, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
}

}  // namespace

void drawFilmSymbol(QPainter& p, const QRectF& box, const QColor& colour) {
    QRectF s = square(box);
    double u = s.width() / 18;
    QRectF frame = s.adjusted(2 * u, 1 * u, -2 * u, -1 * u);
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(roundPen(colour, 1.6 * u));
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(frame, 2 * u, 2 * u);
    p.drawLine(QPointF(frame.left() + 4 * u, frame.top()),
               QPointF(frame.left() + 4 * u, frame.bottom()));
    p.drawLine(QPointF(frame.right() - 4 * u, frame.top()),
               QPointF(frame.right() - 4 * u, frame.bottom()));
    p.setPen(Qt::NoPen);
    p.setBrush(colour);
    for (int i = 0; i < 4; ++i) {
        double y = frame.top() + (2.2 + 3.6 * i) * u;
        p.drawRect(QRectF(frame.left() + 1.2 * u, y, 1.6 * u, 1.6 * u));
        p.drawRect(QRectF(frame.right() - 2.8 * u, y, 1.6 * u, 1.6 * u));
    }
    p.restore();
}

void drawWaveformSymbol(QPainter& p, const QRectF& box, const QColor& colour) {
    static constexpr std::array<double, 7> kHeights = {0.3, 0.6, 0.9, 0.55, 0.8, 0.45, 0.25};
    QRectF s = square(box);
    double step = s.width() / static_cast<double>(kHeights.size());
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(roundPen(colour, step * 0.55));
    for (std::size_t i = 0; i < kHeights.size(); ++i) {
        double x = s.left() + step * (static_cast<double>(i) + 0.5);
        double half = s.height() * kHeights[i] / 2;
        p.drawLine(QPointF(x, s.center().y() - half), QPointF(x, s.center().y() + half));
    }
    p.restore();
}

void drawChevron(QPainter& p, const QRectF& box, bool pointsRight, const QColor& colour) {
    QRectF s = square(box);
    double w = s.width() * 0.3;
    double cx = s.center().x();
    double tipX = pointsRight ? cx + w / 2 : cx - w / 2;
    double backX = pointsRight ? cx - w / 2 : cx + w / 2;
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(roundPen(colour, std::max(1.5, s.width() * 0.14)));
    p.drawPolyline(std::array<QPointF, 3>{QPointF(backX, s.top() + s.height() * 0.18),
                                          QPointF(tipX, s.center().y()),
                                          QPointF(backX, s.bottom() - s.height() * 0.18)}
                       .data(),
                   3);
    p.restore();
}

void drawReversedBadge(QPainter& p, const QRectF& box, const QColor& disc) {
    QRectF s = square(box);
    double u = s.width() / 13;
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(disc);
    p.drawEllipse(s);
    QPainterPath arrow;
    QPointF c = s.center();
    arrow.moveTo(c.x() - 2.5 * u, c.y() - 1.5 * u);
    arrow.lineTo(c.x() + 1 * u, c.y() - 1.5 * u);
    arrow.arcTo(QRectF(c.x() - 1.5 * u, c.y() - 1.5 * u, 5 * u, 5 * u), 90, -180);
    arrow.lineTo(c.x() - 1 * u, c.y() + 3.5 * u);
    p.setPen(roundPen(Qt::white, 1.4 * u));
    p.setBrush(Qt::NoBrush);
    p.drawPath(arrow);
    p.drawPolyline(std::array<QPointF, 3>{QPointF(c.x() - 0.8 * u, c.y() - 3.3 * u),
                                          QPointF(c.x() - 2.6 * u, c.y() - 1.5 * u),
                                          QPointF(c.x() - 0.8 * u, c.y() + 0.3 * u)}
                       .data(),
                   3);
    p.restore();
}

void drawLinkSymbol(QPainter& p, const QRectF& box, bool withPlus, const QColor& colour) {
    QRectF s = square(box);
    double u = s.width() / 9;
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(roundPen(colour, 1.2 * u));
    p.setBrush(Qt::NoBrush);
    p.translate(s.center());
    p.rotate(-45);
    p.drawRoundedRect(QRectF(-4.2 * u, -1.6 * u, 5 * u, 3.2 * u), 1.6 * u, 1.6 * u);
    p.drawRoundedRect(QRectF(-0.8 * u, -1.6 * u, 5 * u, 3.2 * u), 1.6 * u, 1.6 * u);
    p.rotate(45);
    if (withPlus) {
        p.drawLine(QPointF(2.2 * u, 3 * u), QPointF(4.4 * u, 3 * u));
        p.drawLine(QPointF(3.3 * u, 1.9 * u), QPointF(3.3 * u, 4.1 * u));
    }
    p.restore();
}

void drawWarningSymbol(QPainter& p, const QRectF& box, const QColor& colour) {
    QRectF s = square(box);
    double u = s.width() / 14;
    QPainterPath triangle;
    triangle.moveTo(s.center().x(), s.top() + u);
    triangle.lineTo(s.right() - u, s.bottom() - u);
    triangle.lineTo(s.left() + u, s.bottom() - u);
    triangle.closeSubpath();
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(roundPen(colour, u));
    p.setBrush(colour);
    p.drawPath(triangle);
    p.setPen(roundPen(Qt::black, 1.6 * u));
    p.drawLine(QPointF(s.center().x(), s.top() + 5 * u), QPointF(s.center().x(), s.top() + 9 * u));
    p.drawPoint(QPointF(s.center().x(), s.bottom() - 3 * u));
    p.restore();
}

}  // namespace timeline
