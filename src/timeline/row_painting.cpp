#include "timeline/row_painting.h"

#include <algorithm>
#include <cmath>

#include <QFontMetricsF>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include "timeline/hit_testing.h"
#include "timeline/icons.h"
#include "timeline/picture_cache.h"
#include "timeline/timeline_geometry.h"
#include "timeline/timeline_style.h"

namespace timeline {

namespace {

QSize devicePixels(QSizeF size, double dpr) {
    return {std::max(1, static_cast<int>(std::ceil(size.width() * dpr))),
            std::max(1, static_cast<int>(std::ceil(size.height() * dpr)))};
}

double pixelRatio(const QPainter& p) {
    return p.device() ? p.device()->devicePixelRatioF() : 1;
}

// Cells wider than this are drawn straight from the frame rather than cached, so that a clip
// trimmed to a sliver of a long file cannot fill memory with one huge cell.
constexpr double kLargestCachedCell = 4096;

}  // namespace

void paintFilmstripContent(QPainter& p, const QRectF& area, const model::Clip& clip,
                           PictureCache& cache) {
    if (area.width() < 1 || area.height() < 1) return;
    const double dpr = pixelRatio(p);
    if (!clip.filmstrip.empty()) {
        auto mapping =
            trimMapping(area.width(), clip.fullDurationSeconds, clip.inSeconds, clip.outSeconds);
        const auto count = clip.filmstrip.size();
        const double cellW = mapping.stripWidth / static_cast<double>(count);
        // Only the cells that the bar shows, and only those inside the painter's clip.
        double visibleFrom = -mapping.offsetX;
        double visibleTo = visibleFrom + area.width();
        QRectF clip2 = p.clipBoundingRect();
        if (!clip2.isEmpty()) {
            visibleFrom = std::max(visibleFrom, clip2.left() - area.left() - mapping.offsetX);
            visibleTo = std::min(visibleTo, clip2.right() - area.left() - mapping.offsetX);
        }
        if (visibleTo > visibleFrom) {
            auto first = static_cast<std::size_t>(std::max(0.0, std::floor(visibleFrom / cellW)));
            auto last = std::min(count, static_cast<std::size_t>(std::ceil(visibleTo / cellW)));
            const auto cellLeft = [&](std::size_t i) {
                // Whole pixels, so that the cell is copied rather than blended.
                return std::round(area.left() + mapping.offsetX + cellW * static_cast<double>(i));
            };
            for (std::size_t i = first; i < last; ++i) {
                QRectF cell(cellLeft(i), area.top(), cellW, area.height());
                if (!clip.filmstrip[i]) continue;
                // Where cells are narrower than a pixel, the next one would cover this one
                // whole: neither scaled nor drawn, it costs nothing at the widest zooms.
                if (i + 1 < last && clip.filmstrip[i + 1] && cellLeft(i + 1) == cell.left())
                    continue;
                if (cellW * dpr > kLargestCachedCell) {
                    p.save();
                    p.setClipRect(cell, Qt::IntersectClip);
                    QImage frame = wrapImage(*clip.filmstrip[i]);
                    QSizeF cover =
                        QSizeF(frame.size()).scaled(cell.size(), Qt::KeepAspectRatioByExpanding);
                    QRectF target(QPointF(0, 0), cover);
                    target.moveCenter(cell.center());
                    p.drawImage(target, frame);
                    p.restore();
                    continue;
                }
                const QImage& image = cache.filmstripCell(clip, i, devicePixels(cell.size(), dpr));
                p.drawImage(QRectF(cell.topLeft(), QSizeF(image.size()) / dpr), image);
            }
        }
        QLinearGradient shade(area.topLeft(), area.bottomLeft());
        shade.setColorAt(0, QColor::fromRgbF(1, 1, 1, 0.12f));
        shade.setColorAt(0.5, Qt::transparent);
        shade.setColorAt(1, QColor::fromRgbF(0, 0, 0, 0.18f));
        p.fillRect(area, shade);
        return;
    }
    if (clip.thumbnail) {
        const QImage& image = cache.thumbnailFill(clip, devicePixels(area.size(), dpr));
        p.drawImage(QRectF(area.topLeft(), QSizeF(image.size()) / dpr), image);
        return;
    }
    p.fillRect(area, QColor::fromRgbF(0, 0, 0, 0.35f));
    if (area.width() >= 12)
        drawFilmSymbol(p, QRectF(area.center() - QPointF(9, 9), QSizeF(18, 18)),
                       QColor::fromRgbF(1, 1, 1, 0.5f));
}

void paintWaveformContent(QPainter& p, const QRectF& area, const model::Clip& clip,
                          PictureCache& cache) {
    if (area.width() <= 0 || area.height() <= 0) return;
    p.fillRect(area, QColor::fromRgbF(0, 0, 0, 0.25f));
    auto mapping =
        trimMapping(area.width(), clip.fullDurationSeconds, clip.inSeconds, clip.outSeconds);
    if (clip.waveformPeaks && area.width() >= 1) {
        const double dpr = pixelRatio(p);
        TrimMapping device{mapping.stripWidth * dpr, mapping.offsetX * dpr};
        const QImage& image = cache.waveformWindow(clip, devicePixels(area.size(), dpr), device);
        p.drawImage(QRectF(area.topLeft(), QSizeF(image.size()) / dpr), image);
        return;
    }
    if (clip.waveform) {
        QImage image = wrapImage(*clip.waveform);
        p.drawImage(
            QRectF(area.left() + mapping.offsetX, area.top(), mapping.stripWidth, area.height()),
            image);
        return;
    }
    p.fillRect(QRectF(area.left(), area.center().y() - 0.5, area.width(), 1), accentColor(0.45));
}

void paintGapBar(QPainter& p, const QRectF& rect, bool selected) {
    if (!selected || rect.width() <= 0) return;
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath shape;
    shape.addRoundedRect(rect, 4, 4);
    p.fillPath(shape, accentColor(0.18));
    QPen dash(accentColor(0.7), 1);
    dash.setDashPattern({4, 3});
    p.setPen(dash);
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(rect.adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
    if (auto button = collapseButtonRect(rect)) paintRowButton(p, *button, "Collapse", true);
    p.restore();
}

void paintStripes(QPainter& p, const QRectF& rect, double spacing, double lineWidth,
                  const QColor& colour) {
    p.save();
    p.setPen(QPen(colour, lineWidth));
    const double h = rect.height();
    for (double x = -h; x < rect.width() + h; x += spacing)
        p.drawLine(QPointF(rect.left() + x, rect.top()),
                   QPointF(rect.left() + x + h, rect.bottom()));
    p.restore();
}

void paintMissingBody(QPainter& p, const QRectF& rect, bool selected, const QString& fileName) {
    const QColor orange(255, 149, 0);
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath shape;
    shape.addRoundedRect(rect, 5, 5);
    p.fillPath(shape, withOpacity(orange, 0.18));
    p.save();
    p.setClipPath(shape, Qt::IntersectClip);
    paintStripes(p, rect, 6, 1, withOpacity(orange, 0.55));
    p.restore();
    double strokeWidth = selected ? 2 : 1;
    p.setPen(QPen(withOpacity(orange, 0.85), strokeWidth));
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(
        rect.adjusted(strokeWidth / 2, strokeWidth / 2, -strokeWidth / 2, -strokeWidth / 2), 5, 5);

    double x = rect.left() + 10;
    if (rect.width() >= 34) {
        drawWarningSymbol(p, QRectF(x, rect.center().y() - 7, 14, 14), orange);
        x += 14 + 8;
    }
    if (rect.width() > 220) {
        QFont font = p.font();
        font.setPointSizeF(font.pointSizeF() * 0.85);
        font.setWeight(QFont::Medium);
        p.setFont(font);
        QRectF textRect(x, rect.top(), rect.right() - 10 - 64 - 8 - x, rect.height());
        QString text = QFontMetricsF(font).elidedText("Missing: " + fileName, Qt::ElideMiddle,
                                                      textRect.width());
        p.setPen(primaryColor());
        p.drawText(textRect, Qt::AlignVCenter | Qt::AlignLeft, text);
    }
    if (showsLocateButton(rect.width()))
        paintRowButton(p, locateButtonRect(rect.width(), rect.height()).translated(rect.topLeft()),
                       "Locate…", false);
    p.restore();
}

void paintSpinningArc(QPainter& p, const QRectF& rect, const QColor& colour, double lineWidth,
                      double phase) {
    double inset = lineWidth / 2 + 0.5;
    QRectF circle = rect.adjusted(inset, inset, -inset, -inset);
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(colour, lineWidth, Qt::SolidLine, Qt::RoundCap));
    // Qt counts angles anticlockwise in sixteenths of a degree; the arc turns clockwise.
    double startDegrees = -90 - 360 * phase;
    p.drawArc(circle, static_cast<int>(-startDegrees * 16), static_cast<int>(-270 * 16));
    p.restore();
}

void paintInBands(QPainter& p, const QRectF& area, const std::function<void()>& paint) {
    // A fill with antialiased edges makes up to three spans a row, a stroke two more.
    constexpr double kBand = 18;
    for (double y = area.top(); y < area.bottom(); y += kBand) {
        p.save();
        p.setClipRect(QRectF(area.left(), y, area.width(), std::min(kBand, area.bottom() - y)),
                      Qt::IntersectClip);
        paint();
        p.restore();
    }
}

void paintOutline(QPainter& p, const QRectF& rect, const QColor& colour, double width) {
    p.fillRect(QRectF(rect.left(), rect.top(), rect.width(), width), colour);
    p.fillRect(QRectF(rect.left(), rect.bottom() - width, rect.width(), width), colour);
    p.fillRect(QRectF(rect.left(), rect.top() + width, width, rect.height() - 2 * width), colour);
    p.fillRect(QRectF(rect.right() - width, rect.top() + width, width, rect.height() - 2 * width),
               colour);
}

void paintRowButton(QPainter& p, const QRectF& rect, const QString& title, bool prominent) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(prominent ? Qt::NoPen : QPen(primaryColor(0.25), 0.5));
    p.setBrush(prominent ? accentColor() : primaryColor(0.12));
    p.drawRoundedRect(rect, 5, 5);
    QFont font = p.font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    p.setFont(font);
    p.setPen(prominent ? QColor(Qt::white) : primaryColor());
    p.drawText(rect, Qt::AlignCenter, title);
    p.restore();
}

}  // namespace timeline
