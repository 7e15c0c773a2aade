#pragma once

#include "common/result.h"
#include "media/ff_ptr.h"

namespace exporting {

// The colour description of an output picture: limited range, SDR, one matrix, primaries
// and transfer for every frame whatever its source.
struct OutputColour {
    AVColorSpace matrix = AVCOL_SPC_BT709;
    AVColorPrimaries primaries = AVCOL_PRI_BT709;
    AVColorTransferCharacteristic transfer = AVCOL_TRC_BT709;

    friend bool operator==(const OutputColour&, const OutputColour&) = default;
};

// BT.709 for pictures of HD size and up, BT.601 (SMPTE 170M) below, as players assume for
// untagged video of those sizes.
OutputColour outputColourFor(int width, int height);

// Brings decoded YUV pictures into one OutputColour through libavfilter's zscale: each is
// read by its own matrix, range, primaries and transfer (untagged ones as players read
// them), and HLG or PQ pictures are tone-mapped to SDR. Keeps one filter graph for as long
// as the sources stay alike. Owned and used by one thread at a time.
class ColourConverter {
  public:
    // `picture` in `target`, as 8-bit 4:4:4 at its own size; null when it already is in
    // `target` (or is RGB, which the scaler converts itself).
    common::Result<media::FramePtr> convert(const AVFrame& picture, const OutputColour& target);

  private:
    struct Key {
        int format = -1;
        int width = 0;
        int height = 0;
        AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
        AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
        AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
        AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
        OutputColour target;

        friend bool operator==(const Key&, const Key&) = default;
    };

    common::Status makeGraph(const Key& key);

    media::FilterGraphPtr graph_;
    AVFilterContext* source_ = nullptr;  // owned by graph_
    AVFilterContext* sink_ = nullptr;    // owned by graph_
    Key key_;
};

}  // namespace exporting
