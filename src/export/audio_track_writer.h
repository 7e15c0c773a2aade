#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "common/result.h"
#include "composition/composition.h"
#include "export/source_stream.h"
#include "export/track_packet.h"
#include "media/ff_ptr.h"

namespace exporting {

// How an audio track is cut: coded frames (AAC and the like) whole; PCM on the sample;
// lossless coded frames on the sample too, the frames that a cut splits decoded and coded
// again, which gives back the very samples kept.
enum class AudioCut { framed = 1, pcm, recoded };

// Whether sound of these parameters can be cut as AudioCut::recoded: ALAC whose
// configuration our encoder writes alike, so that its frames decode under the source's.
bool recodesExactly(const AVCodecParameters& parameters);

// Writes the audio track of a smart cut as one plain run of samples in the output stream's
// time base, 1/sample rate. Coded frames are copied whole, each placed within half a frame
// of where its range puts it, with silent frames for gaps and holes; PCM and recoded frames
// are cut on the sample, gaps as digital silence. Composition time t is output time t +
// mediaStart(): the one frame copied ahead of the first range, so that its first sound
// decodes right, where a codec's frames need the one before. Every source must share
// `parameters`. One thread.
class AudioTrackWriter {
  public:
    AudioTrackWriter(const composition::Track& track, AudioCut cut,
                     const AVCodecParameters& parameters);

    common::Result<std::optional<TrackPacket>> next();

    std::int64_t mediaStart() const { return preroll_; }
    // Where the samples written so far end, in output units: a coded frame may end a little
    // after the composition does.
    std::int64_t mediaEnd() const { return cursor_; }

    double doneSeconds() const { return doneSeconds_; }
    double totalSeconds() const { return totalSeconds_; }

  private:
    // A source packet and when it plays, in output units from the source's origin.
    struct SourcePacket {
        media::PacketPtr packet;
        std::int64_t pts = 0;
    };

    common::Status seekSource(const composition::SegmentSource& source, std::int64_t from);
    common::Result<std::optional<SourcePacket>> readSource();
    common::Status writeSegment(const composition::Segment& segment);
    common::Status writeFramed(const composition::Segment& segment);
    common::Status writeOnTheSample(const composition::Segment& segment);
    common::Status silence(std::int64_t samples);
    common::Status silentFrame();
    // The samples [skip, skip + count) of a coded frame, coded again as a frame of their own.
    common::Result<media::PacketPtr> recode(const AVPacket& packet, std::int64_t skip,
                                            std::int64_t count);
    common::Result<media::PacketPtr> recodedSilence(std::int64_t samples);
    common::Status emit(media::PacketPtr packet, std::int64_t samples);

    std::int64_t toOutput(common::MediaTime time) const;

    std::vector<composition::Segment> segments_;
    AudioCut cut_;
    const AVCodecParameters& parameters_;
    std::size_t nextSegment_ = 0;
    std::optional<SourceStream> source_;
    std::deque<TrackPacket> ready_;
    std::int64_t cursor_ = 0;  // where the next packet goes, output units
    std::int64_t preroll_ = 0;
    bool started_ = false;
    media::PacketPtr silence_;  // one coded frame of silence, made on first need
    std::int64_t silenceSamples_ = 0;
    media::CodecContextPtr decoder_;  // for recoded cuts, made on first need
    double doneSeconds_ = 0;
    double totalSeconds_ = 0;
};

}  // namespace exporting
