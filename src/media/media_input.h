#pragma once

#include <filesystem>
#include <string>

#include "common/result.h"
#include "media/ff_ptr.h"

namespace media {

// How far openInput reads into a file. `decoded`: the first packets of every stream are
// decoded, so that each stream's parameters are complete (picture format, profile, the
// codec's own pixel shape). `listed`: only what the container's header says, which names
// every stream and its kind; a format that finds its streams only by reading packets (an
// MPEG transport stream) is read as for `decoded`.
enum class StreamDetail { decoded = 1, listed };

// Opens a media file for reading and reads enough of it to know its streams. FFmpeg's
// own logging is silenced for the process on first use: failures come back as Errors.
common::Result<InputFormatPtr> openInput(const std::filesystem::path& path,
                                         StreamDetail detail = StreamDetail::decoded);

// The first stream of `type` in file order, or null. Cover art (an attached picture)
// is not a video stream.
const AVStream* firstStream(const AVFormatContext& input, AVMediaType type);

// A decoder ready for the packets of `stream`, which belongs to `input`. `threads` is the
// decoder's thread count; 0 lets FFmpeg choose. Frames come out in `stream`'s time base.
common::Result<CodecContextPtr> openDecoder(const AVFormatContext& input, const AVStream& stream,
                                            int threads);

// Where a source's time 0 lies, in `stream`'s time base: the earliest start of any audio
// or video stream of the file, which is where players start the movie. Every road measures
// source times from it, so picture and sound keep their offset and a track that begins
// late (an empty edit first) begins late in the output too.
std::int64_t movieOrigin(const AVFormatContext& input, const AVStream& stream);

// False when the first packets of `stream` are stamped far apart from their own durations,
// as in an AVI whose sound header states a rate a hundred times the real one: players then
// play its samples one after another from the start, and their times must be counted from
// the samples too. True when nothing tells. Reads on from where `input` stands.
bool timestampsFollowDurations(AVFormatContext& input, const AVStream& stream);

// The width the stream's picture is shown at: its stored width stretched by the pixel shape
// that the container or the codec gives (anamorphic DV and HDV, some phones' slow motion);
// the stored width for square pixels. The height is always the stored one.
double displayWidth(const AVStream& stream);

// How far the stream's picture must be turned for display: 0, 90, 180 or 270 degrees
// clockwise. Flips in the display matrix are ignored.
int displayRotationDegrees(const AVStream& stream);

// The longest track, as a clip's full duration is measured. Matroska and WebM seldom
// store per-track lengths, so a track without one counts as the whole file. 0 when no
// length is known.
double fileDurationSeconds(const AVFormatContext& input);

// fileDurationSeconds, except where the container gives no length (Matroska written to a
// pipe, a fragmented movie whose track lengths are all ones) or only a guess from its bit
// rate (raw ADTS or MP3 without a header): then every
// packet is read to find where the last one ends, from the movie's origin, and reading goes
// back to the start.
double measuredDurationSeconds(AVFormatContext& input);

// The rate at which `stream`'s frames come. Containers that count their frames (QuickTime,
// MP4, AVI) give it exactly, from their index where it spans them all; for the others (Matroska,
// MPEG streams) the stated rate is a guess from millisecond block durations or field timing, so the
// first frames' times are measured instead, and reading goes back to the start. {0, 1} when nothing
// tells.
AVRational measuredFrameRate(AVFormatContext& input, const AVStream& stream);

// Where a coded sound frame that its container times at `pts` starts when the frames before
// it play one after another, as players play them. A container may time a frame less than a
// frame off its count (a phone's first frame said to last 1245 of its 1024 samples), which is
// no hole in the sound. `pts` itself where the index does not list every frame, frames vary
// in length, or the frame is a whole frame or more off.
std::int64_t countedSoundTime(AVStream& stream, std::int64_t pts);

// Frames per second as a 32-bit float widened to double, which is how a clip's nominal rate
// is reported; 0 for {0, 1}.
double reportedFrameRate(AVRational rate);

// The path `input` was opened from, for messages.
std::string sourceName(const AVFormatContext& input);

}  // namespace media
