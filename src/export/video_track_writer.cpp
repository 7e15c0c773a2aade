// The video half of a smart cut. Every range is planned before anything is written: a
// first pass reads the packet times near the range's cuts, takes those between from the
// demuxer's index where it has them (no picture data is decoded), and planCut decides which
// groups of pictures are copied, so that copying reads each packet once. The copied pictures keep
// their decode distance to their presentation, so the whole track is shifted by the largest such
// distance, and re-encoded pictures (which have no B-frames) decode that much before they
// show. The second pass seeks to each piece again and copies or decodes and re-encodes it.

#include "export/video_track_writer.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "media/av_error.h"
#include "media/media_input.h"

namespace exporting {

namespace {

// A seek lands on a keyframe at or before the time asked for in decode order; with
// B-frames it may still present after the in point, so the search steps back a few times.
constexpr int kSeekAttempts = 10;

// Copied frames are handed on this many at a time.
constexpr std::size_t kCopyBatch = 32;

// Reading on from where the last piece stopped beats a seek for a short way.
constexpr std::size_t kReadAheadFrames = 64;

CodedFrame codedFrame(const AVPacket& packet) {
    return {packet.dts, packet.pts, (packet.flags & AV_PKT_FLAG_KEY) != 0,
            (packet.flags & AV_PKT_FLAG_DISCARD) != 0};
}

std::string seconds(double value) {
    std::string text = std::to_string(value);
    return text.substr(0, text.find('.') + 4) + " s";
}

}  // namespace

VideoTrackWriter::VideoTrackWriter(const AVCodecParameters& parameters, AVRational outputTimeBase)
    : parameters_(parameters), outputTimeBase_(outputTimeBase), framing_(nalFraming(parameters)) {}

std::int64_t VideoTrackWriter::toOutput(common::MediaTime time) const {
    return time.toTimeBase(outputTimeBase_.num, outputTimeBase_.den);
}

std::int64_t VideoTrackWriter::toOutput(const Range& range, std::int64_t sourceTime) const {
    return toOutput(range.timelineStart) + delay_ +
           av_rescale_q(sourceTime - range.cut.anchor, range.sourceTimeBase, outputTimeBase_);
}

std::int64_t VideoTrackWriter::shownAt(const Range& range, std::int64_t pts) const {
    return std::max(toOutput(range, pts), toOutput(range.timelineStart) + delay_);
}

common::Result<VideoTrackWriter> VideoTrackWriter::plan(const composition::Track& track,
                                                        const AVCodecParameters& parameters,
                                                        AVRational outputTimeBase) {
    VideoTrackWriter writer(parameters, outputTimeBase);
    for (const auto& segment : track.segments) {
        if (segment.duration.ticks <= 0) continue;
        writer.totalSeconds_ += segment.duration.seconds();
        if (!segment.source) {
            writer.items_.push_back({segment.start, segment.duration, std::nullopt});
            continue;
        }
        const auto& source = *segment.source;
        if (!writer.items_.empty() && writer.items_.back().range) {
            Range& last = writer.ranges_[*writer.items_.back().range];
            // A split clip put back together is one range, with no cut where it was split.
            if (last.file == source.url && last.streamIndex == source.streamIndex &&
                last.sourceStart + last.duration == source.assetRange.start) {
                last.duration = last.duration + segment.duration;
                writer.items_.back().duration = last.duration;
                continue;
            }
        }
        writer.ranges_.push_back({source.url,
                                  source.streamIndex,
                                  segment.start,
                                  segment.duration,
                                  source.assetRange.start,
                                  0,
                                  {0, 1},
                                  {},
                                  {},
                                  0});
        writer.items_.push_back({segment.start, segment.duration, writer.ranges_.size() - 1});
    }
    bool rateKnown = false;
    for (Range& range : writer.ranges_) {
        if (auto scanned = writer.scan(range, true); !scanned) return scanned.error();
        if (!rateKnown) {
            const AVRational rate = writer.source_->frameRate();
            if (rate.num > 0) {
                writer.frameRate_ = rate;
                rateKnown = true;
            }
        }
        const std::int64_t origin = writer.source_->origin();
        const auto toSource = [&](common::MediaTime t) {
            return t.toTimeBase(range.sourceTimeBase.num, range.sourceTimeBase.den) + origin;
        };
        const std::int64_t in = toSource(range.sourceStart);
        const std::int64_t out = toSource(range.sourceStart + range.duration);
        range.cut = planCut(range.frames, in, out);
        if (!exactWhereUsed(range)) {
            if (auto scanned = writer.scan(range, false); !scanned) return scanned.error();
            range.cut = planCut(range.frames, in, out);
        }
        range.shownBelow = out - (in - range.cut.anchor);
        writer.shownCount_ += range.cut.shownCount;
        writer.reencodedCount_ += range.cut.reencodedCount;
        if (range.cut.shownFrom > range.cut.anchor) {
            const auto lead =
                writer.blackFrames(0, av_rescale_q(range.cut.shownFrom - range.cut.anchor,
                                                   range.sourceTimeBase, outputTimeBase));
            writer.shownCount_ += lead;
            writer.reencodedCount_ += lead;
        }
        // The copied groups keep their keyframes' decode delay; the track takes the largest.
        for (const auto& piece : range.cut.pieces) {
            if (piece.kind != CutPiece::Kind::copy) continue;
            const CodedFrame& key = range.frames[piece.frames.front()];
            writer.delay_ =
                std::max(writer.delay_,
                         av_rescale_q(key.pts - key.dts, range.sourceTimeBase, outputTimeBase));
        }
    }
    for (const Item& item : writer.items_) {
        if (item.range && !writer.ranges_[*item.range].cut.pieces.empty()) continue;
        const auto black = writer.blackFrames(writer.toOutput(item.start),
                                              writer.toOutput(item.start + item.duration));
        writer.shownCount_ += black;
        writer.reencodedCount_ += black;
    }
    writer.source_.reset();
    return writer;
}

// Whether the frames a plan re-encodes, and the keyframes its copies start at, have their
// presentation times read from packets rather than guessed from the index.
bool VideoTrackWriter::exactWhereUsed(const Range& range) {
    for (const auto& piece : range.cut.pieces) {
        if (piece.kind == CutPiece::Kind::copy) {
            if (!range.frames[piece.frames.front()].ptsKnown) return false;
            continue;
        }
        for (std::size_t i : piece.frames)
            if (!range.frames[i].ptsKnown) return false;
    }
    return true;
}

std::size_t VideoTrackWriter::blackFrames(std::int64_t start, std::int64_t end) const {
    std::size_t count = 0;
    while (start + av_rescale_q(static_cast<std::int64_t>(count), av_inv_q(frameRate_),
                                outputTimeBase_) <
           end)
        ++count;
    return count;
}

common::Status VideoTrackWriter::openSource(const Range& range) {
    if (source_ && source_->path() == range.file && source_->stream().index == range.streamIndex)
        return common::success();
    source_.reset();
    positioned_ = false;
    auto opened = SourceStream::open(range.file, range.streamIndex);
    if (!opened) return opened.error();
    source_.emplace(std::move(opened).value());
    return common::success();
}

common::Status VideoTrackWriter::scan(Range& range, bool fromIndex) {
    if (auto opened = openSource(range); !opened) return opened;
    const AVStream& stream = source_->stream();
    range.sourceTimeBase = stream.time_base;
    const std::int64_t origin = source_->origin();
    const auto toSource = [&](common::MediaTime t) {
        return t.toTimeBase(stream.time_base.num, stream.time_base.den) + origin;
    };
    const std::int64_t in = toSource(range.sourceStart);
    const std::int64_t out = toSource(range.sourceStart + range.duration);
    const std::int64_t streamStart = stream.start_time != AV_NOPTS_VALUE ? stream.start_time : 0;

    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot read " + range.file.string());
    std::int64_t target = in;
    std::int64_t step = av_rescale_q(1, {1, 1}, stream.time_base);
    std::optional<std::int64_t> landedAt;
    for (int attempt = 0;; ++attempt) {
        range.frames.clear();
        if (auto sought = source_->seek(target); !sought) return sought;
        while (true) {
            auto more = readFrame(range, *packet);
            if (!more) return more.error();
            if (!*more) break;
            if (range.frames.empty() && !(packet->flags & AV_PKT_FLAG_KEY)) continue;
            range.frames.push_back(codedFrame(*packet));
            break;
        }
        const bool lastTry = attempt == kSeekAttempts || target < streamStart;
        if (!range.frames.empty() && (range.frames.front().pts <= in || lastTry)) break;
        if (lastTry) break;
        if (range.frames.empty() || (landedAt && range.frames.front().dts >= *landedAt)) {
            target -= step;
            step *= 2;
        } else {
            landedAt = range.frames.front().dts;
            target = std::min(range.frames.front().dts, range.frames.front().pts) - 1;
        }
    }
    range.seekTarget = target;
    positioned_ = false;
    if (range.frames.empty()) return common::success();
    if (fromIndex) {
        auto skipped = readAroundCuts(range, in, out, *packet);
        if (!skipped) return skipped.error();
        if (!*skipped) return scan(range, false);
    }
    // Past a keyframe decoded at or after the out point nothing more can show in the range.
    while (true) {
        auto more = readFrame(range, *packet);
        if (!more) return more.error();
        if (!*more) break;
        range.frames.push_back(codedFrame(*packet));
        if (range.frames.back().keyframe && packet->dts >= out) break;
    }
    return common::success();
}

// The packets between the cuts are copied whole, so where the demuxer's index lists every
// packet of the stream their decode times and flags are taken from it, and packets are read
// only from the first frame to the end of the first group that starts at or after the in
// point, and from two groups before the out point on. False, and nothing kept, when the
// index cannot stand in for the packets.
common::Result<bool> VideoTrackWriter::readAroundCuts(Range& range, std::int64_t in,
                                                      std::int64_t out, AVPacket& packet) {
    // The index calls take a mutable stream but do not change it.
    auto& stream = const_cast<AVStream&>(source_->stream());
    const int count = avformat_index_get_entries_count(&stream);
    if (count == 0 || stream.nb_frames != count) return false;
    const auto entry = [&](int i) { return avformat_index_get_entry(&stream, i); };
    const auto isKey = [&](int i) { return (entry(i)->flags & AVINDEX_KEYFRAME) != 0; };
    const int first = av_index_search_timestamp(&stream, range.frames.front().dts,
                                                AVSEEK_FLAG_ANY | AVSEEK_FLAG_BACKWARD);
    if (first < 0 || entry(first)->timestamp != range.frames.front().dts) return false;
    const auto nextKey = [&](int i) {
        for (++i; i < count && !isKey(i); ++i) {
        }
        return i;
    };
    int inKey = nextKey(first);
    while (inKey < count && entry(inKey)->timestamp < in) inKey = nextKey(inKey);
    if (inKey >= count) return false;
    const int headEnd = nextKey(inKey);
    int outKey = headEnd;
    while (outKey < count && entry(outKey)->timestamp < out) outKey = nextKey(outKey);
    const auto keyBefore = [&](int i) {
        for (--i; i > headEnd && !isKey(i); --i) {
        }
        return i;
    };
    const int tailStart = keyBefore(keyBefore(outKey));
    if (tailStart <= headEnd) return false;

    for (int i = first + 1; i < headEnd; ++i) {
        auto more = readFrame(range, packet);
        if (!more) return more.error();
        if (!*more || packet.dts != entry(i)->timestamp) return false;
        range.frames.push_back(codedFrame(packet));
    }
    for (int i = headEnd; i < tailStart; ++i) {
        const AVIndexEntry& e = *entry(i);
        range.frames.push_back({e.timestamp, e.timestamp, (e.flags & AVINDEX_KEYFRAME) != 0,
                                (e.flags & AVINDEX_DISCARD_FRAME) != 0, false});
    }
    if (auto sought = source_->seek(entry(tailStart)->timestamp); !sought) return sought.error();
    auto more = readFrame(range, packet);
    if (!more) return more.error();
    if (!*more || packet.dts != entry(tailStart)->timestamp) return false;
    range.frames.push_back(codedFrame(packet));
    return true;
}

common::Result<bool> VideoTrackWriter::readFrame(const Range& range, AVPacket& packet) {
    auto more = source_->read(packet);
    if (!more || !*more) return more;
    const AVStream& stream = source_->stream();
    const auto where = [&] {
        const std::int64_t time = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
        const double at =
            time == AV_NOPTS_VALUE ? 0 : av_q2d(stream.time_base) * (time - source_->origin());
        return " near " + seconds(at) + " of " + range.file.string();
    };
    if (packet.dts == AV_NOPTS_VALUE)
        return common::Error{"A packet" + where() + " has no decode time, so it cannot be placed."};
    if (packet.pts == AV_NOPTS_VALUE) {
        return common::Error{"A packet" + where() +
                             " has no presentation time, so it cannot be placed."};
    }
    if (packet.pts < packet.dts) {
        return common::Error{"A frame" + where() +
                             " presents before it is decoded, so it cannot be copied."};
    }
    return true;
}

common::Result<media::PacketPtr> VideoTrackWriter::take(const Range& range) {
    if (pending_) {
        ++position_;
        return std::move(pending_);
    }
    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot read " + range.file.string());
    auto more = readFrame(range, *packet);
    if (!more) return more.error();
    if (!*more || position_ >= range.frames.size() || packet->dts != range.frames[position_].dts) {
        return common::Error{"The packets of " + range.file.string() +
                             " come back differently on a second reading."};
    }
    ++position_;
    return packet;
}

common::Status VideoTrackWriter::moveTo(const Range& range, std::size_t index) {
    const auto skipTo = [&]() -> common::Status {
        while (position_ < index) {
            auto skipped = take(range);
            if (!skipped) return skipped.error();
        }
        return common::success();
    };
    if (positioned_ && position_ <= index && index - position_ <= kReadAheadFrames) return skipTo();
    pending_.reset();
    positioned_ = false;
    media::PacketPtr packet{av_packet_alloc()};
    if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot read " + range.file.string());

    // A seek to the keyframe itself, which lands on it or on an earlier keyframe of the range.
    const CodedFrame& wanted = range.frames[index];
    if (wanted.keyframe && source_->seek(wanted.pts)) {
        while (true) {
            auto more = readFrame(range, *packet);
            if (!more) return more.error();
            if (!*more) break;
            if (!(packet->flags & AV_PKT_FLAG_KEY)) continue;
            const auto end = range.frames.begin() + static_cast<std::ptrdiff_t>(index) + 1;
            const auto found = std::find_if(range.frames.begin(), end, [&](const CodedFrame& f) {
                return f.dts == packet->dts;
            });
            if (found == end) break;
            position_ = static_cast<std::size_t>(found - range.frames.begin());
            pending_ = std::move(packet);
            positioned_ = true;
            return skipTo();
        }
    }
    // Else from where the range was first read, which lands on its first frame.
    if (auto sought = source_->seek(range.seekTarget); !sought) return sought;
    packet.reset(av_packet_alloc());
    if (!packet) return media::avError(AVERROR(ENOMEM), "Cannot read " + range.file.string());
    while (true) {
        auto more = readFrame(range, *packet);
        if (!more) return more.error();
        if (!*more)
            return common::Error{"Cannot find a range of " + range.file.string() + " again."};
        if (packet->flags & AV_PKT_FLAG_KEY) break;
    }
    if (packet->dts != range.frames.front().dts)
        return common::Error{"Cannot find a range of " + range.file.string() + " again."};
    position_ = 0;
    pending_ = std::move(packet);
    positioned_ = true;
    return skipTo();
}

common::Result<std::optional<TrackPacket>> VideoTrackWriter::next() {
    while (ready_.empty()) {
        if (range_) {
            if (auto written = continueRange(); !written) return written.error();
            continue;
        }
        if (nextItem_ == items_.size()) return std::optional<TrackPacket>{};
        const Item& item = items_[nextItem_++];
        if (item.range && !ranges_[*item.range].cut.pieces.empty()) {
            if (auto started = startRange(ranges_[*item.range]); !started) return started.error();
            continue;
        }
        if (auto written = writeGap(item); !written) return written.error();
        doneSeconds_ += item.duration.seconds();
    }
    TrackPacket packet = std::move(ready_.front());
    ready_.pop_front();
    return std::optional{std::move(packet)};
}

common::Status VideoTrackWriter::push(media::PacketPtr packet, bool encoded) {
    if (packet->pts < packet->dts || packet->dts <= lastDts_) {
        return common::Error{
            "The pictures of the ranges cannot be put in one decode order, so they cannot be "
            "copied."};
    }
    if (lastDts_ == INT64_MIN) firstDts_ = packet->dts;
    lastDts_ = packet->dts;
    if (encoded) foreignBefore_ = true;
    packet->pos = -1;
    packet->flags &= ~AV_PKT_FLAG_DISCARD;
    av_packet_free_side_data(packet.get());
    const double at = static_cast<double>(packet->dts - delay_) * av_q2d(outputTimeBase_);
    ready_.push_back({std::move(packet), at});
    return common::success();
}

common::Status VideoTrackWriter::writeGap(const Item& item) {
    return writeBlack(toOutput(item.start) + delay_, toOutput(item.start + item.duration) + delay_);
}

common::Status VideoTrackWriter::writeBlack(std::int64_t start, std::int64_t end) {
    auto encoder = CutEncoder::open(parameters_, frameRate_);
    if (!encoder) return encoder.error();
    auto black = encoder->blackFrame();
    if (!black) return black.error();
    std::map<std::int64_t, std::int64_t> durations;
    for (std::int64_t k = 0;; ++k) {
        const std::int64_t at = start + av_rescale_q(k, av_inv_q(frameRate_), outputTimeBase_);
        if (at >= end) break;
        const std::int64_t after =
            std::min(end, start + av_rescale_q(k + 1, av_inv_q(frameRate_), outputTimeBase_));
        durations[at] = after - at;
    }
    std::vector<media::PacketPtr> packets;
    for (const auto& [at, duration] : durations) {
        if (auto writable = av_frame_make_writable(black->get()); writable < 0)
            return media::avError(writable, "Cannot make a black picture");
        (*black)->pts = at;
        if (auto encoded = encoder->encode(black->get(), packets); !encoded) return encoded;
    }
    return pushEncoded(*encoder, packets, durations);
}

common::Status VideoTrackWriter::pushEncoded(CutEncoder& encoder,
                                             std::vector<media::PacketPtr>& packets,
                                             std::map<std::int64_t, std::int64_t>& durations) {
    if (auto drained = encoder.encode(nullptr, packets); !drained) return drained;
    for (auto& packet : packets) {
        packet->dts = std::max(lastDts_ + 1, packet->pts - delay_);
        packet->duration = durations[packet->pts];
        if (auto pushed = push(std::move(packet), true); !pushed) return pushed;
    }
    return common::success();
}

common::Status VideoTrackWriter::startRange(const Range& range) {
    if (auto opened = openSource(range); !opened) return opened;
    sourceParameterSets_ = inBandParameterSets(*source_->stream().codecpar, framing_);
    // Each shown frame lasts until the next one, the last until the range ends. Frames known
    // from the index are ordered by decode time; the muxer times samples by decode spacing
    // and keeps a packet's own duration only for the last, which is always read.
    std::vector<std::size_t> shown;
    for (const auto& piece : range.cut.pieces)
        shown.insert(shown.end(), piece.frames.begin(), piece.frames.end());
    std::sort(shown.begin(), shown.end(), [&](std::size_t a, std::size_t b) {
        return range.frames[a].pts < range.frames[b].pts;
    });
    durations_.assign(range.frames.size(), 0);
    const std::int64_t end = toOutput(range.timelineStart + range.duration) + delay_;
    for (std::size_t k = 0; k < shown.size(); ++k) {
        const std::int64_t at = shownAt(range, range.frames[shown[k]].pts);
        const std::int64_t after =
            k + 1 < shown.size() ? shownAt(range, range.frames[shown[k + 1]].pts) : end;
        durations_[shown[k]] = std::max<std::int64_t>(after - at, 1);
    }
    range_ = &range;
    piece_ = 0;
    copied_ = 0;
    const std::int64_t firstShown = shownAt(range, range.cut.shownFrom);
    const std::int64_t start = toOutput(range.timelineStart) + delay_;
    if (firstShown > start) return writeBlack(start, firstShown);
    return common::success();
}

// One step of the range being written: a re-encoded piece whole, or the next few frames of
// a copied one, so that what waits for the muxer stays small however long the range.
common::Status VideoTrackWriter::continueRange() {
    const Range& range = *range_;
    if (piece_ == range.cut.pieces.size()) {
        // The next range's pictures may come from another bitstream.
        foreignBefore_ = true;
        range_ = nullptr;
        doneSeconds_ += range.duration.seconds();
        return common::success();
    }
    const CutPiece& piece = range.cut.pieces[piece_];
    if (piece.kind == CutPiece::Kind::reencode) {
        ++piece_;
        return writeReencoded(range, piece);
    }
    if (copied_ == 0) {
        if (auto moved = moveTo(range, piece.frames.front()); !moved) return moved;
    }
    if (auto written = writeCopy(range, piece); !written) return written;
    if (copied_ == piece.frames.size()) {
        ++piece_;
        copied_ = 0;
    }
    return common::success();
}

common::Status VideoTrackWriter::writeCopy(const Range& range, const CutPiece& piece) {
    for (std::size_t batch = 0; batch < kCopyBatch && copied_ < piece.frames.size();) {
        const std::size_t index = position_;
        auto packet = take(range);
        if (!packet) return packet.error();
        if (index != piece.frames[copied_]) continue;  // a leading picture of the first group
        ++copied_;
        ++batch;
        AVPacket& p = **packet;
        const CodedFrame& frame = range.frames[index];
        if (!frame.ptsKnown && (p.pts < range.cut.shownFrom || p.pts >= range.shownBelow)) {
            return common::Error{"A frame of " + range.file.string() +
                                 " shows outside the group its decode time puts it in, so it "
                                 "cannot be copied."};
        }
        p.pts = shownAt(range, p.pts);
        // A keyframe shown from the range start was decoded a little earlier than the
        // in-point; it only has to follow what the range before left in decode order.
        p.dts = std::max(toOutput(range, frame.dts), lastDts_ + 1);
        p.duration = durations_[index];
        if (foreignBefore_ && framing_.nal) {
            // The decoder has been fed other parameter sets, or another sequence; this
            // keyframe brings its own and, unless an IDR, starts a new sequence.
            const std::span<const std::uint8_t> picture(p.data, static_cast<std::size_t>(p.size));
            std::vector<std::uint8_t> bytes = sourceParameterSets_;
            if (startsWithIdr(picture, framing_)) {
                bytes.insert(bytes.end(), picture.begin(), picture.end());
            } else {
                const auto spliced = spliceStart(picture, framing_);
                bytes.insert(bytes.end(), spliced.begin(), spliced.end());
            }
            media::PacketPtr joined{av_packet_alloc()};
            if (!joined || av_new_packet(joined.get(), static_cast<int>(bytes.size())) < 0)
                return media::avError(AVERROR(ENOMEM), "Cannot copy " + range.file.string());
            std::copy(bytes.begin(), bytes.end(), joined->data);
            av_packet_copy_props(joined.get(), &p);
            *packet = std::move(joined);
        }
        foreignBefore_ = false;
        if (auto pushed = push(std::move(*packet), false); !pushed) return pushed;
    }
    return common::success();
}

common::Status VideoTrackWriter::writeReencoded(const Range& range, const CutPiece& piece) {
    auto decoder = media::openDecoder(source_->format(), source_->stream(), 0);
    if (!decoder) return decoder.error();
    auto encoder = CutEncoder::open(*source_->stream().codecpar, frameRate_);
    if (!encoder) return encoder.error();
    std::map<std::int64_t, std::int64_t> wanted;  // source pts to output duration
    std::size_t lastIndex = 0;
    for (std::size_t i : piece.frames) {
        wanted[range.frames[i].pts] = durations_[i];
        lastIndex = std::max(lastIndex, i);
    }
    std::map<std::int64_t, std::int64_t> outputDurations;
    std::vector<media::PacketPtr> packets;
    std::size_t encoded = 0;
    media::FramePtr frame{av_frame_alloc()};
    if (!frame) return media::avError(AVERROR(ENOMEM), "Cannot decode " + range.file.string());
    const auto drain = [&]() -> common::Status {
        while (true) {
            const int rc = avcodec_receive_frame(decoder->get(), frame.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return common::success();
            if (rc < 0) return media::avError(rc, "Cannot decode " + range.file.string());
            const std::int64_t pts = frame->best_effort_timestamp != AV_NOPTS_VALUE
                                         ? frame->best_effort_timestamp
                                         : frame->pts;
            const auto found = wanted.find(pts);
            if (found == wanted.end()) continue;
            frame->pts = shownAt(range, pts);
            outputDurations[frame->pts] = found->second;
            ++encoded;
            if (auto done = encoder->encode(frame.get(), packets); !done) return done;
            av_frame_unref(frame.get());
        }
    };
    if (auto moved = moveTo(range, piece.decodeFrom); !moved) return moved;
    while (position_ <= lastIndex) {
        auto packet = take(range);
        if (!packet) return packet.error();
        if (int rc = avcodec_send_packet(decoder->get(), packet->get()); rc < 0)
            return media::avError(rc, "Cannot decode " + range.file.string());
        if (auto drained = drain(); !drained) return drained;
    }
    if (int rc = avcodec_send_packet(decoder->get(), nullptr); rc < 0)
        return media::avError(rc, "Cannot decode " + range.file.string());
    if (auto drained = drain(); !drained) return drained;
    if (encoded != piece.frames.size()) {
        return common::Error{"Some frames of " + range.file.string() +
                             " near a cut could not be decoded."};
    }
    return pushEncoded(*encoder, packets, outputDurations);
}

}  // namespace exporting
