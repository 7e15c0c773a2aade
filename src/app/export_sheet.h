#pragma once

#include <QDialog>
#include <functional>
#include <string>

#include "model/export_format.h"

class QComboBox;
class QLineEdit;
class QPushButton;

namespace app {

// "MP4", "MOV", "M4A (AAC)", "WAV".
QString exportFormatLabel(model::ExportFormat format);

// The window-modal sheet between the Export command and the save panel: a format and a
// file name. "Save…" (and Return) hands the trimmed name on; it is disabled while the name
// is blank. Cancel and Esc close it.
class ExportSheet final : public QDialog {
    Q_OBJECT

  public:
    ExportSheet(const model::ExportSheetState& state, QWidget* parent = nullptr);

    bool canExport() const;
    model::ExportSheetResult chosen() const;
    QLineEdit* filenameField() const { return filename_; }
    QComboBox* formatMenu() const { return format_; }
    QPushButton* saveButton() const { return save_; }

    // Told on "Save…" with what the sheet holds; the sheet closes after.
    std::function<void(const model::ExportSheetResult&)> onContinue = [](const auto&) {};

  private:
    void commit();
    QComboBox* format_;
    QLineEdit* filename_;
    QPushButton* save_;
};

}  // namespace app
