#include "composition/audio_lanes.h"

#include <algorithm>
#include <vector>

namespace composition {

namespace {

// One clip's audio on a lane, in plain seconds until the last step.
struct LaneItem {
    const model::Clip* clip;
    double rate;
    double tStart;
    double tEnd;
    double aStart;
    double aEnd;
};

using Lane = std::vector<LaneItem>;

bool soundsAudio(const model::Clip& clip) {
    return clip.hasAudio && clip.streamMask != model::StreamMask::videoOnly && !clip.isMissing;
}

// Exact, with no tolerance: touching is no overlap, but an item of length 0 strictly
// inside another overlaps it.
bool overlaps(const LaneItem& a, const LaneItem& b) {
    return !(a.tEnd <= b.tStart) && !(b.tEnd <= a.tStart);
}

Slice toSlice(const LaneItem& item) {
    using common::MediaTime;
    return Slice{
        .url = item.clip->mediaURL(),
        .timelineStart = MediaTime::fromSeconds(item.tStart),
        .timelineEnd = MediaTime::fromSeconds(item.tEnd),
        .assetRange = sliceAssetRange(item.tStart, item.tEnd, item.aStart, item.aEnd, item.rate),
        .sourceNaturalSize = model::Size{},
        .rate = item.rate,
        .clipID = item.clip->id,
        .rotationDegrees = 0,
    };
}

}  // namespace

std::vector<std::vector<Slice>> assignAudioLanes(const std::vector<model::Clip>& clips) {
    std::vector<Lane> lanes;
    for (const model::Clip& clip : clips) {
        if (!soundsAudio(clip)) continue;
        const LaneItem item{&clip,
                            clip.effectiveRate(),
                            clip.startOnTimeline,
                            clip.startOnTimeline + clip.timelineLength(),
                            clip.inSeconds,
                            clip.outSeconds};
        // First fit, lowest lane first, never the tightest.
        auto fit = std::find_if(lanes.begin(), lanes.end(), [&](const Lane& lane) {
            return std::none_of(lane.begin(), lane.end(),
                                [&](const LaneItem& x) { return overlaps(item, x); });
        });
        if (fit == lanes.end()) {
            lanes.push_back(Lane{item});
        } else {
            fit->push_back(item);
        }
    }

    std::vector<std::vector<Slice>> result;
    result.reserve(lanes.size());
    for (const Lane& lane : lanes) {
        std::vector<Slice>& slices = result.emplace_back();
        slices.reserve(lane.size());
        for (const LaneItem& item : lane) slices.push_back(toSlice(item));
    }
    return result;
}

}  // namespace composition
