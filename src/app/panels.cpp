#include "app/panels.h"

#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

#include "app/reveal.h"

namespace app {

namespace {

std::filesystem::path toPath(const QString& file) {
    return std::filesystem::path(file.toStdString());
}

QString extensionOf(model::ExportFormat format) {
    auto text = model::toString(format);
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

QString mediaFileFilter() {
    return QStringLiteral(
        "Media (*.mp4 *.m4v *.mov *.qt *.mkv *.webm *.avi *.mts *.m2ts *.mpg *.mpeg *.3gp "
        "*.mp3 *.m4a *.aac *.wav *.aif *.aiff *.flac *.ogg *.opus *.caf);;All files (*)");
}

Panels standardPanels() {
    Panels panels;
    panels.chooseMedia = [](QWidget* parent) {
        std::vector<std::filesystem::path> files;
        for (const QString& file : QFileDialog::getOpenFileNames(
                 parent, QStringLiteral("Import Media"), QString(), mediaFileFilter()))
            files.push_back(toPath(file));
        return files;
    };
    panels.chooseProject = [](QWidget* parent) -> std::optional<std::filesystem::path> {
        QString file =
            QFileDialog::getOpenFileName(parent, QStringLiteral("Open"), QString(),
                                         QStringLiteral("Vantrell projects (*.vantrell)"));
        if (file.isEmpty()) return std::nullopt;
        return toPath(file);
    };
    panels.chooseProjectDestination =
        [](QWidget* parent,
           const std::filesystem::path& suggested) -> std::optional<std::filesystem::path> {
        QFileDialog dialog(parent, QStringLiteral("Save"),
                           QString::fromStdString(suggested.string()),
                           QStringLiteral("Vantrell projects (*.vantrell)"));
        dialog.setAcceptMode(QFileDialog::AcceptSave);
        dialog.setDefaultSuffix(QStringLiteral("vantrell"));
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
            return std::nullopt;
        return toPath(dialog.selectedFiles().first());
    };
    panels.chooseExportDestination =
        [](QWidget* parent, const QString& filename,
           model::ExportFormat format) -> std::optional<std::filesystem::path> {
        QString ext = extensionOf(format);
        QFileDialog dialog(parent, QStringLiteral("Export"), filename + u'.' + ext,
                           QStringLiteral("%1 (*.%2)").arg(ext.toUpper(), ext));
        dialog.setAcceptMode(QFileDialog::AcceptSave);
        dialog.setDefaultSuffix(ext);
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
            return std::nullopt;
        return toPath(dialog.selectedFiles().first());
    };
    panels.chooseRelinkFile =
        [](QWidget* parent, const QString& displayName) -> std::optional<std::filesystem::path> {
        QFileDialog dialog(parent, QStringLiteral("Locate Media for \"%1\"").arg(displayName),
                           QString(), mediaFileFilter());
        dialog.setFileMode(QFileDialog::ExistingFile);
        dialog.setLabelText(QFileDialog::Accept, QStringLiteral("Choose"));
        // Qt's panel has no message line; the file-type label carries the sentence.
        dialog.setLabelText(QFileDialog::FileType,
                            QStringLiteral("Choose the replacement file for this missing clip."));
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
            return std::nullopt;
        return toPath(dialog.selectedFiles().first());
    };
    panels.askToSave = [](QWidget* parent, const QString& name) {
        QMessageBox box(parent);
        box.setIcon(QMessageBox::Warning);
        box.setText(
            QStringLiteral("Do you want to save the changes made to the document “%1”?").arg(name));
        box.setInformativeText(QStringLiteral("Your changes will be lost if you don't save them."));
        QPushButton* save = box.addButton(QMessageBox::Save);
        QPushButton* dontSave =
            box.addButton(QStringLiteral("Don't Save"), QMessageBox::DestructiveRole);
        box.addButton(QMessageBox::Cancel);
        box.setDefaultButton(save);
        box.setWindowModality(Qt::WindowModal);
        box.exec();
        if (box.clickedButton() == save) return SaveAnswer::save;
        if (box.clickedButton() == dontSave) return SaveAnswer::dontSave;
        return SaveAnswer::cancel;
    };
    panels.exportFailed = [](QWidget* parent, const QString& message) {
        QMessageBox box(QMessageBox::Warning, QStringLiteral("Export failed"),
                        QStringLiteral("Export failed"), QMessageBox::Ok, parent);
        box.setInformativeText(message);
        box.exec();
    };
    panels.reveal = revealInFileManager;
    return panels;
}

}  // namespace app
