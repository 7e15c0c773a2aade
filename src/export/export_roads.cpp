#include "composition/stream_lookup.h"
#include "export/export_job.h"
#include "export/export_settings.h"
#include "export/passthrough_export.h"
#include "export/reencode_export.h"

namespace exporting {

namespace {

ReencodeSettings settingsFor(const ExportJob& job) {
    return reencodeSettings(job.clips, job.smallClipMode,
                            {job.cropTop, job.cropLeading, job.cropTrailing, job.cropBottom});
}

}  // namespace

ExportRoads standardRoads() {
    ExportRoads roads;
    roads.build = [](const std::vector<model::Clip>& clips) {
        return composition::buildComposition(clips, composition::mediaStreamLookup());
    };
    roads.passthrough = [](const composition::Composition& composition, const ExportJob& job,
                           const std::filesystem::path& file, const ProgressCallback& progress,
                           std::stop_token stop) {
        return exportPassthrough(composition, file, job.format, progress, stop);
    };
    // The plain and the crop road differ only in the settings that reencodeSettings
    // derives from the job's insets.
    roads.reencode = [](const composition::Composition& composition, const ExportJob& job,
                        const std::filesystem::path& file, const ProgressCallback& progress,
                        std::stop_token stop) {
        return exportReencoded(composition, file, job.format, settingsFor(job), progress, stop);
    };
    roads.crop = roads.reencode;
    return roads;
}

}  // namespace exporting
