#pragma once

namespace timeline {

// Makes the rows' bars and gaps, and the playhead thumb, elements that a screen reader can
// read and act on. Safe to call more than once.
void installTimelineAccessibility();

}  // namespace timeline
