#pragma once

#include <string>
#include <vector>

#include "model/export_format.h"
#include "model/project.h"

namespace exporting {

// Read-only decisions made before an export: which road it can take, what the status
// line says and what the export sheet offers. Pure functions of the project.

// The samples can be copied: there are clips, nothing is cropped, nothing overlaps (and no
// two sounds play at once, which would need a second audio track), every clip has the
// first clip's encoded format, the first offered format can hold its codecs, and every
// packet has its timestamps.
bool passthroughEligible(const model::Project& project);

// How many of the exported video frames a smart cut re-encodes (those between a cut and
// the next keyframe, after the last keyframe a cut splits, and the black frames of gaps),
// and how many frames the video has in all.
struct ReencodedFrames {
    int reencoded = 0;
    int total = 0;
};
ReencodedFrames smartCutFrames(const model::Project& project);

// Why the project must be re-encoded, in the words the status line shows. Meaningful
// only for a project with clips.
std::string reEncodeReason(const model::Project& project);

// "N clips · H:MM · mode", or "Drop clips here" for an empty project. The mode is
// "Lossless ✓" when every frame is copied, "Smart cut ✓ · N of M frames re-encoded" when
// frames around cuts are re-encoded, else "Re-encode (reason)".
std::string statusLine(const model::Project& project);

// The name the export sheet starts from: the first clip's name without its extension.
std::string suggestedFilename(const model::Project& project);

// [mp4, mov] if any clip has video, else [m4a, wav].
std::vector<model::ExportFormat> availableFormats(const model::Project& project);

// Opens the export sheet: sets the project's exportSheet to a new state. Does nothing
// without clips.
void beginExport(model::Project& project);

}  // namespace exporting
