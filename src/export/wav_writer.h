#pragma once

#include <filesystem>
#include <stop_token>

#include "common/result.h"
#include "composition/composition.h"
#include "export/export_progress.h"
#include "media/ff_ptr.h"

namespace exporting {

// Writes `track` as a WAV file at `destination`: the PCM samples of each segment's range
// copied as they are, each gap as digital silence, every stretch exactly as many samples
// as the timeline gives it (sample n plays at n / rate seconds). Every source must be PCM
// of the configuration `format`, which the WAV muxer must be able to hold. A source that
// runs out early is made up with silence. Stops with an error when `stop` is requested.
// The caller removes the file on failure.
common::Status writeWave(const composition::Track& track, const AVCodecParameters& format,
                         const std::filesystem::path& destination, const ProgressCallback& progress,
                         std::stop_token stop);

}  // namespace exporting
