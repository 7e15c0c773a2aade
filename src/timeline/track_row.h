#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include <QElapsedTimer>
#include <QRegion>
#include <QTimer>
#include <QWidget>

#include "common/uuid.h"
#include "model/clip.h"
#include "model/project_types.h"
#include "timeline/clip_bar.h"

namespace timeline {

class PictureCache;

// One row of the timeline (video or audio): its gap bars under its clip bars, painted in one
// widget, with the pointer handed to the bar under it. The bars are kept by clip id across
// updates, so that a drag survives the edits it makes. The timeline fills the row through
// beginSync, bar, setGaps and endSync whenever the project changes. UI thread only.
class TrackRow : public QWidget {
    Q_OBJECT

  public:
    struct Hooks {
        // Brings the row up to date with the project before it is read.
        std::function<void()> ensureSynced;
        std::function<std::unique_ptr<ClipBar>(const common::Uuid&)> makeBar;
        std::function<void(const common::Uuid&, QPoint globalPos)> onContextMenu;
        std::function<void(const model::GapSelection&)> onGapTap;
        std::function<void()> onCollapse;
        // The pointer during a drag, and the drag's end, for scrolling at the strip's edges.
        std::function<void(QPoint globalPos)> onDragPointer;
        std::function<void()> onDragEnd;
    };

    TrackRow(bool isAudioRow, PictureCache& cache, Hooks hooks, QWidget* parent = nullptr);

    bool isAudioRow() const { return isAudioRow_; }

    // Between these, setBar is called for each clip of the row in stacking order.
    void beginSync();
    // Shows `clip` with `values`, making its bar on first use; `clip` must stay valid until
    // the next sync. Only what changed is painted again.
    void setBar(const model::Clip& clip, int z, const ClipBarValues& values);
    void setGaps(std::vector<model::GapSelection> gaps,
                 const std::optional<model::GapSelection>& selected, double pxPerSec);
    void endSync();

    ClipBar* barFor(const common::Uuid& id);
    const std::vector<model::GapSelection>& gaps() const { return gaps_; }
    const std::optional<std::size_t>& selectedGapIndex() const { return selectedGap_; }
    QRectF gapRect(std::size_t i) const { return gapRects_.at(i); }

    // The running drag follows the pointer at `globalPos` again, after the strip scrolled.
    void redragAt(QPoint globalPos);
    bool isDragging() const;
    bool cancelDrag();

    // Bars in paint order (bottom first), for accessibility.
    std::vector<ClipBar*> barsInOrder() const;
    void ensureSynced() { hooks_.ensureSynced(); }
    void tapGap(std::size_t i) { hooks_.onGapTap(gaps_.at(i)); }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool event(QEvent* event) override;

  private:
    struct Entry {
        std::unique_ptr<ClipBar> bar;
        const model::Clip* clip = nullptr;
        int z = 0;
        std::uint64_t generation = 0;  // the last sync that named this bar
        // What the bar's pictures were painted from, to notice enrichment landing.
        std::size_t filmstrip = 0;
        const void* pictures = nullptr;
        const void* thumbnail = nullptr;
    };
    std::optional<common::Uuid> barAt(QPointF p) const;
    void setHovered(std::optional<common::Uuid> id, QPointF p);
    void updateBar(const ClipBar* bar);
    void markDirty(const QRect& r);
    void animate();

    bool isAudioRow_;
    PictureCache& cache_;
    Hooks hooks_;
    std::unordered_map<common::Uuid, Entry> entries_;
    std::vector<Entry*> order_;  // paint order, bottom first
    std::uint64_t generation_ = 0;
    QRegion dirty_;  // what this sync changed
    int dirtyCount_ = 0;
    std::vector<model::GapSelection> gaps_;
    std::vector<QRectF> gapRects_;
    std::optional<std::size_t> selectedGap_;
    std::optional<common::Uuid> active_;  // the bar under a pressed button
    std::optional<common::Uuid> hovered_;
    std::optional<std::size_t> pressedGap_;
    bool pressedCollapse_ = false;
    QTimer animation_;
    QElapsedTimer spinClock_;
};

}  // namespace timeline
