#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "common/result.h"
#include "composition/audio_format.h"
#include "composition/composition.h"
#include "composition/segment_clock.h"
#include "media/ff_ptr.h"

namespace composition {

// The sound of one segment of an audio track in the output format: exactly the output
// samples [from, end) of it, decoded from the source, resampled, and for a scaled segment
// stretched in time with its pitch kept (the stretch comes out a few samples long or
// short and is trimmed or padded). Where the source has no sound, silence. Owned and used
// by one thread at a time.
class AudioSegmentReader {
  public:
    // `segment` has a source and ends before output sample `end`. Reading starts at sample
    // `from`, at or after the segment's first sample and before `end`.
    static common::Result<AudioSegmentReader> open(const Segment& segment, std::int64_t from,
                                                   std::int64_t end, const AudioFormat& format);

    // The output sample the next read starts at.
    std::int64_t position() const { return end_ - outputLeft_; }

    // Adds the next `frames` samples to `mix` (interleaved); at most as many as are left.
    common::Status mixInto(float* mix, std::int64_t frames);

  private:
    AudioSegmentReader() = default;

    // Seeks to prerollSeconds_ before sourceStart_, or to the start.
    common::Status seekBefore();
    common::Status rewind();
    // Decodes the next frame into frame_; false at the end of the stream.
    common::Result<bool> decodeNext();
    common::Status resample(const AVFrame* frame);
    common::Status pass(const float* samples, std::int64_t frames);
    common::Status makeStretcher(double factor);
    common::Status stretch(const float* samples, std::int64_t frames);
    common::Status collectStretched();
    common::Status drainStretch();
    common::Status finishSource();
    // Runs the pipeline until `frames` samples are ready or nothing more will come.
    common::Status fill(std::int64_t frames);

    std::filesystem::path file_;
    int streamIndex_ = -1;
    AudioFormat format_;
    std::int64_t startPts_ = 0;  // the movie's origin, in the stream's time base
    double prerollSeconds_ = 0;  // how long before the first sample wanted decoding starts
    media::InputFormatPtr input_;
    media::CodecContextPtr decoder_;
    media::PacketPtr packet_;
    media::FramePtr frame_;
    media::SwrPtr resampler_;
    // What resampler_ was made for: channel count, layout mask, rate, sample format.
    int resamplerChannels_ = 0;
    std::uint64_t resamplerMask_ = 0;
    int resamplerRate_ = 0;
    int resamplerFormat_ = -1;
    media::FilterGraphPtr stretcher_;
    AVFilterContext* stretchIn_ = nullptr;   // owned by stretcher_
    AVFilterContext* stretchOut_ = nullptr;  // owned by stretcher_

    std::int64_t end_ = 0;
    std::int64_t outputLeft_ = 0;   // samples still to hand out
    std::int64_t toDrop_ = 0;       // resampled samples before the first one wanted
    std::int64_t toPass_ = 0;       // resampled samples still to pass on after the drop
    std::int64_t stretchedIn_ = 0;  // samples given to the stretcher so far
    std::int64_t stretchTail_ = 0;  // samples given to it beyond the segment's range
    ExactSeconds sourceStart_;      // source time of the first sample wanted
    bool anchored_ = false;         // toDrop_ is known
    bool sought_ = false;           // decoding began after a seek, not at the stream's start
    bool timingKnown_ = false;      // countsSamples_ is known
    // The stream's timestamps don't follow its samples (see media::timestampsFollowDurations):
    // decoding always starts at the beginning, where its first timestamp holds.
    bool countsSamples_ = false;
    bool draining_ = false;
    bool finished_ = false;     // nothing more will be added to ready_
    std::vector<float> ready_;  // interleaved samples ready to hand out, from readyHead_ on
    std::size_t readyHead_ = 0;
    std::vector<float> scratch_;
};

}  // namespace composition
