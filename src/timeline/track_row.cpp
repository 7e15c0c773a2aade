#include "timeline/track_row.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>

#include "timeline/hit_testing.h"
#include "timeline/picture_cache.h"
#include "timeline/row_painting.h"
#include "timeline/timeline_geometry.h"
#include "timeline/timeline_style.h"

namespace timeline {

namespace {

// Scaling pictures anew in one paint of a row: with the other row and the bars, well inside a
// frame after a zoom change has emptied the cache; the rest comes in the next paints.
constexpr std::chrono::microseconds kScaleBudgetPerPaint{1500};

}  // namespace

TrackRow::TrackRow(bool isAudioRow, PictureCache& cache, Hooks hooks, QWidget* parent)
    : QWidget(parent), isAudioRow_(isAudioRow), cache_(cache), hooks_(std::move(hooks)) {
    setMouseTracking(true);
    setFocusPolicy(Qt::ClickFocus);
    setAttribute(Qt::WA_OpaquePaintEvent, false);
    animation_.setInterval(16);
    connect(&animation_, &QTimer::timeout, this, &TrackRow::animate);
    spinClock_.start();
}

void TrackRow::beginSync() {
    ++generation_;
    order_.clear();
    order_.reserve(entries_.size());
}

void TrackRow::setBar(const model::Clip& clip, int z, const ClipBarValues& values) {
    auto [it, made] = entries_.try_emplace(clip.id);
    Entry& entry = it->second;
    if (made) entry.bar = hooks_.makeBar(clip.id);
    QRectF before = entry.bar->paintedRect();
    // A clip's pictures may change without its bar's values: enrichment writes in place.
    bool changed = entry.bar->setValues(values, clip.url) || made || entry.z != z ||
                   entry.clip != &clip || entry.filmstrip != clip.filmstrip.size() ||
                   entry.pictures != clip.waveformPeaks.get() ||
                   entry.thumbnail != clip.thumbnail.get();
    if (changed) {
        if (!made) markDirty(before.toAlignedRect());
        markDirty(entry.bar->paintedRect().toAlignedRect());
    }
    entry.clip = &clip;
    entry.z = z;
    entry.filmstrip = clip.filmstrip.size();
    entry.pictures = clip.waveformPeaks.get();
    entry.thumbnail = clip.thumbnail.get();
    entry.generation = generation_;
    order_.push_back(&entry);
}

void TrackRow::markDirty(const QRect& r) {
    // Past a few dozen rects a region costs more to build than the paint it saves.
    if (++dirtyCount_ > 32)
        dirty_ = rect();
    else
        dirty_ += r;
}

void TrackRow::updateBar(const ClipBar* bar) {
    if (bar) update(bar->paintedRect().toAlignedRect());
}

void TrackRow::setGaps(std::vector<model::GapSelection> gaps,
                       const std::optional<model::GapSelection>& selected, double pxPerSec) {
    std::optional<QRectF> selectedBefore;
    if (selectedGap_) selectedBefore = gapRects_[*selectedGap_];
    gaps_ = std::move(gaps);
    gapRects_.clear();
    selectedGap_.reset();
    for (std::size_t i = 0; i < gaps_.size(); ++i) {
        gapRects_.push_back(gapBarRect(gaps_[i], pxPerSec));
        if (selected && *selected == gaps_[i]) selectedGap_ = i;
    }
    // Only a selected gap shows anything.
    std::optional<QRectF> selectedAfter;
    if (selectedGap_) selectedAfter = gapRects_[*selectedGap_];
    if (selectedBefore != selectedAfter) {
        if (selectedBefore) markDirty(selectedBefore->toAlignedRect());
        if (selectedAfter) markDirty(selectedAfter->toAlignedRect());
    }
}

void TrackRow::endSync() {
    // A bar whose clip went away mid-drag (an undo, say) goes too: its clip is gone.
    if (entries_.size() != order_.size()) {
        std::erase_if(entries_, [&](const auto& e) {
            if (e.second.generation == generation_) return false;
            markDirty(e.second.bar->paintedRect().toAlignedRect());
            return true;
        });
        if (active_ && !entries_.count(*active_)) active_.reset();
        if (hovered_ && !entries_.count(*hovered_)) hovered_.reset();
    }
    // Bars came in stacking order; selected ones go over all others, keeping their order.
    std::stable_partition(order_.begin(), order_.end(),
                          [](const Entry* e) { return e->z < kSelectedZ; });
    animate();
    update(dirty_);
    dirty_ = QRegion();
    dirtyCount_ = 0;
}

ClipBar* TrackRow::barFor(const common::Uuid& id) {
    auto it = entries_.find(id);
    return it == entries_.end() ? nullptr : it->second.bar.get();
}

std::vector<ClipBar*> TrackRow::barsInOrder() const {
    std::vector<ClipBar*> bars;
    bars.reserve(order_.size());
    for (const Entry* e : order_) bars.push_back(e->bar.get());
    return bars;
}

std::optional<common::Uuid> TrackRow::barAt(QPointF p) const {
    std::vector<BarSlot> placed;
    placed.reserve(order_.size());
    for (const Entry* e : order_)
        placed.push_back({e->bar->drawnX(), e->bar->values().width, e->z});
    auto hit = topmostBarAt(placed, p);
    if (!hit) return std::nullopt;
    return order_[*hit]->bar->values().clipID;
}

void TrackRow::paintEvent(QPaintEvent* event) {
    hooks_.ensureSynced();
    cache_.beginPaint(kScaleBudgetPerPaint);
    QPainter p(this);
    const QRectF row(0, 0, width(), height());
    const QRectF exposed = QRectF(event->rect()).adjusted(-2, 0, 2, 0);
    p.setClipRect(exposed);
    paintInBands(p, row, [&] {
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor::fromRgbF(0, 0, 0, 0.22f));
        p.drawRoundedRect(row, 6, 6);
    });
    p.setRenderHint(QPainter::Antialiasing, false);
    // A half-point white line inside the edge, as a whole pixel at half the opacity.
    paintOutline(p, row, QColor::fromRgbF(1, 1, 1, 0.03f), 1);
    for (std::size_t i = 0; i < gapRects_.size(); ++i)
        if (gapRects_[i].intersects(exposed)) paintGapBar(p, gapRects_[i], selectedGap_ == i);

