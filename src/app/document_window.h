#pragma once

#include <QMainWindow>
#include <QPointer>
#include <map>
#include <memory>
#include <stop_token>

#include "app/menu_commands.h"
#include "media/project_document.h"

namespace app {

class Application;
class ContentView;
class CropSheet;
class ExportSheet;
class ProjectSignals;
class RetimeSheet;

// One document window: one project document, its content view, its menus and its sheets.
// The title shows the document's name and the modified mark; closing a modified document
// asks whether to save it. Main thread.
class DocumentWindow final : public QMainWindow {
    Q_OBJECT

  public:
    DocumentWindow(Application& app, std::unique_ptr<media::ProjectDocument> document,
                   QString untitledName);
    ~DocumentWindow() override;

    model::Project& project() { return document_->project(); }
    media::ProjectDocument& document() { return *document_; }
    ContentView* contentView() const { return content_; }
    QString displayName() const;
    QAction* commandAction(Command command) const;

    // Saves to the document's file, or asks where when it has none; false when cancelled
    // or failed.
    bool save();
    bool saveAs();

    // Runs a menu command if it is enabled now.
    void runCommand(Command command);
    void importWithPanel();
    void copyCurrentFrame();
    void fitWindowToVideo();
    void relinkWithPanel(const common::Uuid& clipID);
    void cancelExport();

    // The sheets while they are up, else null.
    RetimeSheet* retimeSheet() const;
    CropSheet* cropSheet() const;
    ExportSheet* exportSheet() const;

    // Brings every menu item's title, icon and enabled state up to date with the project.
    void refreshCommands();

  protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    void projectChanged(model::ProjectField field);
    void syncSheets();
    // Opens a sheet while the project asks for it and closes it when it stops asking;
    // `closed` tells the project when the user closed it, with the dialog's result.
    template <typename Sheet, typename Make, typename Closed>
    void presentWhile(bool wanted, QPointer<Sheet>& sheet, Make make, Closed closed);
    void startExport(const model::ExportSheetResult& result);
    void refreshTitle();

    Application& app_;
    std::unique_ptr<media::ProjectDocument> document_;
    QString untitledName_;
    ProjectSignals* signals_ = nullptr;
    ContentView* content_ = nullptr;
    std::map<Command, QAction*> actions_;
    QPointer<RetimeSheet> retime_;
    QPointer<CropSheet> crop_;
    QPointer<ExportSheet> export_;
    std::stop_source exportStop_;
    bool refreshQueued_ = false;
};

}  // namespace app
