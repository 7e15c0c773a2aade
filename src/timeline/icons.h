#pragma once

#include <QColor>
#include <QRectF>

class QPainter;

namespace timeline {

// The timeline's symbols, drawn as paths so that they stay sharp at every size. Each fills
// the square centred in `box`, as large as fits.
void drawFilmSymbol(QPainter& p, const QRectF& box, const QColor& colour);
void drawWaveformSymbol(QPainter& p, const QRectF& box, const QColor& colour);
// A compact chevron pointing right or left.
void drawChevron(QPainter& p, const QRectF& box, bool pointsRight, const QColor& colour);
// The reversed badge: a white backward u-turn on an accent disc.
void drawReversedBadge(QPainter& p, const QRectF& box, const QColor& disc);
// Two chain links, with a small plus when the link can be made again.
void drawLinkSymbol(QPainter& p, const QRectF& box, bool withPlus, const QColor& colour);
void drawWarningSymbol(QPainter& p, const QRectF& box, const QColor& colour);

}  // namespace timeline
