#include "model/project.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "model/clip_edit_fields.h"

// Linked means one record with both streams; unlinked means two records, one video-only
// and one audio-only, sharing a linkGroupID. Nothing else ever reads the group.

namespace model {

namespace {

bool isLinked(const Clip& c) {
    return c.streamMask == StreamMask::both && c.hasVideo && c.hasAudio;
}

}  // namespace

ClipLinkState linkState(const Clip& clip) {
    if (isLinked(clip)) return ClipLinkState::linked;
    if (clip.linkGroupID) return ClipLinkState::unlinked;
    return ClipLinkState::none;
}

ClipLinkState Project::linkState(const common::Uuid& id) const {
    const Clip* c = clip(id);
    return c ? model::linkState(*c) : ClipLinkState::none;
}

void Project::toggleLinkAV(const common::Uuid& id) {
    const Clip* c = clip(id);
    if (!c) return;
    if (isLinked(*c))
        unlinkAV(id);
    else if (c->linkGroupID)
        relinkAV(id);
}

void Project::unlinkAV(const common::Uuid& id) {
    const Clip* c = clip(id);
    if (!c || !isLinked(*c)) return;
    Clip before = *c;
    recordSnapshot("Unlink Audio");
    common::Uuid group = common::Uuid::random();

    // The audio half is a record of its own, so it takes a fresh probe under a new id.
    runMediaTask(
        [media = context_.media, url = before.url, bookmark = before.bookmark] {
            return media->probe(url, bookmark, common::Uuid::random());
        },
        [this, before, group](common::Result<Clip> probed) {
            if (!probed) return;
            const Clip* now = clip(before.id);
            // An edit of this clip made during the probe wins over the unlink.
            if (!now || !sameEditFields(*now, before)) return;

            Clip video = *now;
            video.streamMask = StreamMask::videoOnly;
            video.linkGroupID = group;
            // The sound plays forward at rate 1 whatever the picture does: the probe's rate
            // and direction stay.
            Clip audio = std::move(probed).value();
            audio.inSeconds = now->inSeconds;
            audio.outSeconds = now->outSeconds;
            audio.startOnTimeline = now->startOnTimeline;
            audio.streamMask = StreamMask::audioOnly;
            audio.linkGroupID = group;
            audio.waveform = now->waveform;
            audio.waveformPeaks = now->waveformPeaks;
            audio.filmstrip.clear();

            auto clips = clips_;
            auto at = std::find_if(clips.begin(), clips.end(),
                                   [&](const Clip& x) { return x.id == before.id; });
            *at = std::move(video);
            clips.insert(at + 1, std::move(audio));
            setClips(std::move(clips));
            raiseCompositionToken();
        });
}

void Project::relinkAV(const common::Uuid& id) {
    const Clip* c = clip(id);
    if (!c || !c->linkGroupID) return;
    common::Uuid group = *c->linkGroupID;

    std::vector<std::size_t> members;
    for (std::size_t i = 0; i < clips_.size(); ++i)
        if (clips_[i].linkGroupID == group) members.push_back(i);
    // A split or a delete of one half leaves a group that can't be relinked any more.
    if (members.size() != 2) return;
    recordSnapshot("Re-link Audio");

    auto videoMember = std::find_if(members.begin(), members.end(), [&](std::size_t i) {
        return clips_[i].streamMask == StreamMask::videoOnly;
    });
    std::size_t videoIndex = videoMember != members.end() ? *videoMember : members.front();

    // The picture decides: where the sound stood and how it was trimmed is dropped.
    Clip merged = clips_[videoIndex];
    merged.streamMask = StreamMask::both;
    merged.linkGroupID.reset();

    std::optional<common::Uuid> selected = selectedClipID();
    bool memberSelected = std::any_of(members.begin(), members.end(),
                                      [&](std::size_t i) { return clips_[i].id == selected; });

    auto clips = clips_;
    std::erase_if(clips, [&](const Clip& x) { return x.linkGroupID == group; });
    std::size_t at = std::min(videoIndex, clips.size());
    clips.insert(clips.begin() + static_cast<std::ptrdiff_t>(at), merged);
    setClips(std::move(clips));
    if (memberSelected) setSelectedClipID(merged.id);
    raiseCompositionToken();
}

}  // namespace model
