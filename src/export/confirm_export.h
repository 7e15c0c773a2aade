#pragma once

#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>

#include "common/executor.h"
#include "export/export_job.h"
#include "model/export_format.h"
#include "model/project.h"

namespace exporting {

// What the window (or the command line) does when an export ends.
struct ExportOutcome {
    std::function<void(const std::filesystem::path& file)> exported = [](const auto&) {};
    std::function<void(const std::string& message)> failed = [](const auto&) {};
};

// Closes the export sheet and exports the project to `destination` (chosen by the caller:
// a save panel or the command line). Sets isExporting, exportProgress and exportMessage
// as the export goes on, from "Preparing…" to "Exported" or a "Failed" message, and tells
// `outcome` at the end. The work runs in the background on `executor`; every write of the
// project happens on its owning thread, and a project gone by then is left alone.
// Answers the means to cancel the export; a cancelled export leaves nothing behind.
std::stop_source confirmExport(model::Project& project, const model::ExportSheetResult& result,
                               const std::filesystem::path& destination, common::Executor& executor,
                               ExportRoads roads, ExportOutcome outcome);

}  // namespace exporting
