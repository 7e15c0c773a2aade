#include "composition/video_renderer.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "composition/segment_clock.h"
#include "composition/upright_picture.h"
#include "media/av_error.h"

namespace composition {

namespace {

// Enough for a project that cuts back and forth between a few files without reopening
// them; each open decoder holds a handful of pictures.
constexpr std::size_t kMaxOpenSources = 4;

common::Result<media::FramePtr> shared(const AVFrame& picture, std::int64_t time,
                                       AVRational timeBase) {
    media::FramePtr copy{av_frame_clone(&picture)};
    if (!copy) return media::avError(AVERROR(ENOMEM), "Cannot share a picture");
    copy->pts = time;
    copy->time_base = timeBase;
    return copy;
}

// Whether the segment starting at `ticks` has begun by `time`.
bool startedBy(common::MediaTime ticks, ExactSeconds time) {
    return !earlier(time, exactSeconds(ticks));
}

}  // namespace

VideoRenderer::VideoRenderer(Composition composition) : composition_(std::move(composition)) {}

common::Result<VideoSource*> VideoRenderer::sourceFor(const SegmentSource& source) {
    auto found = std::find_if(sources_.begin(), sources_.end(), [&](const VideoSource& open) {
        return open.streamIndex() == source.streamIndex && open.file() == source.url;
    });
    if (found != sources_.end()) {
        std::rotate(sources_.begin(), found, found + 1);
        return &sources_.front();
    }
    auto opened = VideoSource::open(source.url, source.streamIndex);
    if (!opened) return opened.error();
    sources_.insert(sources_.begin(), std::move(opened.value()));
    if (sources_.size() > kMaxOpenSources) sources_.pop_back();
    return &sources_.front();
}

std::vector<VideoSource> VideoRenderer::releaseSources() {
    return std::exchange(sources_, {});
}

void VideoRenderer::adoptSources(std::vector<VideoSource> sources) {
    assert(sources_.empty());
    sources_ = std::move(sources);
    if (sources_.size() > kMaxOpenSources)
        sources_.erase(sources_.begin() + kMaxOpenSources, sources_.end());
}

common::Result<RenderedFrame> VideoRenderer::render(std::int64_t time, AVRational timeBase,
                                                    std::uint64_t& serial) {
    serial = 0;
    if (!composition_.video || time < 0) return RenderedFrame{};
    const std::vector<Segment>& segments = composition_.video->segments;
    const ExactSeconds at{static_cast<Int128>(time) * timeBase.num, timeBase.den};
    // The last segment that has begun by `at`.
    auto after = std::partition_point(segments.begin(), segments.end(),
                                      [&](const Segment& s) { return startedBy(s.start, at); });
    if (after == segments.begin()) return RenderedFrame{};
    const Segment& segment = *(after - 1);
    if (startedBy(segment.end(), at) || !segment.source) return RenderedFrame{};

    auto source = sourceFor(*segment.source);
    if (!source) return source.error();
    const AVRational sourceTimeBase = source.value()->timeBase();
    const std::int64_t limit =
        floorToTimeBase(sourceSecondsAt(segment, at), sourceTimeBase.num, sourceTimeBase.den);
    // A track that starts after the movie's origin (an empty edit first) shows nothing
    // until it starts, as players show it.
    if (limit < source.value()->firstTimestamp()) return RenderedFrame{};
    auto decoded = source.value()->frameAt(limit);
    if (!decoded) return decoded.error();
    const DecodedFrame& frame = *decoded.value();

    const int rotation = segment.source->rotationDegrees;
    if (!upright_.picture || upright_.serial != frame.serial ||
        upright_.rotationDegrees != rotation) {
        auto turned = uprightPicture(*frame.frame, rotation, widener_);
        if (!turned) return turned.error();
        upright_ = {frame.serial, rotation, {}, std::move(turned.value())};
    }
    serial = frame.serial;
    auto picture = shared(*upright_.picture, time, timeBase);
    if (!picture) return picture.error();
    return RenderedFrame{std::move(picture.value()),
                         FrameOrigin{static_cast<std::size_t>(after - 1 - segments.begin()),
                                     segment.source->clipID, frame.timestamp, sourceTimeBase}};
}

common::Result<RenderedFrame> VideoRenderer::uprightFrameAt(std::int64_t time,
                                                            AVRational timeBase) {
    std::uint64_t serial = 0;
    return render(time, timeBase, serial);
}

common::Result<RenderedFrame> VideoRenderer::frameAt(std::int64_t time, AVRational timeBase,
                                                     const PictureFormat& format) {
    std::uint64_t serial = 0;
    auto rendered = render(time, timeBase, serial);
    if (!rendered) return rendered.error();
    RenderedFrame& frame = rendered.value();
    const int rotation = frame.picture ? upright_.rotationDegrees : 0;
    if (!converted_.picture || converted_.serial != serial ||
        converted_.rotationDegrees != rotation || !(converted_.format == format)) {
        auto converted =
            frame.picture ? converter_.convert(*frame.picture, format) : blackPicture(format);
        if (!converted) return converted.error();
        converted_ = {serial, rotation, format, std::move(converted.value())};
    }
    auto picture = shared(*converted_.picture, time, timeBase);
    if (!picture) return picture.error();
    frame.picture = std::move(picture.value());
    return rendered;
}

}  // namespace composition
