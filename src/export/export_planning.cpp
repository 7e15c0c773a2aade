#include "export/export_planning.h"

#include <cstdio>
#include <filesystem>

#include "model/time_format.h"

namespace exporting {

namespace {

// The wordings of the reasons; the differ form takes the two counts.
constexpr const char* kReasonCrop = "cropped";
constexpr const char* kReasonOverlap = "clips overlap";
constexpr const char* kReasonNoClips = "no clips";
constexpr const char* kReasonFormat = "format can't be copied";

std::string differReason(int differing, int total) {
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "%d of %d clips differ in format", differing, total);
    return buffer;
}

int clipsDifferingFromFirst(const model::Project& project) {
    const auto& clips = project.clips();
    int differing = 0;
    for (const auto& c : clips)
        if (c.fingerprint != clips.front().fingerprint) ++differing;
    return differing;
}

}  // namespace

bool passthroughEligible(const model::Project& project) {
    if (project.clips().empty()) return false;
    if (project.hasCrop()) return false;
    if (project.hasOverlap()) return false;
    return clipsDifferingFromFirst(project) == 0;
}

std::string reEncodeReason(const model::Project& project) {
    if (project.hasCrop()) return kReasonCrop;
    if (project.hasOverlap()) return kReasonOverlap;
    if (project.clips().empty()) return kReasonNoClips;
    int differing = clipsDifferingFromFirst(project);
    if (differing == 0) return kReasonFormat;
    return differReason(differing, static_cast<int>(project.clips().size()));
}

std::string statusLine(const model::Project& project) {
    const auto count = static_cast<int>(project.clips().size());
    if (count == 0) return "Drop clips here";
    std::string time = model::formatHMS(project.totalDurationSeconds());
    std::string mode =
        passthroughEligible(project) ? "Lossless ✓" : "Re-encode (" + reEncodeReason(project) + ")";
    return std::to_string(count) + (count == 1 ? " clip · " : " clips · ") + time + " · " + mode;
}

std::string suggestedFilename(const model::Project& project) {
    std::string base = "Untitled";
    if (!project.clips().empty())
        base = std::filesystem::path(project.clips().front().displayName).stem().string();
    return base + " - trimmed";
}

std::vector<model::ExportFormat> availableFormats(const model::Project& project) {
    for (const auto& c : project.clips())
        if (c.hasVideo) return {model::ExportFormat::mp4, model::ExportFormat::mov};
    return {model::ExportFormat::m4a, model::ExportFormat::wav};
}

void beginExport(model::Project& project) {
    if (project.clips().empty()) return;
    auto formats = availableFormats(project);
    model::ExportSheetState state;
    state.id = common::Uuid::random();
    state.suggestedFilename = suggestedFilename(project);
    state.statusLine = statusLine(project);
    state.availableFormats = formats;
    state.initialFormat = formats.front();
    project.setExportSheet(std::move(state));
}

}  // namespace exporting
