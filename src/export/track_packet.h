#pragma once

#include "media/ff_ptr.h"

namespace exporting {

// A packet ready for an output stream, timestamps in its time base, and where it falls on
// the composition timeline, by which the tracks are interleaved.
struct TrackPacket {
    media::PacketPtr packet;
    double timelineSeconds = 0;
};

}  // namespace exporting
