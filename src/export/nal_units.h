#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "media/ff_ptr.h"

namespace exporting {

// How the H.264 or HEVC pictures of a stream frame their NAL units: with a length of
// `lengthSize` bytes in front of each (MP4, Matroska), or with start codes (a transport
// stream), where `lengthSize` is 0. Other codecs have no NAL units; `nal` is false.
struct NalFraming {
    bool nal = false;
    bool hevc = false;
    int lengthSize = 0;
};

NalFraming nalFraming(const AVCodecParameters& parameters);

// The parameter sets of the stream's configuration record (avcC, hvcC or start-code
// extradata), framed as the stream's pictures are, to go in front of a picture.
std::vector<std::uint8_t> inBandParameterSets(const AVCodecParameters& parameters,
                                              const NalFraming& framing);

// NAL units with start codes (an encoder's output) reframed as `framing` says.
std::vector<std::uint8_t> reframed(std::span<const std::uint8_t> annexB, const NalFraming& framing);

// True if the picture's first slice is an IDR, after which a decoder keeps nothing from
// before.
bool startsWithIdr(std::span<const std::uint8_t> picture, const NalFraming& framing);

// Makes a keyframe that is not an IDR the start of a new coded sequence, for a splice: an
// HEVC CRA becomes a BLA (whose syntax is the same), after which decoders show what they
// hold and then start afresh; an H.264 I-picture gets an end of sequence in front.
std::vector<std::uint8_t> spliceStart(std::span<const std::uint8_t> picture,
                                      const NalFraming& framing);

}  // namespace exporting
