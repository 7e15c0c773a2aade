#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "common/result.h"
#include "export/nal_units.h"
#include "media/ff_ptr.h"

namespace exporting {

// Encodes pictures in the codec and form of a source stream (size, pixel format, colour
// tags, pixel shape) at near-lossless quality, with no B-frames, starting with an IDR that
// carries its own parameter sets, for the frames a smart cut re-encodes and the black
// frames of gaps. Packets come out framed like the source's. One per stretch; one thread.
class CutEncoder {
  public:
    // `frameRate` is the source's nominal rate.
    static common::Result<CutEncoder> open(const AVCodecParameters& source, AVRational frameRate);

    // Encodes `frame`, or drains the encoder when it is null, appending what comes out. Packets
    // carry their frame's pts, in whatever unit the caller times frames.
    common::Status encode(AVFrame* frame, std::vector<media::PacketPtr>& out);

    // A black picture of the encoder's size and format.
    common::Result<media::FramePtr> blackFrame() const;

  private:
    CutEncoder(media::CodecContextPtr context, NalFraming framing);

    media::CodecContextPtr context_;
    NalFraming framing_;
    std::int64_t counted_ = 0;                    // frames sent so far
    std::map<std::int64_t, std::int64_t> times_;  // frame number to the caller's pts
};

// True if this build can encode `codec`.
bool canEncode(AVCodecID codec);

}  // namespace exporting
