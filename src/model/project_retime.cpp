#include "model/project.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "common/log.h"

namespace model {

namespace {

// Numbers in log lines as C's "%f" prints them.
std::string fixed(double v) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%f", v);
    return buffer;
}

}  // namespace

void Project::retimeSelected(double rate) {
    if (selectedClipIDs_.empty()) return;
    recordSnapshot(selectedClipIDs_.size() == 1 ? "Retime Clip" : "Retime Clips");
    double held = std::clamp(rate, 0.1, 10.0);
    auto clips = clips_;
    for (auto& c : clips)
        if (selectedClipIDs_.contains(c.id)) c.rateMultiplier = held;
    setClips(std::move(clips));
    raiseCompositionToken();
    clampPlayhead();
}

std::optional<double> Project::commonRateOfSelection() const {
    std::optional<double> first;
    for (const auto& c : clips_) {
        if (!selectedClipIDs_.contains(c.id)) continue;
        if (!first)
            first = c.rateMultiplier;
        else if (!(std::abs(c.rateMultiplier - *first) < 0.0001))
            return std::nullopt;
    }
    return first;
}

bool Project::allSelectedReversed() const {
    if (selectedClipIDs_.empty()) return false;
    return std::none_of(clips_.begin(), clips_.end(), [this](const Clip& c) {
        return selectedClipIDs_.contains(c.id) && !c.isReversed;
    });
}

void Project::reverseSelected() {
    common::reverseLog.info("reverseSelected: " + std::to_string(selectedClipIDs_.size()) +
                            " clip(s)");
    if (selectedClipIDs_.empty()) return;
    recordSnapshot(selectedClipIDs_.size() == 1 ? "Reverse Clip" : "Reverse Clips");

    // Each clip flips on its own, whatever the others do.
    auto clips = clips_;
    for (auto& c : clips) {
        if (!selectedClipIDs_.contains(c.id)) continue;
        if (c.isReversed) {
            // Back to the stretch it had before: a trim made while reversed is lost.
            if (c.forwardInSeconds && c.forwardOutSeconds) {
                c.inSeconds = *c.forwardInSeconds;
                c.outSeconds = *c.forwardOutSeconds;
            }
            c.forwardInSeconds.reset();
            c.forwardOutSeconds.reset();
            c.reversedURL.reset();
            c.isReversed = false;
        } else {
            c.forwardInSeconds = c.inSeconds;
            c.forwardOutSeconds = c.outSeconds;
            c.isReversed = true;
        }
    }
    setClips(std::move(clips));
    raiseCompositionToken();

    std::vector<common::Uuid> toRender;
    for (const auto& c : clips_)
        if (selectedClipIDs_.contains(c.id) && c.isReversed && !c.reversedURL)
            toRender.push_back(c.id);
    for (const auto& id : toRender) renderReversedAsync(id);
}

void Project::renderReversedAsync(const common::Uuid& id) {
    const Clip* c = clip(id);
    if (!c) return;
    Clip before = *c;
    double from = before.forwardInSeconds.value_or(before.inSeconds);
    double to = before.forwardOutSeconds.value_or(before.outSeconds);
    common::reverseLog.info("renderReversedAsync dispatched for " + before.url.filename().string() +
                            " range=[" + fixed(from) + ".." + fixed(to) + "]");

    runMediaTask(
        [media = context_.media, url = before.url, from, to] {
            auto rendered = media->renderReversed(url, from, to);
            if (!rendered) common::reverseLog.error("renderReversedMedia returned nil");
            return rendered;
        },
        [this, before, from, to](std::optional<std::filesystem::path> rendered) {
            if (!rendered) return;
            const Clip* now = clip(before.id);
            if (!now || !now->isReversed) return;
            // Renders are never cancelled, so a late one must still match the stretch it was
            // made from; a clip turned forward or reversed anew since then drops it.
            bool sameStretch = now->forwardInSeconds == before.forwardInSeconds &&
                               now->forwardOutSeconds == before.forwardOutSeconds &&
                               (before.forwardInSeconds || now->inSeconds == before.inSeconds) &&
                               (before.forwardOutSeconds || now->outSeconds == before.outSeconds);
            if (!sameStretch) return;
            updateClip(before.id, [&](Clip& w) {
                w.reversedURL = *rendered;
                w.inSeconds = 0;
                w.outSeconds = std::max(to - from, 0.0);
            });
            raiseCompositionToken();
        });
}

}  // namespace model
