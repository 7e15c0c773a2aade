// Copying one output track, and the arithmetic of its edit list.
//
// Every packet time here is in output units (the output stream's time base) counted from
// the source's origin, so source time t of a segment is t in those units. A run, one
// uninterrupted read of one stream, is laid into the output by an affine map: for video
// the run's first packet (a keyframe) is decoded at the run's base, and every other packet
// keeps its decode and presentation distance to it; audio packets go back to back from the
// base, each as long as its samples. The base of the next run lies past everything the run
// presents and decodes, so no frame of one run can fall inside another run's edit.
//
// The edit of a segment then starts at the output time of its in point, which is exact:
// media time = run base + (in point − source time of the run's anchor). It lasts the
// segment's duration in composition ticks, which is the movie timescale. Frames read
// for decoding only (from the keyframe to the in point, or references past the out point)
// lie outside every edit and are never shown.
//
// Audio needs its codec's pre-roll: AAC decodes a packet correctly only after the one
// before it, so one packet before the one holding the in point is copied too. A source's
// own priming (the samples its encoder put before the first real one) needs no special
// case: the demuxer already gives the priming packets times before zero, so the edit skips
// them like any other pre-roll. PCM is cut to the exact sample and needs no pre-roll.
//
// Where a source has no media for part of a segment (a stream that starts late or ends
// early), that part becomes an empty edit, so what follows stays in place. Edits that
// continue each other exactly in both timelines are merged; they show the same thing.

#include "export/track_copier.h"

#include <algorithm>
#include <cassert>
#include <string>
#include <utility>

#include "media/av_error.h"

