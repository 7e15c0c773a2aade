#include "export/confirm_export.h"

#include <memory>

#include "export/export_planning.h"

namespace exporting {

std::stop_source confirmExport(model::Project& project, const model::ExportSheetResult& result,
                               const std::filesystem::path& destination, common::Executor& executor,
                               ExportRoads roads, ExportOutcome outcome) {
    project.setExportSheet(std::nullopt);
    project.setIsExporting(true);
    project.setExportProgress(0);
    project.setExportMessage("Preparing…");

    ExportJob job;
    job.clips = project.clips();
    job.passthroughEligible = passthroughEligible(project);
    job.format = result.format;
    job.destination = destination;
    job.smallClipMode = project.smallClipMode();
    job.cropTop = project.cropInsetTop();
    job.cropLeading = project.cropInsetLeading();
    job.cropTrailing = project.cropInsetTrailing();
    job.cropBottom = project.cropInsetBottom();

    std::stop_source stop;
    auto alive = project.lifetime();
    model::Project* target = &project;
    // Reports come from the exporting threads; each hops to the owning thread on its own.
    ExportReporter report = [&executor, alive, target](double fraction,
                                                       const std::string& message) {
        executor.postToOwner([alive, target, fraction, message] {
            if (alive.expired()) return;
            target->setExportProgress(fraction);
            target->setExportMessage(message);
        });
    };
    common::runAsync(
        executor,
        [job = std::move(job), roads = std::move(roads), report, token = stop.get_token()] {
            return runExportJob(job, roads, report, token);
        },
        [alive, target, outcome = std::move(outcome), destination](common::Status status) {
            if (alive.expired()) return;
            if (status) {
                target->setExportMessage("Exported");
                target->setIsExporting(false);
                outcome.exported(destination);
            } else {
                target->setExportMessage(status.error().message);
                target->setIsExporting(false);
                outcome.failed(status.error().message);
            }
        });
    return stop;
}

}  // namespace exporting
