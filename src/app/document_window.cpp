#include "app/document_window.h"

#include <QAction>
#include <QCloseEvent>
#include <QDialog>
#include <QDir>
#include <QMessageBox>
#include <QScreen>
#include <QTimer>

#include "app/application.h"
#include "app/clipboard_pasteboard.h"
#include "app/content_view.h"
#include "app/crop_sheet.h"
#include "app/export_sheet.h"
#include "app/menu_bar.h"
#include "app/project_signals.h"
#include "app/retime_sheet.h"
#include "app/trim_frames.h"
#include "app/window_fitting.h"
#include "composition/frame_grab.h"
#include "export/confirm_export.h"
#include "timeline/timeline.h"

namespace app {

DocumentWindow::DocumentWindow(Application& app, std::unique_ptr<media::ProjectDocument> document,
                               QString untitledName)
    : app_(app), document_(std::move(document)), untitledName_(std::move(untitledName)) {
    setAttribute(Qt::WA_DeleteOnClose);
    resize(800, 882);
    signals_ = new ProjectSignals(project(), this);
    content_ = new ContentView(project(), *signals_);
    setCentralWidget(content_);
    actions_ = buildMenuBar(*this, app_);
    content_->timelineView()->onTrimFrameRequested = trimFrameRequester(app_.executor());

    document_->onModified = [this] { setWindowModified(true); };
    connect(signals_, &ProjectSignals::changed, this, &DocumentWindow::projectChanged);
    connect(content_, &ContentView::importRequested, this, &DocumentWindow::importWithPanel);
    connect(content_, &ContentView::copyFrameRequested, this, &DocumentWindow::copyCurrentFrame);
    connect(content_, &ContentView::cancelExportRequested, this, &DocumentWindow::cancelExport);
    connect(content_, &ContentView::relinkRequested, this, &DocumentWindow::relinkWithPanel);
    connect(content_, &ContentView::revealRequested, this,
            [this](const std::filesystem::path& item) { app_.panels().reveal(item); });
    refreshTitle();
    refreshCommands();
}

DocumentWindow::~DocumentWindow() {
    // The views and sheets observe the project, so they go before the document that owns
    // it; that includes a closed sheet whose deferred deletion has not run yet.
    for (QDialog* sheet : findChildren<QDialog*>(Qt::FindDirectChildrenOnly)) delete sheet;
    delete takeCentralWidget();
    delete signals_;
    exportStop_.request_stop();
}

RetimeSheet* DocumentWindow::retimeSheet() const {
    return retime_;
}
CropSheet* DocumentWindow::cropSheet() const {
    return crop_;
}
ExportSheet* DocumentWindow::exportSheet() const {
    return export_;
}

QString DocumentWindow::displayName() const {
    if (!document_->file()) return untitledName_;
    return QString::fromStdString(document_->file()->stem().string());
}

QAction* DocumentWindow::commandAction(Command command) const {
    auto it = actions_.find(command);
    return it == actions_.end() ? nullptr : it->second;
}

void DocumentWindow::refreshTitle() {
    setWindowTitle(displayName() + QStringLiteral("[*] — Vantrell"));
    if (document_->file()) setWindowFilePath(QString::fromStdString(document_->file()->string()));
    setWindowModified(document_->isModified());
    content_->setDocument(displayName(), document_->file());
}

bool DocumentWindow::save() {
    if (!document_->file()) return saveAs();
    if (auto saved = document_->save(); !saved) {
        QMessageBox::warning(this, QStringLiteral("Couldn't save"),
                             QString::fromStdString(saved.error().message));
        return false;
    }
    app_.noteRecentFile(*document_->file());
    refreshTitle();
    return true;
}

bool DocumentWindow::saveAs() {
    std::filesystem::path suggested = document_->file()
                                          ? *document_->file()
                                          : std::filesystem::path(QDir::homePath().toStdString()) /
                                                (untitledName_.toStdString() + ".vantrell");
    auto chosen = app_.panels().chooseProjectDestination(this, suggested);
    if (!chosen) return false;
    if (chosen->extension() != ".vantrell") *chosen += ".vantrell";
    if (auto saved = document_->save(*chosen); !saved) {
        QMessageBox::warning(this, QStringLiteral("Couldn't save"),
                             QString::fromStdString(saved.error().message));
        return false;
    }
    app_.noteRecentFile(*chosen);
    refreshTitle();
    return true;
}

void DocumentWindow::closeEvent(QCloseEvent* event) {
    if (!document_->isModified()) return event->accept();
    switch (app_.panels().askToSave(this, displayName())) {
        case SaveAnswer::save:
            return save() ? event->accept() : event->ignore();
        case SaveAnswer::dontSave:
            return event->accept();
        case SaveAnswer::cancel:
            return event->ignore();
    }
}

void DocumentWindow::changeEvent(QEvent* event) {
    // Menus read the project of the window in front.
    if (event->type() == QEvent::ActivationChange && isActiveWindow()) refreshCommands();
    QMainWindow::changeEvent(event);
}

void DocumentWindow::projectChanged(model::ProjectField field) {
    using F = model::ProjectField;
    if (field == F::showRetimeSheet || field == F::showCropSheet || field == F::exportSheet)
        syncSheets();
    // Many fields change in one step of an edit; the menus are brought up to date once.
    if (refreshQueued_) return;
    refreshQueued_ = true;
    QTimer::singleShot(0, this, [this] {
        refreshQueued_ = false;
        refreshCommands();
    });
}

void DocumentWindow::refreshCommands() {
    refreshMenuActions(actions_, &project());
}

void DocumentWindow::runCommand(Command command) {
    if (!commandState(command, &project()).enabled) return;
    switch (command) {
        case Command::importMedia:
            return importWithPanel();
        case Command::fitWindowToVideo:
            return fitWindowToVideo();
        case Command::copyCurrentFrame:
            return copyCurrentFrame();
        default:
            runProjectCommand(command, project());
    }
}

template <typename Sheet, typename Make, typename Closed>
void DocumentWindow::presentWhile(bool wanted, QPointer<Sheet>& sheet, Make make, Closed closed) {
    if (wanted && !sheet) {
        sheet = make();
        sheet->setAttribute(Qt::WA_DeleteOnClose);
        connect(sheet, &QDialog::finished, this, [&sheet, closed](int result) {
            sheet = nullptr;
            closed(result);
        });
        sheet->open();
    } else if (!wanted && sheet) {
        sheet->reject();
    }
}

void DocumentWindow::syncSheets() {
    model::Project& p = project();
    presentWhile(
        p.showRetimeSheet(), retime_, [&] { return new RetimeSheet(p, this); },
        [this](int) { project().setShowRetimeSheet(false); });
    presentWhile(
        p.showCropSheet(), crop_, [&] { return new CropSheet(p, this); },
        [this](int) { project().setShowCropSheet(false); });
    presentWhile(
        p.exportSheet().has_value(), export_,
        [&] {
            auto* sheet = new ExportSheet(*p.exportSheet(), this);
            sheet->onContinue = [this](const model::ExportSheetResult& result) {
                // Queued: the sheet finishes closing before the save panel opens.
                QTimer::singleShot(0, this, [this, result] { startExport(result); });
            };
            return sheet;
        },
        [this](int result) {
            if (result == QDialog::Rejected) project().setExportSheet(std::nullopt);
        });
}

void DocumentWindow::startExport(const model::ExportSheetResult& result) {
    project().setExportSheet(std::nullopt);
    auto destination = app_.panels().chooseExportDestination(
        this, QString::fromStdString(result.filename), result.format);
    if (!destination) return;
    QPointer<DocumentWindow> self(this);
    exporting::ExportOutcome outcome;
    outcome.exported = [self](const std::filesystem::path& file) {
        if (self) self->app_.panels().reveal(file);
    };
    outcome.failed = [self](const std::string& message) {
        if (self) self->app_.panels().exportFailed(self, QString::fromStdString(message));
    };
    exportStop_ = exporting::confirmExport(project(), result, *destination, app_.executor(),
                                           exporting::standardRoads(), std::move(outcome));
}

void DocumentWindow::cancelExport() {
    exportStop_.request_stop();
}

void DocumentWindow::importWithPanel() {
    auto files = app_.panels().chooseMedia(this);
    if (!files.empty()) project().importURLs(std::move(files));
}

void DocumentWindow::copyCurrentFrame() {
    if (!project().videoAtPlayhead()) return;
    common::runAsync(
        app_.executor(),
        [clips = project().clips(), seconds = project().playheadGlobal()] {
            return composition::grabFrame(clips, seconds);
        },
        [](model::Image image) { putImageOnClipboard(image); });
}

void DocumentWindow::fitWindowToVideo() {
    auto size = project().naturalSizeAtPlayhead();
    QScreen* screen = this->screen();
    if (!size || !screen) return;
    QRect frame = frameGeometry();
    int contentHeight = content_->previewHeight() + static_cast<int>(project().footerHeight());
    FitInput input{size->width,
                   size->height,
                   frame,
                   frame.height() - contentHeight,
                   project().footerHeight(),
                   screen->availableGeometry()};
    QRect fitted = fittedWindowFrame(input);
    resize(fitted.width() - (frame.width() - width()),
           fitted.height() - (frame.height() - height()));
    move(fitted.topLeft());
}

void DocumentWindow::relinkWithPanel(const common::Uuid& clipID) {
    const model::Clip* clip = project().clip(clipID);
    if (!clip) return;
    auto file = app_.panels().chooseRelinkFile(this, QString::fromStdString(clip->displayName));
    if (file) project().relinkClip(clipID, *file);
}

}  // namespace app
