#include "timeline/picture_cache.h"

#include <algorithm>
#include <cmath>

#include <QPainter>

#include "timeline/timeline_style.h"

namespace timeline {

QImage wrapImage(const model::ImageData& data) {
    return QImage(data.rgba.data(), data.width, data.height, data.width * 4,
                  QImage::Format_RGBA8888);
}

namespace {

// One axis of a bilinear resample: for each output position the two source indices and the
// weight of the second, in 1/256.
struct Taps {
    std::vector<int> first, second, weight;
};

Taps taps(int outCount, int sourceCount, double scale, double sourceOrigin) {
    Taps t;
    t.first.resize(static_cast<std::size_t>(outCount));
    t.second.resize(t.first.size());
    t.weight.resize(t.first.size());
    for (int o = 0; o < outCount; ++o) {
        double at = std::clamp(sourceOrigin + (o + 0.5) / scale - 0.5, 0.0, sourceCount - 1.0);
        int i = static_cast<int>(at);
        auto k = static_cast<std::size_t>(o);
        t.first[k] = i;
        t.second[k] = std::min(i + 1, sourceCount - 1);
        t.weight[k] = static_cast<int>((at - i) * 256);
    }
    return t;
}

}  // namespace

QImage aspectFill(const model::ImageData& source, QSize size) {
    if (source.width <= 0 || source.height <= 0 || size.isEmpty()) return {};
    // Our own resample rather than QImage::scaled: its cost follows the source's size and it
    // hands work to the global thread pool, where a few pixels of a cell are all we need.
    // Aspect fill never shrinks a frame by more than its height to the row's, so bilinear
    // sampling is enough.
    const double scale = std::max(static_cast<double>(size.width()) / source.width,
                                  static_cast<double>(size.height()) / source.height);
    const Taps xs =
        taps(size.width(), source.width, scale, (source.width - size.width() / scale) / 2);
    const Taps ys =
        taps(size.height(), source.height, scale, (source.height - size.height() / scale) / 2);
    QImage out(size, QImage::Format_ARGB32_Premultiplied);
    const std::uint8_t* px = source.rgba.data();
    const auto stride = static_cast<std::size_t>(source.width) * 4;
    for (int y = 0; y < size.height(); ++y) {
        auto ky = static_cast<std::size_t>(y);
        const std::uint8_t* row0 = px + stride * static_cast<std::size_t>(ys.first[ky]);
        const std::uint8_t* row1 = px + stride * static_cast<std::size_t>(ys.second[ky]);
        const int wy = ys.weight[ky];
        auto* line = reinterpret_cast<QRgb*>(out.scanLine(y));
        for (int x = 0; x < size.width(); ++x) {
            auto kx = static_cast<std::size_t>(x);
            const auto a = static_cast<std::size_t>(xs.first[kx]) * 4;
            const auto b = static_cast<std::size_t>(xs.second[kx]) * 4;
            const int wx = xs.weight[kx];
            int c[4];
            for (std::size_t ch = 0; ch < 4; ++ch) {
                int top = row0[a + ch] * (256 - wx) + row0[b + ch] * wx;
                int bottom = row1[a + ch] * (256 - wx) + row1[b + ch] * wx;
                c[ch] = (top * (256 - wy) + bottom * wy) >> 16;
            }
            line[x] = qPremultiply(qRgba(c[0], c[1], c[2], c[3]));
        }
    }
    return out;
}

namespace {

// The waveform drawn from `peaks` for a content area of `area` device pixels, through
// `mapping` (also in device pixels), as the enrichment draws it: a line per column about the
// centre, reaching 29/30 of the half height at full scale.
QImage waveformImage(const std::vector<float>& peaks, QSize area, const TrimMapping& mapping) {
    QImage image(area, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    if (peaks.empty() || std::lround(mapping.stripWidth) <= 0) return image;
    const QRgb premultiplied = qPremultiply(waveformColor().rgba());
    const double centre = area.height() / 2.0;
    const double reach = centre * 29.0 / 30.0;
    const double n = static_cast<double>(peaks.size());
    for (int c = 0; c < area.width(); ++c) {
        double from = (static_cast<double>(c) - mapping.offsetX) / mapping.stripWidth * n;
        double to = (static_cast<double>(c + 1) - mapping.offsetX) / mapping.stripWidth * n;
        auto first = static_cast<std::size_t>(std::clamp(std::floor(from), 0.0, n - 1));
        auto last = static_cast<std::size_t>(std::clamp(std::ceil(to), 1.0, n));
        float peak = 0;
        for (std::size_t i = first; i < std::max(last, first + 1); ++i)
            peak = std::max(peak, peaks[i]);
        double half = std::max(0.5, static_cast<double>(peak) * reach);
        int top = std::max(0, static_cast<int>(std::floor(centre - half)));
        int bottom = std::min(area.height() - 1, static_cast<int>(std::ceil(centre + half)) - 1);
        for (int y = top; y <= bottom; ++y)
            reinterpret_cast<QRgb*>(image.scanLine(y))[c] = premultiplied;
    }
    return image;
}

const QImage& nullImage() {
    static const QImage none;
    return none;
}

}  // namespace

void PictureCache::beginPaint(std::chrono::nanoseconds budget) {
    budget_ = budget;
    spent_ = {};
    leftOut_ = false;
}

bool PictureCache::mayScale() {
    // Counted in scaling time alone, so the rest of a paint can't starve the pictures; and
    // asked only for clips new to the cache, so a drag that resizes one bar is never put off.
    if (spent_ < budget_) return true;
    leftOut_ = true;
    return false;
}

void PictureCache::spent(const QElapsedTimer& started) {
    spent_ += std::chrono::nanoseconds(started.nsecsElapsed());
}

const QImage& PictureCache::filmstripCell(const model::Clip& clip, std::size_t index, QSize cell) {
    auto found = filmstrips_.find(clip.id);
    if (found == filmstrips_.end()) {
        if (!mayScale()) return nullImage();
        found = filmstrips_.emplace(clip.id, Cells{}).first;
    }
    auto& entry = found->second;
    const void* source = clip.filmstrip.empty() ? nullptr : clip.filmstrip.front().get();
    if (entry.cell != cell || entry.source != source ||
        entry.images.size() != clip.filmstrip.size()) {
        entry = Cells{cell, source, std::vector<QImage>(clip.filmstrip.size())};
    }
    QImage& image = entry.images.at(index);
    if (image.isNull() && clip.filmstrip[index]) {
        QElapsedTimer started;
        started.start();
        image = aspectFill(*clip.filmstrip[index], cell);
        spent(started);
    }
    return image;
}

const QImage& PictureCache::thumbnailFill(const model::Clip& clip, QSize area) {
    auto found = thumbnails_.find(clip.id);
    if (found == thumbnails_.end()) {
        if (!mayScale()) return nullImage();
        found = thumbnails_.emplace(clip.id, Thumbnail{}).first;
    }
    auto& entry = found->second;
    if (entry.area != area || entry.source != clip.thumbnail.get() || entry.image.isNull()) {
        QElapsedTimer started;
        started.start();
        entry = Thumbnail{area, clip.thumbnail.get(),
                          clip.thumbnail ? aspectFill(*clip.thumbnail, area) : QImage()};
        spent(started);
    }
    return entry.image;
}

const QImage& PictureCache::waveformWindow(const model::Clip& clip, QSize area,
                                           const TrimMapping& mapping) {
    auto found = waveforms_.find(clip.id);
    if (found == waveforms_.end()) {
        if (!mayScale()) return nullImage();
        found = waveforms_.emplace(clip.id, Waveform{}).first;
    }
    auto& entry = found->second;
    long stripWidth = std::lround(mapping.stripWidth);
    long offsetX = std::lround(mapping.offsetX);
    if (entry.area == area && entry.stripWidth == stripWidth && entry.offsetX == offsetX &&
        entry.source == clip.waveformPeaks.get() && !entry.image.isNull())
        return entry.image;
    QElapsedTimer started;
    started.start();
    entry = Waveform{area, stripWidth, offsetX, clip.waveformPeaks.get(),
                     waveformImage(*clip.waveformPeaks, area, mapping)};
    spent(started);
    return entry.image;
}

void PictureCache::clear() {
    filmstrips_.clear();
    thumbnails_.clear();
    waveforms_.clear();
}

void PictureCache::prune(const std::function<bool(const common::Uuid&)>& keep) {
    std::erase_if(filmstrips_, [&](const auto& e) { return !keep(e.first); });
    std::erase_if(thumbnails_, [&](const auto& e) { return !keep(e.first); });
    std::erase_if(waveforms_, [&](const auto& e) { return !keep(e.first); });
}

std::size_t PictureCache::bytes() const {
    std::size_t total = 0;
    for (const auto& [id, e] : filmstrips_)
        for (const auto& image : e.images) total += static_cast<std::size_t>(image.sizeInBytes());
    for (const auto& [id, e] : thumbnails_)
        total += static_cast<std::size_t>(e.image.sizeInBytes());
    for (const auto& [id, e] : waveforms_) total += static_cast<std::size_t>(e.image.sizeInBytes());
    return total;
}

}  // namespace timeline
