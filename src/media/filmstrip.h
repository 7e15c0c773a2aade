#pragma once

#include <filesystem>
#include <vector>

#include "model/image.h"

namespace media {

// A filmstrip asks for one frame per kFilmstripSecondsPerFrame of media, between the fewest
// and most frames; each frame may come from within kFilmstripToleranceSeconds of its time
// and is fitted inside kFilmstripFrameMaxWidth × kFilmstripFrameMaxHeight.
inline constexpr double kFilmstripSecondsPerFrame = 1.5;
inline constexpr int kFilmstripFewestFrames = 3;
inline constexpr int kFilmstripMostFrames = 24;
inline constexpr double kFilmstripToleranceSeconds = 0.25;
inline constexpr int kFilmstripFrameMaxWidth = 160;
inline constexpr int kFilmstripFrameMaxHeight = 90;

// The times, in seconds from the start of the video, that a filmstrip of a file
// `fullDurationSeconds` long asks for: Int(duration / 1.5) held to 3...24 of them, each in
// the middle of its own equal stretch of the duration and rounded to 1/600 s. Empty when
// the duration is not finite or not above 0.
std::vector<double> filmstripTimes(double fullDurationSeconds);

// The frames of the first video stream of `url` at filmstripTimes(fullDurationSeconds), in
// that order: each is a frame showing within kFilmstripToleranceSeconds of its time (a
// nearby keyframe will do), upright, fitted inside 160 × 90 in its display shape and never
// enlarged. A time that can't be served is skipped, so the list may be shorter than the
// times. Empty without video or on any failure. Decodes only the stretches it needs, never
// the whole of a long file. Blocks while it works; touches only its arguments, so it is safe
// on any thread.
std::vector<model::Image> generateFilmstrip(const std::filesystem::path& url,
                                            double fullDurationSeconds);

// One frame of a filmstrip and the time it was asked for, in seconds from the start of the
// video: one of filmstripTimes(fullDurationSeconds).
struct FilmstripFrame {
    double seconds = 0;
    model::Image image;
};

// generateFilmstrip with each frame's time, for callers that must tell which times were
// skipped.
std::vector<FilmstripFrame> generateFilmstripFrames(const std::filesystem::path& url,
                                                    double fullDurationSeconds);

}  // namespace media
