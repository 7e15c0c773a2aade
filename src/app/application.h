#pragma once

#include <QObject>
#include <QStringList>
#include <filesystem>
#include <memory>
#include <vector>

#include "app/main_thread_executor.h"
#include "app/panels.h"
#include "model/project.h"

namespace app {

class DocumentWindow;
class UpdateChecker;

// The program's one application object: the executor, the media services and the
// clipboard that every document shares, the open windows, the recent files, the update
// check and help. Main thread.
class Application final : public QObject {
    Q_OBJECT

  public:
    explicit Application(Panels panels = standardPanels(), QObject* parent = nullptr);
    ~Application() override;

    MainThreadExecutor& executor() { return executor_; }
    model::ProjectContext context();
    const Panels& panels() const { return panels_; }

    // Open windows, oldest first.
    std::vector<DocumentWindow*> windows() const;

    DocumentWindow* newDocument();
    // Opens a project in a new window, or raises the window that has it open already;
    // says why when the file can't be opened and answers null.
    DocumentWindow* openProject(const std::filesystem::path& file);
    void openWithPanel(QWidget* parent);
    // Files handed over from outside: a window for each project and one untitled window
    // that imports all the media.
    void openFiles(const std::vector<std::filesystem::path>& files);

    QStringList recentFiles() const;
    void noteRecentFile(const std::filesystem::path& file);
    void clearRecentFiles();

    void checkForUpdates(QWidget* parent);
    void openHelp();
    void showAbout(QWidget* parent);
    // Closes every window, each asking about unsaved changes; quits once all are closed.
    void quit();

  signals:
    void recentFilesChanged();

  private:
    DocumentWindow* show(DocumentWindow* window);
    std::shared_ptr<model::MediaServices> media_;
    std::shared_ptr<model::Pasteboard> pasteboard_;
    Panels panels_;
    UpdateChecker* updates_ = nullptr;
    int untitledCount_ = 0;
    MainThreadExecutor executor_;  // declared last: its workers stop before the rest goes
};

// Where the installed help lies (the README as HTML), or the build tree's copy when the
// program runs uninstalled.
std::filesystem::path helpFile();

}  // namespace app
