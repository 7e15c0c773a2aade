#include "preview/image_blur.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace preview {

namespace {

// Widths of three boxes whose sum of variances is sigma², after Kovesi.
std::array<int, 3> boxWidths(double sigma) {
    const double ideal = std::sqrt(12 * sigma * sigma / 3 + 1);
    int lower = static_cast<int>(std::floor(ideal));
    if (lower % 2 == 0) --lower;
    const int upper = lower + 2;
    const double m =
        (12 * sigma * sigma - 3.0 * lower * lower - 4.0 * 3 * lower - 3 * 3) / (-4.0 * lower - 4);
    const int useLower = static_cast<int>(std::lround(m));
    std::array<int, 3> widths{};
    for (int i = 0; i < 3; ++i) widths[static_cast<std::size_t>(i)] = i < useLower ? lower : upper;
    return widths;
}

// One box blur of half-width `r` along a line of `n` pixels `stride` words apart.
void boxLine(const std::uint32_t* in, std::uint32_t* out, int n, std::ptrdiff_t stride, int r) {
    if (r <= 0) {
        for (int i = 0; i < n; ++i) out[i * stride] = in[i * stride];
        return;
    }
    const auto at = [&](int i) { return in[std::clamp(i, 0, n - 1) * stride]; };
    std::array<std::int64_t, 3> sum{};
    for (int i = -r - 1; i < r; ++i)
        for (int c = 0; c < 3; ++c) sum[static_cast<std::size_t>(c)] += (at(i) >> (8 * c)) & 0xff;
    const std::int64_t width = 2 * r + 1;
    for (int i = 0; i < n; ++i) {
        const std::uint32_t enter = at(i + r);
        const std::uint32_t leave = at(i - r - 1);
        std::uint32_t pixel = 0xff000000u;
        for (int c = 0; c < 3; ++c) {
            auto& s = sum[static_cast<std::size_t>(c)];
            s += static_cast<std::int64_t>((enter >> (8 * c)) & 0xff) -
                 static_cast<std::int64_t>((leave >> (8 * c)) & 0xff);
            pixel |= static_cast<std::uint32_t>((s + width / 2) / width) << (8 * c);
        }
        out[i * stride] = pixel;
    }
}

}  // namespace

QImage gaussianBlurred(const QImage& image, double radius) {
    QImage a = image.convertToFormat(QImage::Format_RGB32);
    if (a.isNull() || !(radius > 0)) return a;
    QImage b(a.size(), QImage::Format_RGB32);
    const int w = a.width();
    const int h = a.height();
    const std::ptrdiff_t stride = a.bytesPerLine() / 4;
    for (int box : boxWidths(radius)) {
        const int r = (box - 1) / 2;
        auto* from = reinterpret_cast<std::uint32_t*>(a.bits());
        auto* to = reinterpret_cast<std::uint32_t*>(b.bits());
        for (int y = 0; y < h; ++y) boxLine(from + y * stride, to + y * stride, w, 1, r);
        for (int x = 0; x < w; ++x) boxLine(to + x, from + x, h, stride, r);
    }
    return a;
}

}  // namespace preview
