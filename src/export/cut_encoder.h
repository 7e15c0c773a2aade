#pragma once

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
    // `timeBase` is the unit of the frames' pts; `frameRate` the source's nominal rate.
    static common::Result<CutEncoder> open(const AVCodecParameters& source, AVRational timeBase,
                                           AVRational frameRate);

    // Encodes `frame`, or drains the encoder when it is null, appending what comes out.
    common::Status encode(AVFrame* frame, std::vector<media::PacketPtr>& out);

    // A black picture of the encoder's size and format.
    common::Result<media::FramePtr> blackFrame() const;

  private:
    CutEncoder(media::CodecContextPtr context, NalFraming framing);

    media::CodecContextPtr context_;
    NalFraming framing_;
};

// True if this build can encode `codec`.
bool canEncode(AVCodecID codec);

}  // namespace exporting
