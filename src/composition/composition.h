#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "common/media_time.h"
#include "common/uuid.h"
#include "model/clip.h"

namespace composition {

enum class MediaKind { video = 1, audio };

// What fills a stretch of a track: a range of one stream of one file.
struct SegmentSource {
    std::filesystem::path url;
    int streamIndex = -1;               // the first stream of the track's kind in the file
    common::MediaTimeRange assetRange;  // source time
    double rate = 1.0;                  // source seconds per composition second; 1 when unscaled
    int rotationDegrees = 0;  // clockwise; applied by the renderer to keep pictures upright
    common::Uuid clipID;

    friend bool operator==(const SegmentSource&, const SegmentSource&) = default;
};

// One stretch of a track. Without a source it is an empty range: black or silence.
struct Segment {
    common::MediaTime start;     // on the composition timeline
    common::MediaTime duration;  // on the composition timeline, after any scaling
    std::optional<SegmentSource> source;

    common::MediaTime end() const { return start + duration; }
    friend bool operator==(const Segment&, const Segment&) = default;
};

// Segments in time order, each starting where the one before ends; the first at 0.
struct Track {
    MediaKind kind = MediaKind::video;
    std::vector<Segment> segments;

    common::MediaTime duration() const {
        return segments.empty() ? common::MediaTime{} : segments.back().end();
    }
    friend bool operator==(const Track&, const Track&) = default;
};

// A timeline of source ranges placed by reference: at most one video track (the
// picture, top clip winning) and one audio track per lane (all sounding together).
// Nothing is cropped here. A plain value: each user builds its own.
struct Composition {
    std::optional<Track> video;
    std::vector<Track> audio;

    common::MediaTime duration() const;
    friend bool operator==(const Composition&, const Composition&) = default;
};

// Answers the index of the first stream of `kind` in `file`, or none when the file
// can't be opened or has no such stream. Called once per slice; may do I/O.
using StreamLookup =
    std::function<std::optional<int>(const std::filesystem::path& file, MediaKind kind)>;

// Lays the sliced picture and the audio lanes onto tracks. A slice whose stream can't
// be found costs only itself: the next slice still starts at its own time, the hole
// filled with an empty range. Space before a track's first slice is an empty range too.
Composition buildComposition(const std::vector<model::Clip>& clips, const StreamLookup& lookup);

}  // namespace composition
