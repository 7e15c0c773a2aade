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

QImage aspectFill(const QImage& source, QSize size) {
    if (source.isNull() || size.isEmpty()) return {};
    QImage scaled = source.scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    QRect crop(QPoint(0, 0), size);
    crop.moveCenter(scaled.rect().center());
    return scaled.copy(crop).convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

const QImage& PictureCache::filmstripCell(const model::Clip& clip, std::size_t index, QSize cell) {
    auto& entry = filmstrips_[clip.id];
    const void* source = clip.filmstrip.empty() ? nullptr : clip.filmstrip.front().get();
    if (entry.cell != cell || entry.source != source ||
        entry.images.size() != clip.filmstrip.size()) {
        entry = Cells{cell, source, std::vector<QImage>(clip.filmstrip.size())};
    }
    QImage& image = entry.images.at(index);
    if (image.isNull() && clip.filmstrip[index])
        image = aspectFill(wrapImage(*clip.filmstrip[index]), cell);
    return image;
}

const QImage& PictureCache::thumbnailFill(const model::Clip& clip, QSize area) {
    auto& entry = thumbnails_[clip.id];
    if (entry.area != area || entry.source != clip.thumbnail.get() || entry.image.isNull()) {
        entry = Thumbnail{area, clip.thumbnail.get(),
                          clip.thumbnail ? aspectFill(wrapImage(*clip.thumbnail), area) : QImage()};
    }
    return entry.image;
}

const QImage& PictureCache::waveformWindow(const model::Clip& clip, QSize area,
                                           const TrimMapping& mapping) {
    auto& entry = waveforms_[clip.id];
    long stripWidth = std::lround(mapping.stripWidth);
    long offsetX = std::lround(mapping.offsetX);
    if (entry.area == area && entry.stripWidth == stripWidth && entry.offsetX == offsetX &&
        entry.source == clip.waveformPeaks.get() && !entry.image.isNull())
        return entry.image;

    entry = Waveform{area, stripWidth, offsetX, clip.waveformPeaks.get(),
                     QImage(area, QImage::Format_ARGB32_Premultiplied)};
    QImage& image = entry.image;
    image.fill(Qt::transparent);
    const auto& peaks = *clip.waveformPeaks;
    if (peaks.empty() || stripWidth <= 0) return image;

    // As the enrichment draws it: a line per column about the centre, reaching 29/30 of
    // the half height at full scale.
    const QRgb colour = waveformColor().rgba();
    const QRgb premultiplied = qPremultiply(colour);
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
