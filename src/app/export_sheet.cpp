#include "app/export_sheet.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/sheet_header.h"

namespace app {

QString exportFormatLabel(model::ExportFormat format) {
    switch (format) {
        case model::ExportFormat::mp4:
            return QStringLiteral("MP4");
        case model::ExportFormat::mov:
            return QStringLiteral("MOV");
        case model::ExportFormat::m4a:
            return QStringLiteral("M4A (AAC)");
        case model::ExportFormat::wav:
            return QStringLiteral("WAV");
    }
    return {};
}

ExportSheet::ExportSheet(const model::ExportSheetState& state, QWidget* parent) : QDialog(parent) {
    setWindowTitle(QStringLiteral("Export"));
    setWindowModality(Qt::WindowModal);
    setFixedWidth(460);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(16);
    layout->addLayout(sheetHeader(QStringLiteral("document-export"), QStringLiteral("Export"), {}));

    auto* form = new QFormLayout;
    format_ = new QComboBox;
    for (auto f : state.availableFormats)
        format_->addItem(exportFormatLabel(f), static_cast<int>(f));
    format_->setCurrentIndex(format_->findData(static_cast<int>(state.initialFormat)));
    form->addRow(QStringLiteral("Format"), format_);
    filename_ = new QLineEdit(QString::fromStdString(state.suggestedFilename));
    filename_->setMinimumWidth(260);
    form->addRow(QStringLiteral("Filename"), filename_);
    auto* output = new QLabel(QString::fromStdString(state.statusLine));
    output->setEnabled(false);
    form->addRow(QStringLiteral("Output"), output);
    layout->addLayout(form);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    auto* cancel = new QPushButton(QStringLiteral("Cancel"));
    cancel->setAutoDefault(false);
    save_ = new QPushButton(QStringLiteral("Save…"));
    save_->setDefault(true);
    buttons->addWidget(cancel);
    buttons->addWidget(save_);
    layout->addLayout(buttons);

    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(save_, &QPushButton::clicked, this, &ExportSheet::commit);
    connect(filename_, &QLineEdit::textChanged, this, [this] { save_->setEnabled(canExport()); });
    save_->setEnabled(canExport());
}

bool ExportSheet::canExport() const {
    return !filename_->text().trimmed().isEmpty();
}

model::ExportSheetResult ExportSheet::chosen() const {
    return {filename_->text().trimmed().toStdString(),
            static_cast<model::ExportFormat>(format_->currentData().toInt())};
}

void ExportSheet::commit() {
    if (!canExport()) return;
    auto result = chosen();
    accept();
    onContinue(result);
}

}  // namespace app
