#pragma once

#include <QWidget>
#include <filesystem>
#include <functional>
#include <optional>

#include "model/project.h"

class QLabel;
class QMenu;
class QProgressBar;
class QPushButton;
class QToolButton;

namespace preview {
class PreviewView;
class AudioPreviewView;
class FooterReflection;
}  // namespace preview
namespace timeline {
class Timeline;
}

namespace app {

class CropOverlay;
class EmptyStateView;
class LcdTimecode;
class ProjectSignals;

// The root of a document window: the preview region over the footer (transport bar,
// timeline, status bar), the title strip with the document's path menu, and the drop
// target for files from file managers. It reads the project and calls its operations;
// what needs the window (panels, the clipboard's picture) it asks for through signals.
class ContentView final : public QWidget {
    Q_OBJECT

  public:
    ContentView(model::Project& project, ProjectSignals& projectSignals, QWidget* parent = nullptr);

    // The title and file the title strip shows.
    void setDocument(const QString& title, const std::optional<std::filesystem::path>& file);

    QPushButton* playButton() const { return play_; }
    QPushButton* exportButton() const { return export_; }
    QPushButton* cancelExportButton() const { return cancelExport_; }
    EmptyStateView* emptyState() const { return empty_; }
    LcdTimecode* lcd() const { return lcd_; }
    QLabel* statusLine() const { return status_; }
    timeline::Timeline* timelineView() const { return timeline_; }
    bool isTargetedForDrop() const { return targeted_; }
    int previewHeight() const;
    // The preview shows its first picture, or there is none to show at the playhead.
    bool showsFirstFrame() const;
    // Path menu items: the document and its folders, or "Unsaved Document".
    QMenu* pathMenu() const { return pathMenu_; }

  signals:
    void importRequested();
    void copyFrameRequested();
    void cancelExportRequested();
    void revealRequested(const std::filesystem::path& item);
    void relinkRequested(const common::Uuid& clipID);

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    QWidget* makePreviewRegion();
    QWidget* makeTransportBar();
    QWidget* makeStatusBar();
    void projectChanged(model::ProjectField field);
    void refreshTransport();
    void refreshStatus();
    void refreshLayers();
    void rebuildPathMenu();

    model::Project& project_;
    QString title_;
    std::optional<std::filesystem::path> file_;
    bool targeted_ = false;

    QWidget* dropHighlight_ = nullptr;
    QWidget* titleStrip_ = nullptr;
    QWidget* previewRegion_ = nullptr;
    preview::PreviewView* preview_ = nullptr;
    preview::AudioPreviewView* audioPreview_ = nullptr;
    CropOverlay* cropOverlay_ = nullptr;
    EmptyStateView* empty_ = nullptr;
    QWidget* footer_ = nullptr;
    timeline::Timeline* timeline_ = nullptr;
    QToolButton* titleButton_ = nullptr;
    QMenu* pathMenu_ = nullptr;
    QPushButton* play_ = nullptr;
    LcdTimecode* lcd_ = nullptr;
    QLabel* status_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QLabel* exportMessage_ = nullptr;
    QPushButton* cancelExport_ = nullptr;
    QPushButton* crop_ = nullptr;
    QPushButton* export_ = nullptr;
};

// The local files among the URLs of a drop, in their order.
std::vector<std::filesystem::path> droppedFiles(const QList<QUrl>& urls);

}  // namespace app
