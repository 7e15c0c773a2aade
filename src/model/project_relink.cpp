#include "model/project.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "common/log.h"

namespace model {

void Project::relinkClip(const common::Uuid& id, std::filesystem::path file) {
    const Clip* c = clip(id);
    if (!c) return;
    Clip old = *c;

    runMediaTask(
        [media = context_.media, file, id] {
            // Without a bookmark the clip is relinked all the same, by its path alone.
            auto bookmark = media->makeBookmark(file);
            return media->probe(file, bookmark, id);
        },
        [this, old, file](common::Result<Clip> probed) {
            if (!probed) {
                common::logLine("Vantrell: relink failed for " + file.filename().string());
                return;
            }
            // The file's own fields come from the probe; the edit decisions from the old
            // record, read before the wait, so edits made during the probe are replaced.
            Clip relinked = std::move(probed).value();
            relinked.startOnTimeline = old.startOnTimeline;
            relinked.streamMask = old.streamMask;
            relinked.linkGroupID = old.linkGroupID;
            relinked.rateMultiplier = old.rateMultiplier;
            relinked.isReversed = old.isReversed;
            relinked.forwardInSeconds = old.forwardInSeconds;
            relinked.forwardOutSeconds = old.forwardOutSeconds;
            double full = relinked.fullDurationSeconds;
            relinked.inSeconds = std::max(std::min(old.inSeconds, full), 0.0);
            relinked.outSeconds = std::max(std::min(old.outSeconds, full), relinked.inSeconds);

            // Recorded only now, after the probe, so that a failed probe leaves no entry.
            recordSnapshot("Relink Clip");
            auto clips = clips_;
            auto at = std::find_if(clips.begin(), clips.end(),
                                   [&](const Clip& x) { return x.id == old.id; });
            if (at != clips.end()) {
                *at = std::move(relinked);
                setClips(std::move(clips));
            }
            enrichAssetsAsync(old.id);
            // A reversed clip renders anew from its new file.
            if (old.isReversed) renderReversedAsync(old.id);
            raiseCompositionToken();
        });
}

}  // namespace model
