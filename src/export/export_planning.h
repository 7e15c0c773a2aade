#pragma once

#include <string>
#include <vector>

#include "model/export_format.h"
#include "model/project.h"

namespace exporting {

// Read-only decisions made before an export: which road it can take, what the status
// line says and what the export sheet offers. Pure functions of the project.

// The samples can be copied: there are clips, nothing is cropped, nothing overlaps and
// every clip has the first clip's encoded format.
bool passthroughEligible(const model::Project& project);

// Why the project must be re-encoded, in the words the status line shows. Meaningful
// only for a project with clips.
std::string reEncodeReason(const model::Project& project);

// "N clips · H:MM · mode", or "Drop clips here" for an empty project.
std::string statusLine(const model::Project& project);

// The name the export sheet starts from: the first clip's name without its extension.
std::string suggestedFilename(const model::Project& project);

// [mp4, mov] if any clip has video, else [m4a, wav].
std::vector<model::ExportFormat> availableFormats(const model::Project& project);

// Opens the export sheet: sets the project's exportSheet to a new state. Does nothing
// without clips.
void beginExport(model::Project& project);

}  // namespace exporting
