#pragma once

#include <QString>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "model/export_format.h"

class QWidget;

namespace app {

// The answer to "save the changes?" when a modified document closes.
enum class SaveAnswer { save = 1, dontSave, cancel };

// The file panels and messages the windows show. The standard set shows Qt's dialogs;
// tests put answers of their own in their place.
struct Panels {
    // The import panel: media files, several at once; empty on cancel.
    std::function<std::vector<std::filesystem::path>(QWidget* parent)> chooseMedia;
    // A project file to open.
    std::function<std::optional<std::filesystem::path>(QWidget* parent)> chooseProject;
    // Where to save a project, starting from `suggested`.
    std::function<std::optional<std::filesystem::path>(QWidget* parent,
                                                       const std::filesystem::path& suggested)>
        chooseProjectDestination;
    // Where to export, starting from the name "filename.ext".
    std::function<std::optional<std::filesystem::path>(QWidget* parent, const QString& filename,
                                                       model::ExportFormat format)>
        chooseExportDestination;
    // The replacement for a missing clip's file.
    std::function<std::optional<std::filesystem::path>(QWidget* parent, const QString& displayName)>
        chooseRelinkFile;
    std::function<SaveAnswer(QWidget* parent, const QString& documentName)> askToSave;
    // The "Export failed" alert with its text.
    std::function<void(QWidget* parent, const QString& message)> exportFailed;
    // Shows a file in the file manager.
    std::function<void(const std::filesystem::path& file)> reveal;
};

Panels standardPanels();

// The file-name patterns of the media that the import and relink panels offer.
QString mediaFileFilter();

}  // namespace app
