#include "model/project.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/clip_edit_fields.h"

// On a retimed clip every sum goes through the mapping that playback uses: timeline time t
// plays source time inSeconds + (t - startOnTimeline) * rate. A timeline distance d is thus
// d * rate source seconds, and a change of the in point by x moves the start by x / rate.

namespace model {

namespace {

struct EdgeTarget {
    common::Uuid id;
    double sourceSeconds = 0;
};

// The source time under the playhead in the selected clip, when the playhead lies on the
// clip with both of its ends counting.
std::optional<EdgeTarget> edgeTargetAtPlayhead(const Project& p) {
    if (p.isPresentingSheet()) return std::nullopt;
    auto id = p.selectedClipID();
    if (!id) return std::nullopt;
    const Clip* c = p.clip(*id);
    if (!c) return std::nullopt;
    TimelineRange range = p.globalRange(*id);
    double playhead = p.playheadGlobal();
    if (playhead < range.start || playhead > range.end) return std::nullopt;
    return EdgeTarget{*id, c->inSeconds + (playhead - range.start) * c->effectiveRate()};
}

std::size_t indexOf(const std::vector<Clip>& clips, const common::Uuid& id) {
    return static_cast<std::size_t>(
        std::find_if(clips.begin(), clips.end(), [&](const Clip& c) { return c.id == id; }) -
        clips.begin());
}

}  // namespace

void Project::setIn(const common::Uuid& id, double seconds) {
    const Clip* c = clip(id);
    if (!c) return;
    double newIn = std::max(0.0, std::min(seconds, c->outSeconds - 0.05));
    // The left edge follows the in point, so the right edge stays where it was.
    double start = std::max(0.0, c->startOnTimeline + (newIn - c->inSeconds) / c->effectiveRate());
    didChange();
    updateClip(id, [&](Clip& w) {
        w.inSeconds = newIn;
        w.startOnTimeline = start;
    });
}

void Project::setOut(const common::Uuid& id, double seconds) {
    const Clip* c = clip(id);
    if (!c) return;
    double newOut = std::min(c->fullDurationSeconds, std::max(seconds, c->inSeconds + 0.05));
    didChange();
    updateClip(id, [&](Clip& w) { w.outSeconds = newOut; });
}

void Project::moveClip(const common::Uuid& id, double seconds) {
    if (!clip(id)) return;
    didChange();
    updateClip(id, [&](Clip& w) { w.startOnTimeline = std::max(0.0, seconds); });
}

void Project::setInAtPlayhead() {
    auto target = edgeTargetAtPlayhead(*this);
    if (!target) return;
    recordSnapshot("Set In");
    setIn(target->id, target->sourceSeconds);
    commitEdit();
}

void Project::setOutAtPlayhead() {
    auto target = edgeTargetAtPlayhead(*this);
    if (!target) return;
    recordSnapshot("Set Out");
    setOut(target->id, target->sourceSeconds);
    commitEdit();
}

void Project::splitAtPlayhead() {
    if (isPresentingSheet()) return;
    // The selected clip if it lies under the playhead, else the topmost clip there.
    const Clip* target = nullptr;
    if (auto selected = selectedClipID())
        if (const Clip* c = clip(*selected); c && isAtPlayhead(*c)) target = c;
    if (!target)
        if (auto top = clipIDAt(playheadGlobal_)) target = clip(*top);
    if (!target) return;

    Clip before = *target;
    double cut =
        before.inSeconds + (playheadGlobal_ - before.startOnTimeline) * before.effectiveRate();
    if (!(before.inSeconds + 0.05 < cut && cut < before.outSeconds - 0.05)) return;
    recordSnapshot("Split");

    // The right half is a record of its own, so it takes a fresh probe under a new id.
    runMediaTask(
        [media = context_.media, url = before.url, bookmark = before.bookmark] {
            return media->probe(url, bookmark, common::Uuid::random());
        },
        [this, before, cut](common::Result<Clip> probed) {
            if (!probed) return;
            const Clip* now = clip(before.id);
            // An edit of this clip made during the probe wins over the split.
            if (!now || !sameEditFields(*now, before)) return;

            Clip left = *now;
            left.outSeconds = cut;
            Clip right = std::move(probed).value();
            right.inSeconds = cut;
            right.outSeconds = now->outSeconds;
            right.startOnTimeline =
                now->startOnTimeline + (cut - now->inSeconds) / now->effectiveRate();
            right.streamMask = now->streamMask;
            right.linkGroupID = now->linkGroupID;
            right.rateMultiplier = now->rateMultiplier;
            right.isReversed = now->isReversed;
            right.reversedURL = now->reversedURL;
            // The forward stretch belongs to the whole clip, so only the left half keeps it.
            right.forwardInSeconds.reset();
            right.forwardOutSeconds.reset();
            // A render still running covers the whole clip and would stretch the left half
            // over both. Each half takes its own stretch instead, which the late render no
            // longer matches, and gets a render of its own.
            const bool renderPending = now->isReversed && !now->reversedURL;
            if (renderPending) {
                left.forwardInSeconds = left.inSeconds;
                left.forwardOutSeconds = left.outSeconds;
                right.forwardInSeconds = right.inSeconds;
                right.forwardOutSeconds = right.outSeconds;
            }
            right.filmstrip = now->filmstrip;
            right.waveform = now->waveform;
            right.waveformPeaks = now->waveformPeaks;

            auto clips = clips_;
            std::size_t at = indexOf(clips, before.id);
            clips[at] = std::move(left);
            const common::Uuid rightID = right.id;
            clips.insert(clips.begin() + static_cast<std::ptrdiff_t>(at) + 1, std::move(right));
            setClips(std::move(clips));
            raiseCompositionToken();
            if (renderPending) {
                renderReversedAsync(before.id);
                renderReversedAsync(rightID);
            }
        });
}

void Project::nudgeSelectedClipByFrames(int frames) {
    if (isPresentingSheet()) return;
    auto id = selectedClipID();
    if (!id) return;
    const Clip* c = clip(*id);
    if (!c) return;
    // The clip's own rate, not the one at the playhead: the nudge steps through its frames.
    double fps = c->frameRate > 0 ? c->frameRate : 30.0;
    double start = std::max(0.0, c->startOnTimeline + frames / fps);
    recordSnapshot("Nudge Clip");
    didChange();
    updateClip(*id, [&](Clip& w) { w.startOnTimeline = start; });
    raiseCompositionToken();
}

void Project::deleteSelected() {
    if (isPresentingSheet()) return;
    if (selectedGap_) {
        collapseSelectedGap();
        return;
    }
    deleteSelected(selectedClipIDs_.size() < 2 ? "Delete Clip" : "Delete Clips");
}

void Project::deleteSelected(std::optional<std::string> snapshotName) {
    if (selectedClipIDs_.empty()) return;
    if (snapshotName) recordSnapshot(std::move(*snapshotName));

    auto isSelected = [this](const Clip& c) { return selectedClipIDs_.contains(c.id); };
    auto first = std::find_if(clips_.begin(), clips_.end(), isSelected);
    std::size_t k = first == clips_.end() ? 0 : static_cast<std::size_t>(first - clips_.begin());

    auto clips = clips_;
    std::erase_if(clips, isSelected);
    // The selection passes on by stacking order, wherever that clip lies in time.
    std::optional<common::Uuid> next;
    if (k < clips.size())
        next = clips[k].id;
    else if (!clips.empty())
        next = clips.back().id;
    setClips(std::move(clips));
    setSelectedClipID(next);
    raiseCompositionToken();
    clampPlayhead();
}

void Project::collapseSelectedGap() {
    if (!selectedGap_) return;
    GapSelection gap = *selectedGap_;
    recordSnapshot("Collapse Gap");
    double width = std::max(gap.endTime - gap.startTime, 0.0);
    auto clips = clips_;
    // Every later clip of the row moves; clips of the other row alone stay, so the rows
    // may shift against each other.
    for (auto& c : clips) {
        bool onRow = gap.isAudioRow ? c.isOnAudioRow() : c.isOnVideoRow();
        if (onRow && c.startOnTimeline >= gap.endTime - 0.0001) c.startOnTimeline -= width;
    }
    setClips(std::move(clips));
    setSelectedGap(std::nullopt);
    raiseCompositionToken();
    clampPlayhead();
}

void Project::nudgePlayheadByFrames(int frames) {
    if (isPresentingSheet()) return;
    double delta = frames / frameRateAtPlayhead();
    // The end itself is reachable here, unlike with the clamp after an edit.
    setPlayheadGlobal(std::clamp(playheadGlobal_ + delta, 0.0, totalDurationSeconds()));
}

void Project::togglePlayback() {
    if (isPresentingSheet() || clips_.empty()) return;
    if (!isPlaying_ && playheadGlobal_ >= totalDurationSeconds() - 0.01) setPlayheadGlobal(0);
    setIsPlaying(!isPlaying_);
}

void Project::setZoom(double factor) {
    setZoomFactor(std::clamp(factor, 0.25, 12.0));
}

}  // namespace model
