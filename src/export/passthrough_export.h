#pragma once

#include <filesystem>
#include <stop_token>

#include "common/result.h"
#include "composition/composition.h"
#include "export/export_progress.h"
#include "model/export_format.h"

namespace exporting {

// The lossless road of export: copies the sources' encoded samples into `destination`
// without decoding, frame-exact.
//
// For mp4, mov and m4a the file is MP4, QuickTime or MPEG-4 audio with one video and one
// audio track at most. Each segment's packets lie back to back in its track, from the
// keyframe (video) or pre-roll packet (audio) it needs up to its out point, and the edit
// list shows exactly each segment's range and each gap as black and silence; the movie
// box stands in front of the media data. For wav the file holds the PCM samples of each
// range and digital silence for each gap, sample-exact.
//
// Refuses, with an Error saying why, whatever cannot come out exact and lossless: a
// retimed segment, sources whose codec configurations or rotations differ, more than one
// audio lane, a codec the container cannot hold, picture into m4a or wav, anything but
// PCM into wav. The caller then re-encodes. `progress` gets the fraction of source time
// copied; a request on `stop` cancels between packets. On any failure or cancellation
// nothing is left at `destination`. Blocks; any thread.
common::Status exportPassthrough(const composition::Composition& composition,
                                 const std::filesystem::path& destination,
                                 model::ExportFormat format, const ProgressCallback& progress,
                                 std::stop_token stop);

}  // namespace exporting
