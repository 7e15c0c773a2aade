#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace exporting {

// One coded picture of a source, as the demuxer gives it in decode order; times in the
// source stream's time base.
struct CodedFrame {
    std::int64_t dts = 0;
    std::int64_t pts = 0;
    bool keyframe = false;
    bool hidden = false;  // decoded but never shown (the source's own edit list)
    // False for a frame known only from the demuxer's index, which has decode times only:
    // pts then holds its dts, which lies on the same side of every cut as its real pts.
    bool ptsKnown = true;
};

// A stretch of the output in presentation order: frames copied as they are, or frames
// decoded from `decodeFrom` on and re-encoded.
struct CutPiece {
    enum class Kind { copy = 1, reencode };
    Kind kind = Kind::copy;
    std::vector<std::size_t> frames;  // copy: decode order; reencode: presentation order
    std::size_t decodeFrom = 0;       // reencode: the keyframe the decoder starts at
};

// How the frames of one source range reach the output.
struct CutPlan {
    std::int64_t shownFrom = 0;  // pts of the first frame shown
    std::int64_t anchor = 0;     // the source time that goes at the range start: the in-point
    std::vector<CutPiece> pieces;
    std::size_t shownCount = 0;
    std::size_t reencodedCount = 0;
};

// Plans the range [inPts, outPts) of `frames` (decode order, starting at a keyframe at or
// before the range): every group of pictures wholly inside the range is copied, and only
// the frames before the first copied keyframe and after the last copied group are
// re-encoded. Leading pictures of an open group (shown before their keyframe, decoded after
// it) are copied only when the group before is copied too; otherwise they are re-encoded.
// Every frame keeps its place relative to `inPts`, as the composition shows it, so pictures
// stay in step with the sound: the frame showing at `inPts` is the first one shown, from the
// range start (for what is left of its time), and the last one shown starts before `outPts`.
// A stream that starts inside the range shows nothing before its first frame. Pure.
CutPlan planCut(const std::vector<CodedFrame>& frames, std::int64_t inPts, std::int64_t outPts);

}  // namespace exporting