    const double phase =
        reduceMotion() ? 0 : std::fmod(static_cast<double>(spinClock_.elapsed()) / 1000.0, 1.0);
    for (const Entry* e : order_) {
        const ClipBar& bar = *e->bar;
        double x = bar.drawnX();
        double w = bar.values().width;
        // Bars narrower than a pixel still show, as a hairline.
        if (x + std::max(w, 1.0) + 6 < exposed.left() || x - 6 > exposed.right()) continue;
        const model::Clip& clip = *e->clip;
        bar.paint(
            p,
            [&](QPainter& painter, const QRectF& area) {
                if (isAudioRow_)
                    paintWaveformContent(painter, area, clip, cache_);
                else
                    paintFilmstripContent(painter, area, clip, cache_);
            },
            phase);
    }
    // Posted, as Qt advises against asking for an update from inside a paint.
    if (cache_.leftPicturesOut())
        QMetaObject::invokeMethod(this, qOverload<>(&QWidget::update), Qt::QueuedConnection);
}

void TrackRow::mousePressEvent(QMouseEvent* event) {
    hooks_.ensureSynced();
    const QPointF p = event->position();
    auto id = barAt(p);
    if (event->button() == Qt::RightButton) {
        if (id) hooks_.onContextMenu(*id, event->globalPosition().toPoint());
        return;
    }
    if (event->button() != Qt::LeftButton) return;
    setFocus(Qt::MouseFocusReason);
    if (id) {
        active_ = id;
        barFor(*id)->press(p);
        return;
    }
    pressedGap_ = gapAt(gapRects_, p);
    pressedCollapse_ = false;
    if (pressedGap_ && selectedGap_ == pressedGap_)
        if (auto button = collapseButtonRect(gapRects_[*pressedGap_]))
            pressedCollapse_ = button->contains(p);
}