namespace exporting {

namespace {

// A seek lands on a keyframe at or before the time asked for in decode order; with
// B-frames it may still present after the in point, so the search steps back a few times.
constexpr int kSeekAttempts = 10;

// Audio is read from this much before the in point, to find the pre-roll packets.
constexpr AVRational kAudioLeadIn{1, 1};

std::string seconds(double value) {
    std::string text = std::to_string(value);
    return text.substr(0, text.find('.') + 4) + " s";
}

}  // namespace

TrackCopier::TrackCopier(const composition::Track& track, CopyKind kind,
                         const AVCodecParameters& parameters, AVRational outputTimeBase)
    : kind_(kind),
      parameters_(parameters),
      outputTimeBase_(outputTimeBase),
      readPacket_(av_packet_alloc()) {
    // PCM is cut by counting output units as samples.
    assert(kind != CopyKind::pcmAudio ||
           (outputTimeBase.num == 1 && outputTimeBase.den == parameters.sample_rate));
    // One packet before the in point, or as many as the codec's own pre-roll spans.
    if (parameters.seek_preroll > 0 && parameters.frame_size > 0)
        prerollPackets_ +=
            (parameters.seek_preroll + parameters.frame_size - 1) / parameters.frame_size;
    for (const auto& segment : track.segments) {
        if (segment.duration.ticks <= 0) continue;
        if (!segment.source) {
            items_.push_back({segment.duration, std::nullopt});
            continue;
        }
        const auto& source = *segment.source;
        const Part part{segment.start, segment.duration, source.assetRange.start};
        totalSeconds_ += segment.duration.seconds();
        if (!items_.empty() && items_.back().run) {
            Run& last = runs_[*items_.back().run];
            const Part& previous = last.parts.back();
            if (last.file == source.url && last.streamIndex == source.streamIndex &&
                previous.sourceStart + previous.duration == part.sourceStart) {
                last.parts.push_back(part);
                continue;
            }
        }
        runs_.push_back({source.url, source.streamIndex, {part}});
        items_.push_back({{}, runs_.size() - 1});
    }
}

std::int64_t TrackCopier::toOutput(std::int64_t sourceTime) const {
    return av_rescale_q(sourceTime - source_->origin(), source_->stream().time_base,
                        outputTimeBase_);
}

std::int64_t TrackCopier::toOutput(common::MediaTime time) const {
    return time.toTimeBase(outputTimeBase_.num, outputTimeBase_.den);
}

common::Result<std::optional<CopiedPacket>> TrackCopier::next() {
    if (!readPacket_) return media::avError(AVERROR(ENOMEM), "Cannot read the sources");
    while (true) {
        if (!ready_.empty()) {
            CopiedPacket packet = std::move(ready_.front());
            ready_.pop_front();
            return std::optional{std::move(packet)};
        }
        if (!run_) {
            if (nextItem_ == items_.size()) return std::optional<CopiedPacket>{};
            const Item& item = items_[nextItem_++];
            if (!item.run) {
                addEdit({-1, item.gap});
                continue;
            }
            if (auto started = startRun(runs_[*item.run]); !started) return started.error();
            continue;
        }
        auto held = readHeld();
        if (!held) return held.error();
        if (!*held) {
            finishRun();
            continue;
        }
        if (auto taken = take(std::move(**held)); !taken) return taken.error();
    }
}

common::Status TrackCopier::startRun(const Run& run) {
    if (!source_ || source_->path() != run.file || source_->stream().index != run.streamIndex) {
        source_.reset();
        auto opened = SourceStream::open(run.file, run.streamIndex);
        if (!opened) return opened.error();
        source_.emplace(std::move(opened).value());
    }
    run_ = &run;
    const Part& last = run.parts.back();
    runIn_ = toOutput(run.parts.front().sourceStart);
    runOut_ = toOutput(last.sourceStart + last.duration);
    held_.clear();
    firstHeld_.reset();
    started_ = false;
    anchored_ = false;
    mediaStart_ = 0;
    mediaEnd_ = 0;
    maxOutputEnd_ = nextBase_;

    const AVRational sourceBase = source_->stream().time_base;
    const auto toSource = [&](std::int64_t output) {
        return av_rescale_q(output, outputTimeBase_, sourceBase) + source_->origin();
    };
    if (kind_ != CopyKind::video) {
        std::int64_t leadIn = 0;
        if (kind_ == CopyKind::framedAudio) {
            leadIn = av_rescale_q(1, kAudioLeadIn, outputTimeBase_) +
                     av_rescale_q(parameters_.seek_preroll, {1, parameters_.sample_rate},
                                  outputTimeBase_);
        }
        lastSourceDts_.reset();
        return source_->seek(toSource(runIn_ - leadIn));
    }

    // Containers with an index land on the keyframe before the target, so stepping to just
    // before the keyframe found reaches the one before it. Others seek by byte position and
    // may land on the same keyframe again; then the step back doubles, from one second.
    const AVStream& stream = source_->stream();
    const std::int64_t streamStart = stream.start_time != AV_NOPTS_VALUE ? stream.start_time : 0;
    std::int64_t target = toSource(runIn_);
    std::int64_t step = av_rescale_q(1, {1, 1}, sourceBase);
    std::optional<std::int64_t> landedAt;
    for (int attempt = 0;; ++attempt) {
        if (auto sought = source_->seek(target); !sought) return sought;
        lastSourceDts_.reset();
        std::optional<Held> keyframe;
        while (!keyframe) {
            auto held = readHeld();
            if (!held) return held.error();
            if (!*held) break;
            if ((*held)->packet->flags & AV_PKT_FLAG_KEY) keyframe = std::move(**held);
        }
        // Before the stream's start there is no earlier keyframe: the stream begins late.
        const bool lastTry = attempt == kSeekAttempts || target < streamStart;
        if (keyframe && (keyframe->pts <= runIn_ || lastTry)) {
            firstHeld_ = std::move(keyframe);
            return common::success();
        }
        if (lastTry) return common::success();
        if (!keyframe || (landedAt && keyframe->packet->dts >= *landedAt)) {
            target -= step;
            step *= 2;
        } else {
            landedAt = keyframe->packet->dts;
            target = std::min(keyframe->packet->dts, keyframe->packet->pts) - 1;
        }
    }
}

common::Result<std::optional<TrackCopier::Held>> TrackCopier::readHeld() {
    if (firstHeld_) {
        std::optional<Held> first = std::move(firstHeld_);
        firstHeld_.reset();
        return first;
    }
    auto more = source_->read(*readPacket_);
    if (!more) return more.error();
    if (!*more) return std::optional<Held>{};
    AVPacket& packet = *readPacket_;
    const AVStream& stream = source_->stream();
    const auto where = [&] {
        const std::int64_t time = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
        const double at =
            time == AV_NOPTS_VALUE ? 0 : av_q2d(stream.time_base) * (time - source_->origin());
        return " near " + seconds(at) + " of " + source_->path().string();
    };
    if (packet.dts == AV_NOPTS_VALUE)
        return common::Error{"A packet" + where() + " has no decode time, so it cannot be placed."};
    if (packet.pts == AV_NOPTS_VALUE) {
        return common::Error{"A packet" + where() +
                             " has no presentation time, so it cannot be placed."};
    }
    if (lastSourceDts_ && packet.dts <= *lastSourceDts_)
        return common::Error{"The decode times go backwards" + where() +
                             ", so the packets cannot be copied in order."};
    lastSourceDts_ = packet.dts;

    Held held;
    held.packet.reset(av_packet_alloc());
    if (!held.packet) return media::avError(AVERROR(ENOMEM), "Cannot read" + where());
    av_packet_move_ref(held.packet.get(), &packet);
    held.dts = toOutput(held.packet->dts);
    held.pts = toOutput(held.packet->pts);
    if (kind_ == CopyKind::video) {
        if (held.packet->duration > 0) {
            held.duration = av_rescale_q(held.packet->duration, stream.time_base, outputTimeBase_);
        } else if (stream.avg_frame_rate.num > 0 && stream.avg_frame_rate.den > 0) {
            held.duration = av_rescale_q(1, av_inv_q(stream.avg_frame_rate), outputTimeBase_);
        }
    } else {
        const int samples = av_get_audio_frame_duration2(
            const_cast<AVCodecParameters*>(&parameters_), held.packet->size);
        held.duration =
            samples > 0 ? av_rescale_q(samples, {1, parameters_.sample_rate}, outputTimeBase_)
                        : av_rescale_q(held.packet->duration, stream.time_base, outputTimeBase_);
        if (held.duration <= 0)
            return common::Error{"An audio packet of " + source_->path().string() +
                                 " has no length."};
    }
    return std::optional{std::move(held)};
}

common::Status TrackCopier::take(Held held) {
    if (kind_ == CopyKind::video) {
        // Decode times never fall, and no frame presents before it decodes: past this
        // packet nothing presents before the out point.
        if (held.dts >= runOut_) {
            finishRun();
            return common::success();
        }
        const bool keyframe = held.packet->flags & AV_PKT_FLAG_KEY;
        if (!started_) {
            if (keyframe && held.pts <= runIn_) {
                held_.clear();
            } else if (held_.empty() && !keyframe) {
                return common::success();
            }
        }
        const bool wanted =
            !(held.packet->flags & AV_PKT_FLAG_DISCARD) && held.pts >= runIn_ && held.pts < runOut_;
        if (!wanted) {
            // Kept until a wanted frame follows: it may be one of its references. What is
            // still held when the run ends follows the last wanted frame and is not needed.
            held_.push_back(std::move(held));
            return common::success();
        }
    } else {
        if (held.pts >= runOut_) {
            finishRun();
            return common::success();
        }
        if (held.pts + held.duration <= runIn_) {
            if (kind_ == CopyKind::framedAudio) {
                held_.push_back(std::move(held));
                while (held_.size() > prerollPackets_) held_.pop_front();
            }
            return common::success();
        }
    }
    while (!held_.empty()) {
        Held earlier = std::move(held_.front());
        held_.pop_front();
        if (auto emitted = emit(std::move(earlier), false); !emitted) return emitted;
    }
    return emit(std::move(held), true);
}

common::Status TrackCopier::emit(Held held, bool wanted) {
    AVPacket& packet = *held.packet;
    const auto where = [&] { return " of " + source_->path().string(); };
    std::int64_t outputDts = 0;
    std::int64_t outputPts = 0;
    if (!anchored_) {
        anchored_ = true;
        anchorSource_ = held.dts;
        anchorOutput_ = nextBase_;
        cursor_ = nextBase_;
        if (kind_ == CopyKind::video) mediaStart_ = held.pts;
    }
    if (kind_ == CopyKind::video) {
        if ((packet.flags & AV_PKT_FLAG_DISCARD) && held.pts >= runIn_ && held.pts < runOut_) {
            return common::Error{"The video" + where() +
                                 " hides frames inside the range with its own edit list, so "
                                 "they cannot be copied exactly."};
        }
        outputDts = anchorOutput_ + (held.dts - anchorSource_);
        outputPts = anchorOutput_ + (held.pts - anchorSource_);
        if (outputPts < outputDts) {
            return common::Error{"A frame" + where() +
                                 " presents before it is decoded, so it cannot be copied."};
        }
        maxOutputEnd_ =
            std::max(maxOutputEnd_, outputPts + std::max<std::int64_t>(held.duration, 1));
        if (wanted) {
            mediaEnd_ = std::max(mediaEnd_, held.duration > 0 ? held.pts + held.duration : runOut_);
        }
    } else {
        if (kind_ == CopyKind::pcmAudio) {
            // Cut to the exact samples of the range; a PCM packet is whole samples back to back.
            const std::int64_t keepStart = std::max(held.pts, runIn_);
            const std::int64_t keepEnd = std::min(held.pts + held.duration, runOut_);
            const std::int64_t sampleBytes = parameters_.block_align;
            const std::int64_t available = packet.size / sampleBytes;
            const std::int64_t skip = std::min(keepStart - held.pts, available);
            const std::int64_t keep = std::min(keepEnd - keepStart, available - skip);
            packet.data += skip * sampleBytes;
            packet.size = static_cast<int>(keep * sampleBytes);
            held.pts = keepStart;
            held.duration = keep;
        }
        outputDts = outputPts = cursor_;
        cursor_ += held.duration;
        if (wanted && !started_) {
            anchorSource_ = held.pts;
            anchorOutput_ = outputPts;
            mediaStart_ = held.pts;
        }
        if (wanted) mediaEnd_ = held.pts + held.duration;
    }
    if (outputDts <= lastOutputDts_) {
        return common::Error{"The packets" + where() +
                             " would be written out of decode order, so they cannot be copied."};
    }
    lastOutputDts_ = outputDts;
    if (wanted) started_ = true;

    packet.dts = outputDts;
    packet.pts = outputPts;
    packet.duration = held.duration;
    packet.pos = -1;
    packet.flags &= ~AV_PKT_FLAG_DISCARD;
    // Skip counts and the like describe the source's timeline; the edit list replaces them.
    av_packet_free_side_data(&packet);

    const double unit = av_q2d(outputTimeBase_);
    const double runSeconds = (runOut_ - runIn_) * unit;
    copiedSeconds_ = finishedSeconds_ + std::clamp((held.pts - runIn_) * unit, 0.0, runSeconds);
    const double timelineSeconds =
        run_->parts.front().timelineStart.seconds() + (held.dts - runIn_) * unit;
    ready_.push_back({std::move(held.packet), timelineSeconds});
    return common::success();
}

void TrackCopier::finishRun() {
    held_.clear();
    firstHeld_.reset();
    if (anchored_) {
        nextBase_ =
            kind_ == CopyKind::video ? std::max(lastOutputDts_ + 1, maxOutputEnd_) : cursor_;
    }
    const auto ticks = [&](std::int64_t output) {
        return common::MediaTime::fromTimeBase(output, outputTimeBase_.num, outputTimeBase_.den);
    };
    for (const Part& part : run_->parts) {
        const std::int64_t in = toOutput(part.sourceStart);
        const std::int64_t out = toOutput(part.sourceStart + part.duration);
        const std::int64_t shownStart = std::max(in, mediaStart_);
        const std::int64_t shownEnd = std::min(out, mediaEnd_);
        if (!started_ || shownEnd <= shownStart) {
            addEdit({-1, part.duration});
            continue;
        }
        const common::MediaTime lead = std::min(ticks(shownStart - in), part.duration);
        const common::MediaTime end = std::clamp(ticks(shownEnd - in), lead, part.duration);
        addEdit({-1, lead});
        addEdit({anchorOutput_ + (shownStart - anchorSource_), end - lead});
        addEdit({-1, part.duration - end});
    }
    for (const Part& part : run_->parts) finishedSeconds_ += part.duration.seconds();
    copiedSeconds_ = finishedSeconds_;
    run_ = nullptr;
}

void TrackCopier::addEdit(TrackEdit edit) {
    if (edit.duration.ticks <= 0) return;
    if (!edits_.empty()) {
        TrackEdit& last = edits_.back();
        if (edit.mediaTime < 0 && last.mediaTime < 0) {
            last.duration = last.duration + edit.duration;
            return;
        }
        // The new edit starts where the last one's media ends, exactly: one edit shows both.
        using common::detail::Int128;
        if (edit.mediaTime >= 0 && last.mediaTime >= 0 &&
            static_cast<Int128>(edit.mediaTime - last.mediaTime) *
                    common::MediaTime::kTicksPerSecond * outputTimeBase_.num ==
                static_cast<Int128>(last.duration.ticks) * outputTimeBase_.den) {
            last.duration = last.duration + edit.duration;
            return;
        }
    }
    edits_.push_back(edit);
}

}  // namespace exporting
