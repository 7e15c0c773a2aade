#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "common/media_time.h"
#include "common/result.h"
#include "composition/audio_format.h"
#include "composition/audio_segment_reader.h"
#include "composition/composition.h"

namespace composition {

// Mixes every audio track of a Composition into one stream of `format`, read forward
// from a position. Segment k of a track starts at output sample round(start × rate);
// each source is decoded from its first real sample (encoder priming skipped), resampled,
// and a scaled segment is stretched in time with its pitch kept, to exactly its length.
// Empty ranges and the time past a track's end are silent; tracks are summed and the sum
// clipped to [-1, 1]. Owned and used by one thread at a time.
class AudioRenderer {
  public:
    // Reads from time 0 on.
    AudioRenderer(Composition composition, AudioFormat format);

    const AudioFormat& format() const { return format_; }
    const Composition& composition() const { return composition_; }

    // The output sample at which `time` falls: round(time × rate), halves away from zero.
    std::int64_t sampleAt(common::MediaTime time) const;

    // The first sample the next read gives.
    std::int64_t position() const { return position_; }

    // Reads on from sample `sample`.
    void seek(std::int64_t sample);
    void seek(common::MediaTime time) { seek(sampleAt(time)); }

    // Fills `interleaved` with the next size() / channelCount samples and moves the
    // position past them; silence past the end. On failure the position stays put.
    common::Status read(std::span<float> interleaved);

  private:
    struct Lane {
        std::size_t segmentIndex = 0;              // where the last read ended; a hint for the next
        std::optional<AudioSegmentReader> reader;  // of segments[segmentIndex]
    };

    common::Status mixTrack(const Track& track, Lane& lane, float* mix, std::int64_t frames);

    Composition composition_;
    AudioFormat format_;
    std::vector<Lane> lanes_;  // one per audio track
    std::int64_t position_ = 0;
};

}  // namespace composition
