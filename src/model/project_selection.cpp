#include "model/project.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace model {

void Project::toggleSelection(const common::Uuid& id) {
    auto ids = selectedClipIDs_;
    std::optional<common::Uuid> anchor = selectionAnchor_;
    if (ids.erase(id) > 0) {
        if (anchor == id) anchor = ids.empty() ? std::nullopt : std::optional(*ids.begin());
    } else {
        // The clip added last stands for the selection.
        ids.insert(id);
        anchor = id;
    }
    setSelectedClipIDs(std::move(ids));
    setSelectionAnchor(anchor);
    if (selectedGap_) setSelectedGap(std::nullopt);
}

void Project::cycleSelection(const common::Uuid& id, bool isAudioRow) {
    const Clip* tapped = clip(id);
    if (!tapped) return;
    double tappedStart = tapped->startOnTimeline;
    double tappedEnd = tapped->timelineEnd();

    // Topmost first. Strict comparisons: clips that only touch form no stack.
    std::vector<common::Uuid> stack;
    for (auto it = clips_.rbegin(); it != clips_.rend(); ++it) {
        bool onRow = isAudioRow ? it->isOnAudioRow() : it->isOnVideoRow();
        if (onRow && tappedStart < it->timelineEnd() && it->startOnTimeline < tappedEnd)
            stack.push_back(it->id);
    }
    if (stack.size() < 2) {
        setSelectedClipID(id);
        return;
    }

    // The walk starts from the selection, not from the clip under the pointer.
    auto current = selectedClipID();
    auto at = current ? std::find(stack.begin(), stack.end(), *current) : stack.end();
    if (at == stack.end()) {
        setSelectedClipID(stack.front());
        return;
    }
    ++at;
    setSelectedClipID(at == stack.end() ? stack.front() : *at);
}

void Project::selectGap(GapSelection gap) {
    // Written directly: the selectedClipID setter would clear the gap again.
    setSelectedClipIDs({});
    setSelectionAnchor(std::nullopt);
    setSelectedGap(gap);
    didChange();
}

}  // namespace model
