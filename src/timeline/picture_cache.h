#pragma once

#include <cstddef>
#include <functional>
#include <unordered_map>
#include <vector>

#include <QImage>
#include <QSize>

#include "common/uuid.h"
#include "model/clip.h"
#include "timeline/timeline_geometry.h"

namespace timeline {

// Clip pictures scaled for the rows at the current zoom, so that a paint only places them.
// Each clip keeps one size of each picture: asking for another size replaces it, and the
// timeline drops everything when the zoom changes. Pictures are made only when first painted,
// and only the stretch of a clip that its bar shows. UI thread only.
class PictureCache {
  public:
    // Filmstrip frame `index` of `clip`, aspect-filled into a cell of `cell` device pixels.
    const QImage& filmstripCell(const model::Clip& clip, std::size_t index, QSize cell);
    // The clip's thumbnail aspect-filled into `area` device pixels.
    const QImage& thumbnailFill(const model::Clip& clip, QSize area);
    // The clip's waveform drawn from its peaks for a content area of `area` device pixels,
    // through `mapping` (also in device pixels). The clip must have peaks.
    const QImage& waveformWindow(const model::Clip& clip, QSize area, const TrimMapping& mapping);

    void clear();
    // Forgets clips for which `keep` is false.
    void prune(const std::function<bool(const common::Uuid&)>& keep);
    std::size_t bytes() const;

  private:
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
};

// Wraps decoded pixels without copying; the image must not outlive `data`.
QImage wrapImage(const model::ImageData& data);
// `source` scaled to cover `size` with its shape kept, cut to `size` around its centre.
QImage aspectFill(const model::ImageData& source, QSize size);

}  // namespace timeline
