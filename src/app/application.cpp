#include "app/application.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QMessageBox>
#include <QSettings>
#include <QUrl>

#include "app/clipboard_pasteboard.h"
#include "app/document_window.h"
#include "app/opened_files.h"
#include "app/update_check.h"
#include "common/log.h"
#include "common/version.h"
#include "media/local_media_services.h"

namespace app {

namespace {

constexpr int kMaxRecentFiles = 10;
const QString kRecentKey = QStringLiteral("recentFiles");

QString versionText() {
    return QString::fromUtf8(common::kVersion.data(),
                             static_cast<qsizetype>(common::kVersion.size()));
}

}  // namespace

std::filesystem::path helpFile() {
    std::filesystem::path installed =
        std::filesystem::path(QCoreApplication::applicationDirPath().toStdString()) / ".." /
        VANTRELL_DOC_RELATIVE_PATH / "README.html";
    if (std::filesystem::exists(installed)) return installed.lexically_normal();
    return VANTRELL_BUILD_HELP_FILE;
}

Application::Application(Panels panels, QObject* parent)
    : QObject(parent),
      media_(std::make_shared<media::LocalMediaServices>()),
      pasteboard_(std::make_shared<ClipboardPasteboard>()),
      panels_(std::move(panels)),
      updates_(new UpdateChecker(this)) {
    connect(updates_, &UpdateChecker::finished, this, [](const UpdateResult& result) {
        presentUpdateResult(QApplication::activeWindow(), result);
    });
}

Application::~Application() {
    // Windows hold projects whose background work uses the executor and the media
    // services, so they go first.
    for (DocumentWindow* window : windows()) delete window;
}

model::ProjectContext Application::context() {
    return {&executor_, media_, pasteboard_};
}

std::vector<DocumentWindow*> Application::windows() const {
    std::vector<DocumentWindow*> open;
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (auto* window = qobject_cast<DocumentWindow*>(widget)) open.push_back(window);
    return open;
}

DocumentWindow* Application::show(DocumentWindow* window) {
    window->show();
    window->raise();
    window->activateWindow();
    return window;
}

DocumentWindow* Application::newDocument() {
    ++untitledCount_;
    QString name = untitledCount_ == 1 ? QStringLiteral("Untitled")
                                       : QStringLiteral("Untitled %1").arg(untitledCount_);
    return show(
        new DocumentWindow(*this, std::make_unique<media::ProjectDocument>(context()), name));
}

DocumentWindow* Application::openProject(const std::filesystem::path& file) {
    std::error_code error;
    auto absolute = std::filesystem::weakly_canonical(file, error);
    if (error) absolute = std::filesystem::absolute(file);
    for (DocumentWindow* window : windows())
        if (window->document().file() == absolute) return show(window);
    auto document = media::ProjectDocument::open(absolute, context());
    if (!document) {
        QMessageBox::warning(QApplication::activeWindow(),
                             QStringLiteral("Couldn't open the project"),
                             QString::fromStdString(document.error().message));
        return nullptr;
    }
    noteRecentFile(absolute);
    return show(new DocumentWindow(*this, std::move(document.value()), QString()));
}

void Application::openWithPanel(QWidget* parent) {
    if (auto file = panels_.chooseProject(parent)) openProject(*file);
}

void Application::openFiles(const std::vector<std::filesystem::path>& files) {
    OpenedFiles sorted = sortOpenedFiles(files);
    for (const auto& project : sorted.projects) openProject(project);
    if (!sorted.media.empty()) newDocument()->project().importURLs(sorted.media);
}

QStringList Application::recentFiles() const {
    QStringList files = QSettings().value(kRecentKey).toStringList();
    files.erase(std::remove_if(files.begin(), files.end(),
                               [](const QString& f) { return !QFileInfo::exists(f); }),
                files.end());
    return files;
}

void Application::noteRecentFile(const std::filesystem::path& file) {
    QString path = QString::fromStdString(file.string());
    QStringList files = QSettings().value(kRecentKey).toStringList();
    files.removeAll(path);
    files.prepend(path);
    while (files.size() > kMaxRecentFiles) files.removeLast();
    QSettings().setValue(kRecentKey, files);
    emit recentFilesChanged();
}

void Application::clearRecentFiles() {
    QSettings().remove(kRecentKey);
    emit recentFilesChanged();
}

void Application::checkForUpdates(QWidget*) {
    updates_->check(updateFeedUrl(), versionText());
}

void Application::openHelp() {
    QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(helpFile().string())));
}

void Application::showAbout(QWidget* parent) {
    QMessageBox::about(parent, QStringLiteral("About Vantrell"),
                       QStringLiteral("<b>Vantrell %1</b><p>Trim · Reorder · Combine · Export</p>")
                           .arg(versionText()));
}

void Application::quit() {
    for (DocumentWindow* window : windows())
        if (!window->close()) return;
    QCoreApplication::quit();
}

}  // namespace app
