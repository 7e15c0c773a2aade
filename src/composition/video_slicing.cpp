#include "composition/video_slicing.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace composition {

namespace {

// What stays visible of one clip while slicing goes on, in plain seconds: nothing is
// rounded to ticks before the last step. Source time at timeline time t is
// aStart + (t - tStart) * rate.
struct Pending {
    const model::Clip* clip;
    double rate;
    double tStart;
    double tEnd;
    double aStart;
    double aEnd;
};

bool showsPicture(const model::Clip& clip) {
    return clip.hasVideo && clip.streamMask != model::StreamMask::audioOnly && !clip.isMissing;
}

Slice toSlice(const Pending& p) {
    using common::MediaTime;
    return Slice{
        .url = p.clip->mediaURL(),
        .timelineStart = MediaTime::fromSeconds(p.tStart),
        .timelineEnd = MediaTime::fromSeconds(p.tEnd),
        .assetRange = sliceAssetRange(p.tStart, p.tEnd, p.aStart, p.aEnd, p.rate),
        .sourceNaturalSize = p.clip->naturalSize,
        .rate = p.rate,
        .clipID = p.clip->id,
        .rotationDegrees = p.clip->rotationDegrees,
    };
}

}  // namespace

std::vector<Slice> sliceVideoTopWins(const std::vector<model::Clip>& clips) {
    std::vector<Pending> pieces;
    for (const model::Clip& clip : clips) {
        if (!showsPicture(clip)) continue;
        const double rate = clip.effectiveRate();
        const double tStart = clip.startOnTimeline;
        const double tEnd = tStart + clip.timelineLength();
        if (!(tStart < tEnd)) continue;

        std::vector<Pending> next;
        next.reserve(pieces.size() + 2);
        for (const Pending& p : pieces) {
            // Exact tests: a piece that only touches the new clip stays whole.
            if (p.tEnd <= tStart || tEnd <= p.tStart) {
                next.push_back(p);
                continue;
            }
            if (p.tStart < tStart) {
                next.push_back(Pending{p.clip, p.rate, p.tStart, tStart, p.aStart,
                                       p.aStart + (tStart - p.tStart) * p.rate});
            }
            if (tEnd < p.tEnd) {
                next.push_back(Pending{p.clip, p.rate, tEnd, p.tEnd,
                                       p.aStart + (tEnd - p.tStart) * p.rate, p.aEnd});
            }
        }
        next.push_back(Pending{&clip, rate, tStart, tEnd, clip.inSeconds, clip.outSeconds});
        std::sort(next.begin(), next.end(),
                  [](const Pending& a, const Pending& b) { return a.tStart < b.tStart; });
        pieces = std::move(next);
    }

    std::vector<Slice> slices;
    slices.reserve(pieces.size());
    for (const Pending& p : pieces) slices.push_back(toSlice(p));
    return slices;
}

}  // namespace composition
