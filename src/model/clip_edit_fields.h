#pragma once

#include "model/clip.h"

namespace model {

// Whether two records of a clip agree on every field that an edit writes. An answer that
// arrives after a wait (a probe, a render) compares the clip with what it was before the
// wait, so that an edit made meanwhile is never overwritten.
inline bool sameEditFields(const Clip& a, const Clip& b) {
    return a.inSeconds == b.inSeconds && a.outSeconds == b.outSeconds &&
           a.startOnTimeline == b.startOnTimeline && a.streamMask == b.streamMask &&
           a.linkGroupID == b.linkGroupID && a.rateMultiplier == b.rateMultiplier &&
           a.isReversed == b.isReversed && a.reversedURL == b.reversedURL &&
           a.forwardInSeconds == b.forwardInSeconds && a.forwardOutSeconds == b.forwardOutSeconds;
}

}  // namespace model
