#pragma once

#include <vector>

#include "composition/slice.h"
#include "model/clip.h"

namespace composition {

// Spreads the sound of `clips` (project order) over lanes whose runs never overlap, so
// that each lane can be one audio track and every clip's audio sounds whole. Each clip
// with audio on the timeline goes, uncut, at the end of the first lane it does not
// overlap (touching is no overlap), or opens a new lane. Lanes come in order of creation,
// their runs in order of placing, not sorted by time; audio slices carry a 0 x 0 size and
// no rotation. A clip of length 0 still takes a place. Pure; safe on any thread.
std::vector<std::vector<Slice>> assignAudioLanes(const std::vector<model::Clip>& clips);

}  // namespace composition
