#include "export/export_settings.h"

#include <algorithm>
#include <cmath>

namespace exporting {

namespace {

constexpr double kCropFramesPerSecond = 30;
constexpr double kDefaultFramesPerSecond = 30;

bool isQuarterTurn(int rotationDegrees) {
    const int normalized = ((rotationDegrees % 360) + 360) % 360;
    return normalized == 90 || normalized == 270;
}

// A clip's nominal rate comes as a 32-bit float, which puts 29.97 at 29.970030: the rate it
// stands for is the nearest whole or NTSC (n * 1000 / 1001) rate when one lies within that
// float's precision, else the float itself.
double exactRate(double nominal) {
    constexpr double kFloatPrecision = 1e-6;
    const double whole = std::round(nominal);
    if (std::abs(whole - nominal) <= kFloatPrecision * nominal) return whole;
    const double ntsc = std::round(nominal * 1001 / 1000) * 1000 / 1001;
    if (std::abs(ntsc - nominal) <= kFloatPrecision * nominal) return ntsc;
    return nominal;
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
    double highest = 0;
    bool shared = true;
    for (const auto& clip : clips) {
        if (!clip.isOnVideoRow() || !(clip.frameRate > 0)) continue;
        const double rate = exactRate(clip.frameRate);
        shared = shared && (highest == 0 || std::abs(rate - highest) < 0.0001);
        highest = std::max(highest, rate);
    }
    // The crop compositor runs at one rate for all clips: theirs when they share one.
    if (settings.framing == Framing::crop && !shared)
        settings.framesPerSecond = kCropFramesPerSecond;
    else
        settings.framesPerSecond = highest > 0 ? highest : kDefaultFramesPerSecond;
    return settings;
}

}  // namespace exporting
