#pragma once

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
    common::MediaTimeRange assetRange;  // the stretch of the file that fills the run
    model::Size sourceNaturalSize;      // as stored, unrotated; 0 x 0 on audio slices
    double rate = 1.0;                  // source seconds per timeline second, above 0
    common::Uuid clipID;                // the clip the run comes from
    int rotationDegrees = 0;            // clockwise display rotation; 0 on audio slices

    friend bool operator==(const Slice&, const Slice&) = default;
};

}  // namespace composition
