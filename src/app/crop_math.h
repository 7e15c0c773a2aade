#pragma once

#include <QRectF>
#include <QSize>

#include "model/project.h"

namespace app {

// The largest share of a side that one crop inset may take in the crop sheet.
inline constexpr double kMaxInsetFraction = 0.45;

enum class CropEdge { top = 1, leading, trailing, bottom };

// Whole pixels of a fraction of `side`, halves away from zero.
long long pixelsOf(double fraction, double side);
// The highest pixel value one edge may take on a frame of that side.
long long insetCap(double side, double maxFraction = kMaxInsetFraction);

// The crop in pixels of the output frame, read from and written to the project's four
// fractions. Writes go straight to the project; while `locked`, a write of any edge sets
// all four to the same pixels.
class CropPixels {
  public:
    CropPixels(model::Project& project, model::Size frame) : project_(project), frame_(frame) {}

    long long pixels(CropEdge edge) const;
    void setPixels(CropEdge edge, long long px, bool locked);
    void setAll(long long px);
    void resetAll();
    long long cap(CropEdge edge) const;
    // The frame after the crop, each side at least 1.
    QSize outputSize() const;
    long long total() const;

  private:
    double side(CropEdge edge) const;
    model::Project& project_;
    model::Size frame_;
};

// Where the video lies in a canvas of `canvas` (fitted at `videoAspect`, width / height),
// and the part of it the crop keeps.
QRectF fittedVideoRect(QSizeF canvas, double videoAspect);
QRectF croppedRect(const QRectF& video, double top, double leading, double trailing, double bottom);

}  // namespace app
