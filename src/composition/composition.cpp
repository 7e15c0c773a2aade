#include "composition/composition.h"

#include <algorithm>
#include <cmath>

#include "composition/audio_lanes.h"
#include "composition/video_slicing.h"

namespace composition {

namespace {

Track insertSlices(std::vector<Slice> slices, MediaKind kind, const StreamLookup& lookup) {
    std::stable_sort(slices.begin(), slices.end(), [](const Slice& a, const Slice& b) {
        return a.timelineStart < b.timelineStart;
    });
    Track track{kind, {}};
    common::MediaTime cursor{};
    for (const auto& slice : slices) {
        auto stream = lookup(slice.url, kind);
        if (!stream) continue;
        if (cursor < slice.timelineStart) {
            track.segments.push_back({cursor, slice.timelineStart - cursor, std::nullopt});
            cursor = slice.timelineStart;
        }
        // A range that can't be laid down (out before in) costs only itself.
        if (slice.assetRange.duration.ticks <= 0) continue;
        // The run ends where the timeline says, so that the next one starts right there;
        // a scaled run plays its whole source range over that span.
        const common::MediaTime duration = slice.timelineEnd - cursor;
        const double rate =
            std::abs(slice.rate - 1.0) > 0.0001 && slice.rate > 0 ? slice.rate : 1.0;
        if (duration.ticks <= 0) continue;
        track.segments.push_back({cursor, duration,
                                  SegmentSource{slice.url, *stream, slice.assetRange, rate,
                                                slice.rotationDegrees, slice.clipID}});
        cursor = cursor + duration;
    }
    return track;
}

}  // namespace

common::MediaTime Composition::duration() const {
    common::MediaTime longest{};
    if (video) longest = std::max(longest, video->duration());
    for (const auto& a : audio) longest = std::max(longest, a.duration());
    return longest;
}

Composition buildComposition(const std::vector<model::Clip>& clips, const StreamLookup& lookup) {
    Composition result;
    auto slices = sliceVideoTopWins(clips);
    if (!slices.empty()) result.video = insertSlices(std::move(slices), MediaKind::video, lookup);
    for (auto& lane : assignAudioLanes(clips))
        result.audio.push_back(insertSlices(std::move(lane), MediaKind::audio, lookup));
    return result;
}

}  // namespace composition
