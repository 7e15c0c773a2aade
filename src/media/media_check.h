#pragma once

#include "common/result.h"
#include "media/ff_ptr.h"
#include "model/clip.h"

// What makes a file count as media, for the probe. A header may claim anything, so the
// claims that size buffers later are held to limits, and the file must show that it
// decodes.
namespace media {

// 16384 pixels a side is twice the widest camera format; a day outlasts any recording a
// timeline is made for. Past these every buffer sized from a picture or a length would
// stop being within reach of memory.
inline constexpr int kLargestPictureSide = 16384;
inline constexpr double kLongestMediaSeconds = 24 * 60 * 60;

// A stream that gives nothing after this many packets is taken for one that never will:
// real files deliver their first picture or samples within a few dozen.
inline constexpr int kMostPacketsBeforeMedia = 4096;

// FFmpeg's own probe score for a file whose name fits its format and whose contents open
// with a tag. Random bytes score 1 from their name alone, or a few points more where a
// chance byte pattern looks like an MP3 or ADTS frame; every real file scores far higher.
inline constexpr int kLeastFormatScore = AVPROBE_SCORE_EXTENSION / 2 - 1;

// Fails, naming the file, when `input`'s format was chosen on its name or a chance pattern
// rather than on its contents (a probe score under kLeastFormatScore).
common::Status checkFormatRecognised(const AVFormatContext& input);

// Fails, naming the file and the claim, unless the probed `clip` lasts more than 0 and at
// most kLongestMediaSeconds, and its pictures are at most kLargestPictureSide a side.
common::Status checkMediaClaims(const model::Clip& clip);

// Decodes `input` from its start until its first video stream gives a picture or its first
// audio stream gives samples. Fails, saying why, when neither does within the first
// kMostPacketsBeforeMedia packets. Leaves `input` wherever reading stopped.
common::Status decodesFirstFrame(AVFormatContext& input);

}  // namespace media
