#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <unordered_map>
#include <vector>

#include <QElapsedTimer>
#include <QImage>
#include <QSize>

#include "common/uuid.h"
#include "model/clip.h"
#include "timeline/timeline_geometry.h"

namespace timeline {

// Clip pictures scaled for the rows at the current zoom, so that a paint only places them.
// Each clip keeps one size of each picture: asking for another size replaces it, and the
// timeline drops everything when the zoom changes. Pictures are made only when first painted,
// and only the stretch of a clip that its bar shows. A paint may cap the time spent scaling:
// past it the pictures of clips new to the cache come back null and are left for the paints
// that follow, so that a zoom change, which empties the cache, never makes one long paint.
// UI thread only.
class PictureCache {
  public:
    // Filmstrip frame `index` of `clip`, aspect-filled into a cell of `cell` device pixels.
    const QImage& filmstripCell(const model::Clip& clip, std::size_t index, QSize cell);
    // The clip's thumbnail aspect-filled into `area` device pixels.
    const QImage& thumbnailFill(const model::Clip& clip, QSize area);
    // The clip's waveform drawn from its peaks for a content area of `area` device pixels,
    // through `mapping` (also in device pixels). The clip must have peaks.
    const QImage& waveformWindow(const model::Clip& clip, QSize area, const TrimMapping& mapping);

    // Starts a paint that may spend up to `budget` scaling pictures of clips new to the cache;
    // the first it asks for is always made, so each paint gets on. Clips the cache holds
    // already have their pictures remade at a new size whatever the budget.
    void beginPaint(std::chrono::nanoseconds budget);
    // Whether a picture came back null for the budget since beginPaint: paint again soon.
    bool leftPicturesOut() const { return leftOut_; }

    void clear();
    // Forgets clips for which `keep` is false.
    void prune(const std::function<bool(const common::Uuid&)>& keep);
    std::size_t bytes() const;

  private:
    // Whether the paint's budget allows taking on one more clip; notes it when not.
    bool mayScale();
    // Adds the time since `started` to what the paint has spent.
    void spent(const QElapsedTimer& started);

    struct Cells {
        QSize cell;
        const void* source = nullptr;
        std::vector<QImage> images;  // null until painted
    };
    struct Thumbnail {
        QSize area;
        const void* source = nullptr;
        QImage image;
    };
    struct Waveform {
        QSize area;
        long stripWidth = 0;
        long offsetX = 0;
        const void* source = nullptr;
        QImage image;
    };
    std::unordered_map<common::Uuid, Cells> filmstrips_;
    std::unordered_map<common::Uuid, Thumbnail> thumbnails_;
    std::unordered_map<common::Uuid, Waveform> waveforms_;
    std::chrono::nanoseconds budget_ = std::chrono::nanoseconds::max();
    std::chrono::nanoseconds spent_{0};
    bool leftOut_ = false;
};

// Wraps decoded pixels without copying; the image must not outlive `data`.
QImage wrapImage(const model::ImageData& data);
// `source` scaled to cover `size` with its shape kept, cut to `size` around its centre.
QImage aspectFill(const model::ImageData& source, QSize size);

}  // namespace timeline
