#pragma once

#include <QImage>

namespace preview {

// `image` blurred by a Gaussian of standard deviation `radius` pixels, approximated by
// three box blurs each way; the edges are extended. Any format in, RGB32 out.
QImage gaussianBlurred(const QImage& image, double radius);

}  // namespace preview
