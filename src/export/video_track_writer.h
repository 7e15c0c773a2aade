#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "common/media_time.h"
#include "common/result.h"
#include "composition/composition.h"
#include "export/cut_encoder.h"
#include "export/cut_plan.h"
#include "export/nal_units.h"
#include "export/source_stream.h"
#include "export/track_packet.h"
#include "media/ff_ptr.h"

namespace exporting {

// Writes the video track of a smart cut as one plain run of samples: each range's whole
// groups of pictures copied, the frames around its cuts re-encoded in the source's codec
// and form, each gap as black frames. Re-encoded stretches carry their own parameter sets,
// and a copied stretch after them gets its source's back in band, so decoders switch at
// the keyframes. Composition time t is output time t + mediaStart(). Every source must be
// at rate 1 and in the codec, size and pixel format of `parameters`. One thread.
class VideoTrackWriter {
  public:
    // Reads where the keyframes of every range lie and plans the cuts.
    static common::Result<VideoTrackWriter> plan(const composition::Track& track,
                                                 const AVCodecParameters& parameters,
                                                 AVRational outputTimeBase);

    // The next packet in decode order, or none when the track is done.
    common::Result<std::optional<TrackPacket>> next();

    // Media time of composition time 0, once the track is written: the decode delay of the
    // copied pictures, counted from the first decode time, where the muxer puts media time 0.
    std::int64_t mediaStart() const { return delay_ - firstDts_; }

    std::size_t frameCount() const { return shownCount_; }
    std::size_t reencodedCount() const { return reencodedCount_; }

    double doneSeconds() const { return doneSeconds_; }
    double totalSeconds() const { return totalSeconds_; }

  private:
    struct Range {
        std::filesystem::path file;
        int streamIndex = -1;
        common::MediaTime timelineStart;
        common::MediaTime duration;
        common::MediaTime sourceStart;
        std::int64_t seekTarget = 0;  // source units; lands on frames.front()
        AVRational sourceTimeBase{0, 1};
        std::vector<CodedFrame> frames;
        CutPlan cut;
        std::int64_t shownBelow = 0;  // source pts every frame shown in the range is below
    };
    struct Item {
        common::MediaTime start;
        common::MediaTime duration;
        std::optional<std::size_t> range;  // none: a gap
    };

    VideoTrackWriter(const AVCodecParameters& parameters, AVRational outputTimeBase);

    static bool exactWhereUsed(const Range& range);
    common::Status scan(Range& range, bool fromIndex);
    common::Result<bool> readAroundCuts(Range& range, std::int64_t in, std::int64_t out,
                                        AVPacket& packet);
    common::Status openSource(const Range& range);
    common::Status moveTo(const Range& range, std::size_t index);
    common::Result<bool> readFrame(const Range& range, AVPacket& packet);
    common::Result<media::PacketPtr> take(const Range& range);
    common::Status writeGap(const Item& item);
    common::Status writeBlack(std::int64_t start, std::int64_t end);
    std::size_t blackFrames(std::int64_t start, std::int64_t end) const;
    common::Status startRange(const Range& range);
    common::Status continueRange();
    common::Status writeCopy(const Range& range, const CutPiece& piece);
    common::Status writeReencoded(const Range& range, const CutPiece& piece);
    common::Status push(media::PacketPtr packet, bool encoded);
    // Drains `encoder` into `packets` and pushes them all, each lasting as `durations` says
    // for its presentation time.
    common::Status pushEncoded(CutEncoder& encoder, std::vector<media::PacketPtr>& packets,
                               std::map<std::int64_t, std::int64_t>& durations);

    std::int64_t toOutput(common::MediaTime time) const;
    std::int64_t toOutput(const Range& range, std::int64_t sourceTime) const;
    // When a frame of `range` appears: the frame showing at the in-point from the range start.
    std::int64_t shownAt(const Range& range, std::int64_t pts) const;

    const AVCodecParameters& parameters_;
    AVRational outputTimeBase_;
    AVRational frameRate_{30, 1};
    NalFraming framing_;
    std::vector<Range> ranges_;
    std::vector<Item> items_;
    std::size_t nextItem_ = 0;
    std::int64_t delay_ = 0;
    std::size_t shownCount_ = 0;
    std::size_t reencodedCount_ = 0;
    double doneSeconds_ = 0;
    double totalSeconds_ = 0;

    std::optional<SourceStream> source_;
    std::size_t position_ = 0;  // index in the current range of the next frame read
    bool positioned_ = false;
    media::PacketPtr pending_;  // the frame at position_, already read
    std::deque<TrackPacket> ready_;
    const Range* range_ = nullptr;         // the range being written, if any
    std::size_t piece_ = 0;                // its piece being written
    std::size_t copied_ = 0;               // frames of a copied piece written so far
    std::vector<std::int64_t> durations_;  // output duration of each frame of the range
    std::int64_t lastDts_ = INT64_MIN;
    std::int64_t firstDts_ = 0;
    bool foreignBefore_ = false;  // pictures of another bitstream have been written
    std::vector<std::uint8_t> sourceParameterSets_;
};

}  // namespace exporting
