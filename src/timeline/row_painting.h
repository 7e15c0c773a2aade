#pragma once

#include <functional>

#include <QColor>
#include <QRectF>
#include <QString>

#include "model/clip.h"

class QPainter;

namespace timeline {

class PictureCache;

// What fills a clip bar and what stands for a gap, painted in the row's coordinates.

// A video bar's picture: the filmstrip through the trim window, else the thumbnail, else a
// placeholder. `area` is the bar less 1 on every side; the painter is clipped to the bar.
void paintFilmstripContent(QPainter& p, const QRectF& area, const model::Clip& clip,
                           PictureCache& cache);
// An audio bar's picture: the waveform through the trim window, else a centre line.
void paintWaveformContent(QPainter& p, const QRectF& area, const model::Clip& clip,
                          PictureCache& cache);

// A gap's bar: nothing visible unless selected; the "Collapse" button on wide selected bars.
void paintGapBar(QPainter& p, const QRectF& rect, bool selected);

// A bar whose file is gone: orange stripes, the warning symbol, the file name and the
// "Locate…" button as the width allows. `rect` is the bar in the painter's coordinates.
void paintMissingBody(QPainter& p, const QRectF& rect, bool selected, const QString& fileName);

// Diagonal lines from (x, 0) to (x + h, h), `spacing` apart, over `rect`.
void paintStripes(QPainter& p, const QRectF& rect, double spacing, double lineWidth,
                  const QColor& colour);

// A 270-degree arc turning once a second; `phase` is the fractional second (0 when motion is
// reduced).
void paintSpinningArc(QPainter& p, const QRectF& rect, const QColor& colour, double lineWidth,
                      double phase);

// Qt's raster engine hands a fill of 96 spans or more (a span is a run of one pixel row) to the
// global thread pool and waits for it; on a loaded machine the hand-off costs far more than
// the fill. `paint` runs once for each band of `area` short enough to stay on this thread, with
// the painter clipped to the band.
void paintInBands(QPainter& p, const QRectF& area, const std::function<void()>& paint);

// A small bordered push button in the rows' style.
void paintRowButton(QPainter& p, const QRectF& rect, const QString& title, bool prominent);

}  // namespace timeline
