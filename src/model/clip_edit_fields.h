#pragma once

#include "model/clip.h"
#include "model/snapshot.h"

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

// Writes a stored record's edit decisions over a clip just probed from the record's file,
// as opening and paste do; absent values take their defaults.
inline void applyEditDecisions(const VantrellSnapshotClip& record, Clip& clip) {
    clip.inSeconds = record.inSeconds;
    clip.outSeconds = record.outSeconds;
    clip.startOnTimeline = record.startOnTimeline;
    clip.streamMask = record.streamMask.value_or(StreamMask::both);
    clip.linkGroupID = record.linkGroupID;
    clip.rateMultiplier = record.rateMultiplier.value_or(1.0);
    clip.isReversed = record.isReversed.value_or(false);
    clip.forwardInSeconds = record.forwardInSeconds;
    clip.forwardOutSeconds = record.forwardOutSeconds;
}

}  // namespace model
