#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <optional>
#include <vector>

#include "common/media_time.h"
#include "common/result.h"
#include "composition/composition.h"
#include "export/source_stream.h"
#include "media/ff_ptr.h"

namespace exporting {

// How a track's ranges are cut: video from a keyframe, framed audio (AAC and the like)
// at packet edges with pre-roll, PCM at the exact sample.
enum class CopyKind { video = 1, framedAudio, pcmAudio };

// One entry of an output track's edit list: `mediaTime` in the output stream's time base,
// or -1 for an empty edit; `duration` on the composition timeline.
struct TrackEdit {
    std::int64_t mediaTime = -1;
    common::MediaTime duration;

    friend bool operator==(const TrackEdit&, const TrackEdit&) = default;
};

// A packet ready for the output stream, timestamps in its time base, and where it falls
// on the composition timeline, by which the tracks are interleaved.
struct CopiedPacket {
    media::PacketPtr packet;
    double timelineSeconds = 0;
};

// Reads the packets one output track needs from its sources, run after run, retimed so
// that they lie back to back in the output, and works out the edits that show exactly the
// wanted ranges. Every source segment must be at rate 1 and share `parameters` (the
// output stream's codec configuration). One thread at a time.
class TrackCopier {
  public:
    TrackCopier(const composition::Track& track, CopyKind kind, const AVCodecParameters& parameters,
                AVRational outputTimeBase);

    // The next packet in decode order, or none when the track is done.
    common::Result<std::optional<CopiedPacket>> next();

    // The complete edit list, once next() has answered none.
    const std::vector<TrackEdit>& edits() const { return edits_; }

    // Source time copied so far and in all, in seconds, for progress.
    double copiedSeconds() const { return copiedSeconds_; }
    double totalSeconds() const { return totalSeconds_; }

  private:
    // One segment of a run: where it plays and where its source begins.
    struct Part {
        common::MediaTime timelineStart;
        common::MediaTime duration;
        common::MediaTime sourceStart;
    };
    // Segments of one stream of one file that follow each other in source time and on
    // the timeline; read in one go, so a split clip put back together costs nothing.
    struct Run {
        std::filesystem::path file;
        int streamIndex = -1;
        std::vector<Part> parts;
    };
    // A stretch of the track: a gap of `gap`, or the run `run` indexes.
    struct Item {
        common::MediaTime gap;
        std::optional<std::size_t> run;
    };
    // A source packet with its times in output units counted from the source's origin.
    struct Held {
        media::PacketPtr packet;
        std::int64_t dts = 0;
        std::int64_t pts = 0;
        std::int64_t duration = 0;
    };

    common::Status startRun(const Run& run);
    common::Result<std::optional<Held>> readHeld();
    common::Status take(Held held);
    common::Status emit(Held held, bool wanted);
    void finishRun();
    void addEdit(TrackEdit edit);

    std::int64_t toOutput(std::int64_t sourceTime) const;
    std::int64_t toOutput(common::MediaTime time) const;

    CopyKind kind_;
    const AVCodecParameters& parameters_;
    AVRational outputTimeBase_;
    std::vector<Run> runs_;
    std::vector<Item> items_;
    std::size_t nextItem_ = 0;
    std::vector<TrackEdit> edits_;
    std::size_t prerollPackets_ = 1;  // framed audio: packets kept before the in point

    std::optional<SourceStream> source_;
    media::PacketPtr readPacket_;
    std::deque<CopiedPacket> ready_;
    double copiedSeconds_ = 0;
    double totalSeconds_ = 0;
    double finishedSeconds_ = 0;

    // Where the next run may begin in the output, and the last decode time written.
    std::int64_t nextBase_ = 0;
    std::int64_t lastOutputDts_ = -1;

    // The run being read; all times in output units from the source's origin.
    const Run* run_ = nullptr;
    std::int64_t runIn_ = 0;
    std::int64_t runOut_ = 0;
    std::deque<Held> held_;
    bool started_ = false;           // a wanted packet has been written
    bool anchored_ = false;          // a packet of this run has been written
    std::int64_t anchorSource_ = 0;  // a source time of the run ...
    std::int64_t anchorOutput_ = 0;  // ... and where it lies in the output
    std::int64_t cursor_ = 0;        // audio: where the next packet goes
    std::int64_t mediaStart_ = 0;    // what the run can show, [mediaStart_, mediaEnd_)
    std::int64_t mediaEnd_ = 0;
    std::int64_t maxOutputEnd_ = 0;  // video: end of the latest frame written
    std::optional<std::int64_t> lastSourceDts_;
    std::optional<Held> firstHeld_;  // read while looking for the starting keyframe
};

}  // namespace exporting
