#include "model/project.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace model {

namespace {

bool hasArea(const Size& s) {
    return s.width > 0 && s.height > 0;
}

// Clips ordered by start; equal starts keep their stacking order.
std::vector<const Clip*> byStart(std::vector<const Clip*> clips) {
    std::stable_sort(clips.begin(), clips.end(), [](const Clip* a, const Clip* b) {
        return a->startOnTimeline < b->startOnTimeline;
    });
    return clips;
}

}  // namespace

bool Project::isAtPlayhead(const Clip& c) const {
    return c.startOnTimeline <= playheadGlobal_ && playheadGlobal_ < c.timelineEnd();
}

double Project::globalStart(const common::Uuid& id) const {
    const Clip* c = clip(id);
    return c ? c->startOnTimeline : 0;
}

TimelineRange Project::globalRange(const common::Uuid& id) const {
    const Clip* c = clip(id);
    if (!c) return {};
    return {c->startOnTimeline, c->timelineEnd()};
}

std::optional<common::Uuid> Project::clipIDAt(double seconds) const {
    for (auto it = clips_.rbegin(); it != clips_.rend(); ++it)
        if (it->startOnTimeline <= seconds && seconds < it->timelineEnd()) return it->id;
    return std::nullopt;
}

std::vector<GapSelection> Project::gaps(bool isAudioRow) const {
    std::vector<const Clip*> row;
    for (const auto& c : clips_)
        if (isAudioRow ? c.isOnAudioRow() : c.isOnVideoRow()) row.push_back(&c);
    if (row.size() < 2) return {};

    // Covered stretches; touching clips merge into one.
    std::vector<TimelineRange> covered;
    for (const Clip* c : byStart(std::move(row))) {
        double s = c->startOnTimeline;
        double e = c->timelineEnd();
        if (!covered.empty() && s <= covered.back().end)
            covered.back().end = std::max(covered.back().end, e);
        else
            covered.push_back({s, e});
    }

    std::vector<GapSelection> result;
    for (std::size_t i = 1; i < covered.size(); ++i) {
        double g = covered[i - 1].end;
        double h = covered[i].start;
        if (h - g > 0.001) result.push_back({isAudioRow, g, h});
    }
    return result;
}

bool Project::hasVideoContent() const {
    return std::any_of(clips_.begin(), clips_.end(),
                       [](const Clip& c) { return c.isOnVideoRow(); });
}

bool Project::videoAtPlayhead() const {
    return std::any_of(clips_.begin(), clips_.end(),
                       [this](const Clip& c) { return c.isOnVideoRow() && isAtPlayhead(c); });
}

bool Project::hasOverlap() const {
    std::vector<const Clip*> all;
    for (const auto& c : clips_) all.push_back(&c);
    auto sorted = byStart(std::move(all));
    // Only neighbours are compared, as the start order alone decides.
    for (std::size_t i = 1; i < sorted.size(); ++i)
        if (sorted[i]->startOnTimeline < sorted[i - 1]->timelineEnd() - 0.001) return true;
    return false;
}

std::optional<Size> Project::videoNaturalSize() const {
    for (const auto& c : clips_) {
        if (!c.isOnVideoRow()) continue;
        if (hasArea(c.naturalSize)) return c.naturalSize;
        return std::nullopt;
    }
    return std::nullopt;
}

std::optional<Size> Project::naturalSizeAtPlayhead() const {
    for (const auto& c : clips_)
        if (c.isOnVideoRow() && isAtPlayhead(c) && hasArea(c.naturalSize)) return c.naturalSize;
    return videoNaturalSize();
}

std::optional<double> Project::aspectAtPlayhead() const {
    for (const auto& c : clips_)
        if (c.isOnVideoRow() && isAtPlayhead(c) && hasArea(c.naturalSize))
            return c.naturalSize.width / c.naturalSize.height;
    return std::nullopt;
}

double Project::frameRateAtPlayhead() const {
    if (auto id = clipIDAt(playheadGlobal_)) {
        const Clip* top = clip(*id);
        if (top->isOnVideoRow() && top->frameRate > 0) return top->frameRate;
    }
    for (const auto& c : clips_)
        if (c.isOnVideoRow() && c.frameRate > 0) return c.frameRate;
    return defaultFrameRate;
}

std::optional<Size> Project::largestVideoSize() const {
    std::optional<Size> largest;
    for (const auto& c : clips_) {
        if (!c.isOnVideoRow() || !hasArea(c.naturalSize)) continue;
        // Strictly larger only, so that the earliest of equal areas stays.
        if (!largest ||
            c.naturalSize.width * c.naturalSize.height > largest->width * largest->height)
            largest = c.naturalSize;
    }
    return largest;
}

bool Project::hasCrop() const {
    // Without video there is no frame to crop, whatever the insets say.
    return largestVideoSize().has_value() && (cropInsetTop_ > 0 || cropInsetLeading_ > 0 ||
                                              cropInsetTrailing_ > 0 || cropInsetBottom_ > 0);
}

std::vector<double> Project::snapTargets(std::optional<common::Uuid> excluding) const {
    std::vector<double> targets{0, playheadGlobal_};
    for (const auto& c : clips_) {
        if (excluding && c.id == *excluding) continue;
        targets.push_back(c.startOnTimeline);
        targets.push_back(c.timelineEnd());
    }
    return targets;
}

}  // namespace model
