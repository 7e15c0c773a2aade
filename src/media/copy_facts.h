#pragma once

#include "media/ff_ptr.h"
#include "model/clip.h"

namespace media {

// The facts export planning needs to tell beforehand whether a clip's samples can be
// copied and how many frames around its cuts must be re-encoded. Keyframes come from the
// demuxer's index where it has one, else from reading the packets. Leaves the reading
// position anywhere.
model::CopyFacts copyFacts(AVFormatContext& input);

}  // namespace media
