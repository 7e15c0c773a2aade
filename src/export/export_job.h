#pragma once

#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "common/result.h"
#include "composition/composition.h"
#include "export/export_progress.h"
#include "model/clip.h"
#include "model/export_format.h"
#include "model/small_clip_mode.h"

namespace exporting {

// What one export works from: a copy of the project as it stood when the user asked.
struct ExportJob {
    std::vector<model::Clip> clips;
    bool passthroughEligible = false;
    model::ExportFormat format = model::ExportFormat::mp4;
    std::filesystem::path destination;
    model::SmallClipMode smallClipMode = model::SmallClipMode::proportional;
    double cropTop = 0;
    double cropLeading = 0;
    double cropTrailing = 0;
    double cropBottom = 0;
};

// One way of writing a composition to a file. Each writes `file` completely or leaves
// nothing there, reports its fraction done and stops early when asked.
using ExportRoad = std::function<common::Status(
    const composition::Composition& composition, const ExportJob& job,
    const std::filesystem::path& file, const ProgressCallback& progress, std::stop_token stop)>;

// The roads an export may take.
struct ExportRoads {
    ExportRoad passthrough;  // lossless copy; may refuse
    ExportRoad reencode;     // highest quality
    ExportRoad crop;         // re-encode through the crop compositor
    std::function<composition::Composition(const std::vector<model::Clip>&)> build;
};

// The roads of this build: FFmpeg passthrough, re-encoding and the crop compositor.
ExportRoads standardRoads();

// Told what an export is doing: a fraction from 0 to 1 and the text the status bar shows.
// Called from the exporting threads.
using ExportReporter = std::function<void(double fraction, const std::string& message)>;

// How often the export's progress is reported.
inline constexpr double kProgressIntervalSeconds = 0.2;

// Runs an export to its end on the calling thread: the crop road when a crop is in force,
// else passthrough when the project is eligible, falling back to re-encoding when the
// copy refuses or fails, else re-encoding. The file is written to a temporary file
// "vantrell-export-UUID.EXT" in the system's temporary folder and only a complete file is
// moved over the destination; nothing is left at the destination or in the temporary
// folder on failure or cancellation. Answers the error message to show, if any:
// "Failed: ..." or "Failed to move output: ...".
common::Status runExportJob(const ExportJob& job, const ExportRoads& roads,
                            const ExportReporter& report, std::stop_token stop);

// True if any inset of the job is above 0 and there is a picture to crop.
bool jobHasCrop(const ExportJob& job);

}  // namespace exporting
