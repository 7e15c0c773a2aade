#pragma once

#include <vector>

#include "composition/slice.h"
#include "model/clip.h"

namespace composition {

// Flattens the picture of `clips` (project order: a later clip lies above every earlier
// one) into runs that do not overlap, in ascending timelineStart. Where clips overlap only
// the topmost is seen. Clips without a picture on the timeline (no video, audioOnly,
// missing, or of length 0) take no part and cut nothing. Neighbouring runs are never
// merged, and a gap yields no run. Pure; safe on any thread.
std::vector<Slice> sliceVideoTopWins(const std::vector<model::Clip>& clips);

}  // namespace composition
