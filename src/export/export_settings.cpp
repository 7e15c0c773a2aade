#include "export/export_settings.h"

#include <algorithm>

namespace exporting {

namespace {

constexpr double kCropFramesPerSecond = 30;
constexpr double kDefaultFramesPerSecond = 30;

bool isQuarterTurn(int rotationDegrees) {
    const int normalized = ((rotationDegrees % 360) + 360) % 360;
    return normalized == 90 || normalized == 270;
}

bool hasCrop(const CropInsets& insets) {
    return insets.top > 0 || insets.leading > 0 || insets.trailing > 0 || insets.bottom > 0;
}

}  // namespace

std::optional<model::Size> uprightLargestVideoSize(const std::vector<model::Clip>& clips) {
    const model::Clip* largest = nullptr;
    for (const auto& clip : clips) {
        const model::Size& size = clip.naturalSize;
        if (!clip.isOnVideoRow() || !(size.width > 0 && size.height > 0)) continue;
        // Strictly larger only, so that the earliest of equal areas stays.
        if (!largest ||
            size.width * size.height > largest->naturalSize.width * largest->naturalSize.height)
            largest = &clip;
    }
    if (!largest) return std::nullopt;
    const model::Size& stored = largest->naturalSize;
    if (isQuarterTurn(largest->rotationDegrees)) return model::Size{stored.height, stored.width};
    return stored;
}

std::optional<composition::VideoSettings> exportVideoSettings(const std::vector<model::Clip>& clips,
                                                              model::SmallClipMode mode,
                                                              const CropInsets& insets) {
    const auto largest = uprightLargestVideoSize(clips);
    if (!largest) return std::nullopt;
    return composition::VideoSettings{mode,          insets.top, insets.leading, insets.trailing,
                                      insets.bottom, *largest};
}

ReencodeSettings reencodeSettings(const std::vector<model::Clip>& clips, model::SmallClipMode mode,
                                  const CropInsets& insets) {
    ReencodeSettings settings;
    if (const auto video = exportVideoSettings(clips, mode, insets)) {
        settings.frame = composition::outputFrame(*video);
        if (hasCrop(insets)) settings.framing = Framing::crop;
    }
    if (settings.framing == Framing::crop) {
        settings.framesPerSecond = kCropFramesPerSecond;
        return settings;
    }
    double highest = 0;
    for (const auto& clip : clips)
        if (clip.isOnVideoRow() && clip.frameRate > 0) highest = std::max(highest, clip.frameRate);
    settings.framesPerSecond = highest > 0 ? highest : kDefaultFramesPerSecond;
    return settings;
}

}  // namespace exporting
