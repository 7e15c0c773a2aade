#pragma once

#include <filesystem>
#include <stop_token>
#include <string_view>

#include "common/result.h"
#include "composition/composition.h"
#include "export/export_progress.h"
#include "export/export_settings.h"
#include "model/export_format.h"

namespace exporting {

// The road's x264 settings, also what its benchmark gives the ffmpeg tool. The medium
// preset looks 40 frames ahead, about 6.5 MB each at 1080p, which takes a 1080p export to
// 520 MB; 15 keeps it near 360 MB, at a cost in size and quality too small to measure at
// crf 17.
inline constexpr std::string_view kX264Preset = "medium";
inline constexpr int kX264Crf = 17;
inline constexpr int kX264Lookahead = 15;

// The road of export that decodes and encodes again, for whatever the lossless road
// refuses, and the only road of a crop.
//
// The file is the format's own container: MP4, QuickTime, MPEG-4 audio or WAV. Its video
// stream, made for mp4 and mov when the composition has a video track and `settings` a
// frame, is H.264 (libx264 at the settings above) of exactly the render size at the
// constant settings.framesPerSecond: output frame k shows the composition at k / rate,
// upright, each source frame of the largest size copied (cropped on the crop road), any
// other size fitted whole on black, black where the track shows nothing; frames run to
// the last one that starts before the composition's end, 4:2:0 in the High profile.
// H.264 cannot cut a single pixel off a 4:2:0 picture, so an odd side is coded one pixel
// longer (that pixel repeating its neighbour) and the movie's track header and clean
// aperture give the exact size. The audio stream, made when the composition has
// audio tracks or the format holds audio only, is the mix at 48 kHz stereo (AAC at 256
// kb/s, or 16-bit PCM in WAV), exactly the composition's duration long. An empty
// composition, or a crop into mp4 or mov with no picture to crop, is an error.
//
// `progress` gets the fraction of the composition's duration written; a request on `stop`
// cancels between frames. On any failure or cancellation nothing is left at
// `destination`. Blocks; any thread; several exports may run at once.
common::Status exportReencoded(const composition::Composition& composition,
                               const std::filesystem::path& destination, model::ExportFormat format,
                               const ReencodeSettings& settings, const ProgressCallback& progress,
                               std::stop_token stop);

}  // namespace exporting
