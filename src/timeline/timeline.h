#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QMenu>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include "common/uuid.h"
#include "model/project.h"
#include "timeline/picture_cache.h"
#include "timeline/timeline_geometry.h"
#include "timeline/trim_readout_bubble.h"

class QScrollArea;

namespace timeline {

class ClipBar;
class PlayheadSlider;
class PlayheadThumb;
class StripOverlay;
class TimeRuler;
class TrackRow;

// The timeline: an icon gutter beside one horizontally scrolling strip that holds the playhead
// slider, the time ruler, the video row and the audio row. It observes its project for as
// long as it lives, re-reads it when told of a change, and edits only through the project's
// operations. While shown it takes Ctrl+scroll anywhere in the application as zoom. UI thread
// only; the project must outlive it.
class Timeline : public QWidget {
    Q_OBJECT

  public:
    explicit Timeline(model::Project& project, QWidget* parent = nullptr);
    ~Timeline() override;

    // The "Locate…" button and "Locate File…" of a missing clip: the owner asks for the file
    // and calls the project's relinkClip.
    std::function<void(const common::Uuid& clipID)> onRelinkRequested;
    // Fetches the trim bubble's frame; without it the bubble shows a spinner.
    FrameRequester onTrimFrameRequested;

    // The current geometry, brought up to date with the project first.
    StripLayout stripLayout();
    QScrollArea* strip() const { return strip_; }
    TrackRow* row(bool isAudioRow) const { return isAudioRow ? audioRow_ : videoRow_; }
    QWidget* ruler() const;
    QWidget* slider() const;
    PlayheadThumb* thumb() const { return thumb_; }
    // The trim bubble while a trim runs, else null.
    TrimReadoutBubble* readoutBubble();
    const PictureCache& pictureCache() const { return cache_; }
    // The context menu that is open, if any.
    QMenu* openMenu() const { return menu_; }

    // Re-reads the project now if it changed since the last read.
    void ensureSynced();

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void projectChanged(model::ProjectField field);
    void sync();
    void syncRow(TrackRow& row);
    void syncMarks();
    void syncReadout();
    void placeThumb();
    std::unique_ptr<ClipBar> makeBar(const common::Uuid& id, bool isAudioRow);
    void showClipMenu(const common::Uuid& id, QPoint globalPos);
    void scrubTo(double x);
    void dragPointer(QPoint globalPos);
    void autoScrollStep();
    bool isInStrip(QObject* watched) const;
    bool zoomByWheel(QObject* watched, QEvent* event);
    bool scrollByWheel(QObject* watched, QEvent* event);
    bool zoomByPinch(QObject* watched, QEvent* event);

    model::Project& project_;
    model::Project::ObserverID observer_ = 0;
    PictureCache cache_;
    StripLayout layout_;
    bool dirty_ = true;        // everything
    bool marksDirty_ = false;  // the overlay's marks and the trim bubble
    bool clipsChanged_ = true;
    bool syncPosted_ = false;
    bool filterInstalled_ = false;
    double lastMagnification_ = 1.0;
    double nativeScale_ = 1.0;

    QScrollArea* strip_ = nullptr;
    QWidget* content_ = nullptr;
    PlayheadSlider* slider_ = nullptr;
    TimeRuler* ruler_ = nullptr;
    TrackRow* videoRow_ = nullptr;
    TrackRow* audioRow_ = nullptr;
    StripOverlay* overlay_ = nullptr;
    PlayheadThumb* thumb_ = nullptr;
    QPointer<TrimReadoutBubble> bubble_;
    QPointer<QMenu> menu_;

    QTimer autoScroll_;
    QPoint lastDragGlobal_;
};

}  // namespace timeline