void TrackRow::mouseMoveEvent(QMouseEvent* event) {
    hooks_.ensureSynced();
    const QPointF p = event->position();
    if (active_ && (event->buttons() & Qt::LeftButton)) {
        ClipBar* bar = barFor(*active_);
        if (!bar) return;
        updateBar(bar);
        bar->dragTo(p);
        updateBar(bar);
        setCursor(bar->hover(p));
        if (bar->isDragging()) hooks_.onDragPointer(event->globalPosition().toPoint());
        return;
    }
    if (event->buttons() != Qt::NoButton) return;
    setHovered(barAt(p), p);
}

void TrackRow::setHovered(std::optional<common::Uuid> id, QPointF p) {
    if (hovered_ != id) {
        if (hovered_)
            if (ClipBar* old = barFor(*hovered_)) {
                old->leave();
                updateBar(old);
            }
        hovered_ = id;
        animate();
    }
    if (ClipBar* bar = hovered_ ? barFor(*hovered_) : nullptr) {
        setCursor(bar->hover(p));
        updateBar(bar);
    } else {
        setCursor(Qt::ArrowCursor);
    }
}

void TrackRow::mouseReleaseEvent(QMouseEvent* event) {
    hooks_.ensureSynced();
    if (event->button() != Qt::LeftButton) return;
    const QPointF p = event->position();
    if (active_) {
        auto id = *active_;
        active_.reset();
        hooks_.onDragEnd();
        if (ClipBar* bar = barFor(id)) bar->release();
        return;
    }
    if (pressedGap_) {
        auto gap = gaps_.at(*pressedGap_);
        bool collapse = pressedCollapse_;
        pressedGap_.reset();
        if (collapse)
            hooks_.onCollapse();
        else if (gapAt(gapRects_, p))
            hooks_.onGapTap(gap);
    }
}

void TrackRow::leaveEvent(QEvent*) {
    if (active_) return;
    if (hovered_)
        if (ClipBar* bar = barFor(*hovered_)) {
            bar->leave();
            updateBar(bar);
        }
    hovered_.reset();
    setCursor(Qt::ArrowCursor);
    animate();
}

void TrackRow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape && cancelDrag()) return;
    if ((event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) &&
        event->modifiers() == Qt::NoModifier && selectedGap_ &&
        collapseButtonRect(gapRects_[*selectedGap_])) {
        hooks_.onCollapse();
        return;
    }
    QWidget::keyPressEvent(event);
}

bool TrackRow::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip) return QWidget::event(event);
    auto* help = static_cast<QHelpEvent*>(event);
    hooks_.ensureSynced();
    QString text;
    if (auto id = barAt(help->pos())) text = barFor(*id)->toolTipAt(help->pos());
    if (text.isEmpty())
        QToolTip::hideText();
    else
        QToolTip::showText(help->globalPos(), text, this);
    return true;
}

void TrackRow::redragAt(QPoint globalPos) {
    hooks_.ensureSynced();
    if (!active_) return;
    if (ClipBar* bar = barFor(*active_)) {
        updateBar(bar);
        bar->dragTo(mapFromGlobal(QPointF(globalPos)));
        updateBar(bar);
    }
}

bool TrackRow::isDragging() const {
    if (!active_) return false;
    auto it = entries_.find(*active_);
    return it != entries_.end() && it->second.bar->isDragging();
}

bool TrackRow::cancelDrag() {
    hooks_.ensureSynced();
    if (!active_) return false;
    ClipBar* bar = barFor(*active_);
    updateBar(bar);
    if (!bar || !bar->cancel()) return false;
    hooks_.onDragEnd();
    updateBar(bar);
    return true;
}

void TrackRow::animate() {
    const bool reduced = reduceMotion();
    bool running = false;
    for (const Entry* e : order_) {
        double scale = e->bar->scale();
        bool moving = e->bar->stepScale(reduced);
        bool spinning = e->bar->values().isReversing && !reduced;
        if (moving || spinning || scale != e->bar->scale()) updateBar(e->bar.get());
        running = running || moving || spinning;
    }
    if (running && !animation_.isActive())
        animation_.start();
    else if (!running)
        animation_.stop();
}

}  // namespace timeline
