#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/uuid.h"

namespace model {

// The four kinds of exported file. The raw text is also the file extension.
enum class ExportFormat { mp4 = 1, mov, m4a, wav };

constexpr std::string_view toString(ExportFormat f) {
    switch (f) {
        case ExportFormat::mp4:
            return "mp4";
        case ExportFormat::mov:
            return "mov";
        case ExportFormat::m4a:
            return "m4a";
        case ExportFormat::wav:
            return "wav";
    }
    return "mp4";
}

constexpr std::optional<ExportFormat> parseExportFormat(std::string_view text) {
    if (text == "mp4") return ExportFormat::mp4;
    if (text == "mov") return ExportFormat::mov;
    if (text == "m4a") return ExportFormat::m4a;
    if (text == "wav") return ExportFormat::wav;
    return std::nullopt;
}

// What the export sheet starts from; present while the sheet is up.
struct ExportSheetState {
    common::Uuid id;
    std::string suggestedFilename;
    std::string statusLine;
    std::vector<ExportFormat> availableFormats;
    ExportFormat initialFormat = ExportFormat::mp4;
};

// What the export sheet hands back.
struct ExportSheetResult {
    std::string filename;
    ExportFormat format = ExportFormat::mp4;
};

}  // namespace model
