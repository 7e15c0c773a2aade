#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "common/media_time.h"
#include "common/result.h"
#include "common/uuid.h"
#include "composition/composition.h"
#include "composition/picture_converter.h"
#include "composition/video_source.h"
#include "media/ff_ptr.h"

namespace composition {

// Which part of the composition a rendered picture shows.
struct FrameOrigin {
    std::size_t segmentIndex = 0;  // in the composition's video track
    common::Uuid clipID;
    // When the decoded frame shown starts, counted from the movie's origin (see
    // media::movieOrigin), in sourceTimeBase units.
    std::int64_t sourceTimestamp = 0;
    AVRational sourceTimeBase{0, 1};
};

// One picture of the composition. Its buffers may be shared with the renderer's caches:
// call av_frame_make_writable before writing into them. pts is the time asked for, in the
// time base asked in (also set as the frame's time_base).
struct RenderedFrame {
    media::FramePtr picture;            // null where black, when asked unconverted
    std::optional<FrameOrigin> origin;  // none where black
};

// Renders the video track of a Composition: at composition time t, the last frame of the
// segment's source whose presentation time is at or before the source time t maps to
// (frame-exact, no tolerance), turned upright, at the source's stored size (width and
// height swapped for a quarter turn); black in empty ranges, past the track's end and
// before a source's track starts on the movie's clock.
// Rising times decode forward on one open decoder per file, also across segments of one
// file; a time behind or far ahead seeks to the keyframe at or before and decodes on,
// dropping the frames between unconverted. Owned and used by one thread at a time.
class VideoRenderer {
  public:
    explicit VideoRenderer(Composition composition);

    // The picture at `time`, a count of `timeBase` units from the composition's start,
    // in the decoder's own pixel format: for a caller that scales once itself. Fails when
    // a source can no longer be opened or read.
    common::Result<RenderedFrame> uprightFrameAt(std::int64_t time, AVRational timeBase);
    common::Result<RenderedFrame> uprightFrameAt(common::MediaTime time) {
        return uprightFrameAt(time.ticks, {1, common::MediaTime::kTicksPerSecond});
    }

    // The picture at `time` converted and stretched to `format`; black pictures too.
    common::Result<RenderedFrame> frameAt(std::int64_t time, AVRational timeBase,
                                          const PictureFormat& format);
    common::Result<RenderedFrame> frameAt(common::MediaTime time, const PictureFormat& format) {
        return frameAt(time.ticks, {1, common::MediaTime::kTicksPerSecond}, format);
    }

    const Composition& composition() const { return composition_; }

    // The files this renderer holds open, handed to a renderer that follows it on the same
    // files: that one then decodes on from where this one stopped, without opening and
    // seeking anew. This renderer opens again whatever it is asked for next.
    std::vector<VideoSource> releaseSources();
    // Takes open files as its own; only before it has rendered anything.
    void adoptSources(std::vector<VideoSource> sources);

  private:
    // A picture kept for the next request of the same frame.
    struct Kept {
        std::uint64_t serial = 0;  // of the decoded frame; 0 for black
        int rotationDegrees = 0;
        PictureFormat format;  // AV_PIX_FMT_NONE: not converted
        media::FramePtr picture;
    };

    // The upright picture, or a null one for black; the frame's serial in `serial`.
    common::Result<RenderedFrame> render(std::int64_t time, AVRational timeBase,
                                         std::uint64_t& serial);
    common::Result<VideoSource*> sourceFor(const SegmentSource& source);

    Composition composition_;
    std::vector<VideoSource> sources_;  // most recently used first
    PictureConverter widener_;
    PictureConverter converter_;
    Kept upright_;
    Kept converted_;
};

}  // namespace composition
