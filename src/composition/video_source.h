#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "common/result.h"
#include "media/ff_ptr.h"

namespace composition {

// One decoded frame and where it stands in its stream.
struct DecodedFrame {
    media::FramePtr frame;
    std::int64_t timestamp = 0;  // from the movie's origin, in the stream's time base
    std::uint64_t serial = 0;    // unique within the process: tells frames apart cheaply
};

// One video stream of one file, kept open between requests. It decodes forward and seeks
// only when the frame wanted lies behind it, or so far ahead that a keyframe stands
// between, so rising requests never re-seek. Time 0 is the movie's origin (see
// media::movieOrigin), so a stream that starts late has its first frame above 0. Owned and
// used by one thread at a time.
class VideoSource {
  public:
    static common::Result<VideoSource> open(const std::filesystem::path& file, int streamIndex);

    const std::filesystem::path& file() const { return file_; }
    int streamIndex() const { return streamIndex_; }
    AVRational timeBase() const;
    // Where the stream's first frame lies after the movie's origin (0 for the earliest
    // stream), in its time base. Before it the track shows nothing.
    std::int64_t firstTimestamp() const { return streamStart_; }

    // The frame shown at `limit` (time base units from the stream's start): the last one
    // whose timestamp is at or before it; the first frame where all lie after it; the last
    // frame where the stream ends before it. Frames passed over on the way are dropped
    // undecoded where nothing refers to them. Valid until the next call.
    common::Result<const DecodedFrame*> frameAt(std::int64_t limit);

  private:
    VideoSource() = default;

    bool mustSeek(std::int64_t limit) const;
    bool keyframeAheadOfReading(std::int64_t limit) const;
    common::Status seekTo(std::int64_t limit);
    // Starts decoding over from the stream's first frame, which then stands in ahead_.
    common::Status rewind(std::int64_t limit);
    void resetDecoding();
    // Decodes until one more frame stands in ahead_, or the stream has ended.
    common::Status decodeNext(std::int64_t limit);

    std::filesystem::path file_;
    int streamIndex_ = -1;
    std::int64_t startPts_ = 0;  // the movie's origin, in the stream's time base
    std::int64_t streamStart_ = 0;
    media::InputFormatPtr input_;
    media::CodecContextPtr decoder_;
    media::PacketPtr packet_;

    DecodedFrame shown_;  // the last frame at or before the last limit; frame null if none
    DecodedFrame ahead_;  // the first frame after it, decoded but not yet shown; or null
    // The first frame's timestamp, known once the stream has been decoded from its start.
    std::optional<std::int64_t> firstFrame_;
    bool learnFirstFrame_ = true;    // the next frame decoded is the stream's first
    bool fromStart_ = true;          // decoding began at the stream's start
    bool awaitingKeyframe_ = false;  // after a seek: packets before a keyframe are dropped
    bool draining_ = false;          // the demuxer is done; the decoder gives up what it holds
    bool ended_ = false;             // every frame since the last seek has been decoded
    bool decodedAny_ = false;
    std::int64_t lastTimestamp_ = 0;
    std::int64_t lastPacketDts_ = AV_NOPTS_VALUE;     // of this stream, absolute
    std::int64_t highestPacketPts_ = AV_NOPTS_VALUE;  // since the last seek, from the start
};

}  // namespace composition
