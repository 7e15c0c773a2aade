#pragma once

#include <cmath>
#include <filesystem>

#include "common/media_time.h"
#include "common/uuid.h"
#include "model/clip.h"

namespace composition {

// One run of one source on the timeline: the product of video slicing and of audio
// lanes. A plain value; source time at timeline time t is
// assetRange.start + (t - timelineStart) * rate.
struct Slice {
    std::filesystem::path url;          // the file to read, the reversed render if any
    common::MediaTime timelineStart;    // where the run begins on the timeline
    common::MediaTime timelineEnd;      // where it ends: runs that meet share this tick
    common::MediaTimeRange assetRange;  // the stretch of the file that fills the run
    model::Size sourceNaturalSize;      // as stored, unrotated; 0 x 0 on audio slices
    double rate = 1.0;                  // source seconds per timeline second, above 0
    common::Uuid clipID;                // the clip the run comes from
    int rotationDegrees = 0;            // clockwise display rotation; 0 on audio slices

    friend bool operator==(const Slice&, const Slice&) = default;
};

// The source range of a run from [tStart, tEnd) on the timeline and [aStart, aEnd) in the
// source, in seconds. Unscaled (rate within a ten-thousandth of 1), the range is exactly as
// many ticks long as the run's rounded span on the timeline, so that runs that meet on the
// timeline meet in ticks too; the rounding goes into the source's end, within a tick.
inline common::MediaTimeRange sliceAssetRange(double tStart, double tEnd, double aStart,
                                              double aEnd, double rate) {
    using common::MediaTime;
    const MediaTime start = MediaTime::fromSeconds(aStart);
    if (std::abs(rate - 1.0) > 0.0001) return {start, MediaTime::fromSeconds(aEnd) - start};
    return {start, MediaTime::fromSeconds(tEnd) - MediaTime::fromSeconds(tStart)};
}

}  // namespace composition
