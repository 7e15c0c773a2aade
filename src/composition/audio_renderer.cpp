#include "composition/audio_renderer.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace composition {

AudioRenderer::AudioRenderer(Composition composition, AudioFormat format)
    : composition_(std::move(composition)), format_(format), lanes_(composition_.audio.size()) {
    assert(format_.sampleRateHz > 0 && format_.channelCount > 0);
}

std::int64_t AudioRenderer::sampleAt(common::MediaTime time) const {
    return roundToTimeBase(exactSeconds(time), 1, format_.sampleRateHz);
}

void AudioRenderer::seek(std::int64_t sample) {
    position_ = std::max<std::int64_t>(sample, 0);
    for (Lane& lane : lanes_) lane = {};
}

common::Status AudioRenderer::read(std::span<float> interleaved) {
    assert(interleaved.size() % format_.channelCount == 0);
    const auto frames = static_cast<std::int64_t>(interleaved.size() / format_.channelCount);
    std::fill(interleaved.begin(), interleaved.end(), 0.0f);
    for (std::size_t i = 0; i < lanes_.size(); ++i) {
        if (auto mixed = mixTrack(composition_.audio[i], lanes_[i], interleaved.data(), frames);
            !mixed) {
            for (Lane& lane : lanes_) lane = {};
            return mixed;
        }
    }
    for (float& sample : interleaved) sample = std::clamp(sample, -1.0f, 1.0f);
    position_ += frames;
    return common::success();
}

common::Status AudioRenderer::mixTrack(const Track& track, Lane& lane, float* mix,
                                       std::int64_t frames) {
    const std::vector<Segment>& segments = track.segments;
    const std::int64_t end = position_ + frames;
    std::int64_t at = position_;
    // Reads go forward and a seek starts the lane over, so the search goes on from the
    // segment the last read ended in.
    while (at < end) {
        std::size_t& k = lane.segmentIndex;
        while (k < segments.size() && sampleAt(segments[k].end()) <= at) {
            ++k;
            lane.reader.reset();
        }
        if (k >= segments.size()) break;
        const Segment& segment = segments[k];
        const std::int64_t last = sampleAt(segment.end());
        const std::int64_t until = std::min(end, last);
        if (segment.source) {
            if (!lane.reader || lane.reader->position() != at) {
                auto opened = AudioSegmentReader::open(segment, at, last, format_);
                if (!opened) return opened.error();
                lane.reader.emplace(std::move(opened.value()));
            }
            if (auto mixed =
                    lane.reader->mixInto(mix + (at - position_) * format_.channelCount, until - at);
                !mixed)
                return mixed;
        }
        at = until;
    }
    return common::success();
}

}  // namespace composition
