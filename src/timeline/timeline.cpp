#include "timeline/timeline.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include <QApplication>
#include <QGestureEvent>
#include <QMenu>
#include <QNativeGestureEvent>
#include <QPainter>
#include <QPinchGesture>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QWheelEvent>

#include "timeline/clip_bar.h"
#include "timeline/drag_math.h"
#include "timeline/icons.h"
#include "timeline/playhead_slider.h"
#include "timeline/strip_overlay.h"
#include "timeline/time_ruler.h"
#include "timeline/timeline_accessibility.h"
#include "timeline/timeline_labels.h"
#include "timeline/timeline_style.h"
#include "timeline/track_row.h"

namespace timeline {

namespace {

constexpr int kOuterPadding = 6;
// How near the strip's edge, in points, a drag starts scrolling it, and the fastest step.
constexpr double kAutoScrollZone = 24;
constexpr double kAutoScrollMaxStep = 40;

int scrollBarExtent(const QWidget* w) {
    return w->style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, w);
}

}  // namespace

Timeline::Timeline(model::Project& project, QWidget* parent) : QWidget(parent), project_(project) {
    installTimelineAccessibility();
    setFocusPolicy(Qt::ClickFocus);

    strip_ = new QScrollArea(this);
    strip_->setFrameShape(QFrame::NoFrame);
    strip_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    strip_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    strip_->setWidgetResizable(false);
    strip_->viewport()->grabGesture(Qt::PinchGesture);
    connect(strip_->horizontalScrollBar(), &QScrollBar::valueChanged, this,
            [this] { placeThumb(); });

    content_ = new QWidget;
    slider_ = new PlayheadSlider(content_);
    ruler_ = new TimeRuler(content_);
    slider_->onScrub = [this](double x) { scrubTo(x); };
    ruler_->onScrub = [this](double x) { scrubTo(x); };
    auto hooks = [this](bool isAudioRow) {
        TrackRow::Hooks h;
        h.ensureSynced = [this] { ensureSynced(); };
        h.makeBar = [this, isAudioRow](const common::Uuid& id) { return makeBar(id, isAudioRow); };
        h.onContextMenu = [this](const common::Uuid& id, QPoint at) { showClipMenu(id, at); };
        h.onGapTap = [this](const model::GapSelection& g) { project_.selectGap(g); };
        h.onCollapse = [this] { project_.collapseSelectedGap(); };
        h.onDragPointer = [this](QPoint at) { dragPointer(at); };
        h.onDragEnd = [this] { autoScroll_.stop(); };
        return h;
    };
    videoRow_ = new TrackRow(false, cache_, hooks(false), content_);
    audioRow_ = new TrackRow(true, cache_, hooks(true), content_);
    overlay_ = new StripOverlay(content_);
    strip_->setWidget(content_);

    thumb_ = new PlayheadThumb(this);
    thumb_->value = [this] {
        return playheadAccessibilityValue(project_.playheadGlobal(),
                                          project_.totalDurationSeconds());
    };
    thumb_->increment = [this] {
        project_.setPlayheadGlobal(
            std::min(project_.playheadGlobal() + 1, project_.totalDurationSeconds()));
    };
    thumb_->decrement = [this] {
        project_.setPlayheadGlobal(std::max(project_.playheadGlobal() - 1, 0.0));
    };

    autoScroll_.setInterval(16);
    connect(&autoScroll_, &QTimer::timeout, this, &Timeline::autoScrollStep);

    setMinimumHeight(static_cast<int>(kTotalHeight) + 2 * kOuterPadding + scrollBarExtent(this));
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    observer_ = project_.addObserver([this](model::ProjectField f) { projectChanged(f); });
    sync();
}

Timeline::~Timeline() {
    project_.removeObserver(observer_);
    if (filterInstalled_) qApp->removeEventFilter(this);
    delete bubble_;
}

QWidget* Timeline::ruler() const {
    return ruler_;
}
QWidget* Timeline::slider() const {
    return slider_;
}

TrimReadoutBubble* Timeline::readoutBubble() {
    ensureSynced();
    return bubble_ && bubble_->isVisible() ? bubble_.data() : nullptr;
}

StripLayout Timeline::stripLayout() {
    ensureSynced();
    return layout_;
}

void Timeline::projectChanged(model::ProjectField field) {
    using F = model::ProjectField;
    switch (field) {
        case F::zoomFactor:
            // Pictures scaled for the old zoom are of no further use.
            cache_.clear();
            dirty_ = true;
            break;
        case F::clips:
            clipsChanged_ = true;
            dirty_ = true;
            break;
        case F::selectedClipIDs:
        case F::selectedGap:
        case F::playheadGlobal:
        case F::trimSnappedClipID:
            dirty_ = true;
            break;
        case F::trimReadout:
        case F::dragLandingX:
            // Only the marks over the rows: a move writes these on every step.
            marksDirty_ = true;
            break;
        default:
            return;
    }
    if (!syncPosted_) {
        syncPosted_ = true;
        QMetaObject::invokeMethod(
            this,
            [this] {
                syncPosted_ = false;
                ensureSynced();
            },
            Qt::QueuedConnection);
    }
}

void Timeline::ensureSynced() {
    if (dirty_)
        sync();
    else if (marksDirty_)
        syncMarks();
}

void Timeline::syncMarks() {
    marksDirty_ = false;
    overlay_->setState({layout_.pxPerSec, project_.playheadGlobal(),
                        !project_.hasVideoContent() && !project_.clips().empty(),
                        project_.dragLandingX()});
    syncReadout();
}

void Timeline::sync() {
    dirty_ = false;
    const double total = project_.totalDurationSeconds();
    layout_ = timeline::stripLayout(width(), total, project_.zoomFactor());
    const int cw = static_cast<int>(std::ceil(layout_.contentWidth));
    const int th = static_cast<int>(kTotalHeight);
    content_->setFixedSize(cw, th);
    slider_->setGeometry(0, 0, cw, static_cast<int>(kSliderHeight));
    ruler_->setGeometry(0, static_cast<int>(kSliderHeight), cw, static_cast<int>(kRulerHeight));
    const int rowsTop = static_cast<int>(kSliderHeight + kRulerHeight);
    videoRow_->setGeometry(0, rowsTop, cw, static_cast<int>(kTrackHeight));
    audioRow_->setGeometry(0, rowsTop + static_cast<int>(kTrackHeight + kTrackGap), cw,
                           static_cast<int>(kTrackHeight));
    overlay_->setGeometry(0, 0, cw, th);
    overlay_->raise();

    const double playhead = project_.playheadGlobal();
    slider_->setFillWidth(layout_.pxPerSec * playhead);
    ruler_->setScale(layout_.pxPerSec, layout_.fitDuration);
    syncRow(*videoRow_);
    syncRow(*audioRow_);
    if (clipsChanged_) {
        clipsChanged_ = false;
        std::unordered_set<common::Uuid> ids;
        for (const auto& c : project_.clips()) ids.insert(c.id);
        cache_.prune([&](const common::Uuid& id) { return ids.count(id) > 0; });
    }
    placeThumb();
    syncMarks();
}

void Timeline::syncRow(TrackRow& row) {
    const bool audio = row.isAudioRow();
    const double pps = layout_.pxPerSec;
    const double playhead = project_.playheadGlobal();
    const auto& selected = project_.selectedClipIDs();
    const auto& snapped = project_.trimSnappedClipID();
    row.beginSync();
    const auto& clips = project_.clips();
    for (std::size_t i = 0; i < clips.size(); ++i) {
        const model::Clip& c = clips[i];
        if (!(audio ? c.isOnAudioRow() : c.isOnVideoRow())) continue;
        const bool isSelected = selected.count(c.id) > 0;
        const BarGeometry g = barGeometry(c, pps);
        ClipBarValues v;
        v.clipID = c.id;
        v.xOffset = g.xOffset;
        v.width = g.width;
        v.selected = isSelected;
        v.underPlayhead = c.startOnTimeline <= playhead && playhead < c.timelineEnd();
        v.snapHighlight = snapped && *snapped == c.id;
        v.pxPerSecond = pps;
        v.fullDurationSeconds = c.fullDurationSeconds;
        v.inSeconds = c.inSeconds;
        v.outSeconds = c.outSeconds;
        v.globalStart = c.startOnTimeline;
        v.hasVideo = c.hasVideo;
        v.linkState = model::linkState(c);
        v.isReversing = c.isReversed && !c.reversedURL;
        v.isReversed = c.isReversed && c.reversedURL.has_value();
        v.isMissing = c.isMissing;
        v.playheadGlobal = playhead;
        row.setBar(c, barZ(isSelected, static_cast<int>(i)), v);
    }
    row.setGaps(project_.gaps(audio), project_.selectedGap(), pps);
    row.endSync();
}

std::unique_ptr<ClipBar> Timeline::makeBar(const common::Uuid& id, bool isAudioRow) {
    ClipBarCallbacks cb;
    model::Project& p = project_;
    cb.onRelink = [this, id] {
        if (onRelinkRequested) onRelinkRequested(id);
    };
    cb.onTap = [&p, id, isAudioRow] {
        if (QApplication::keyboardModifiers() & (Qt::ShiftModifier | Qt::ControlModifier))
            p.toggleSelection(id);
        else
            p.cycleSelection(id, isAudioRow);
    };
    cb.onPickup = [&p, id] { p.setSelectedClipID(id); };
    cb.onResizeIn = [&p, id](double s) { p.setIn(id, s); };
    cb.onResizeOut = [&p, id](double s) { p.setOut(id, s); };
    cb.onMove = [this, id, isAudioRow](double delta) {
        // The start the bar was built with: a move changes nothing until it ends.
        ClipBar* bar = row(isAudioRow)->barFor(id);
        double start = bar ? bar->values().globalStart : project_.globalStart(id);
        double pps = bar ? bar->values().pxPerSecond : layout_.pxPerSec;
        project_.moveClip(id, delta / pps + start);
    };
    cb.onMoveLive = [&p](double x) { p.setDragLandingX(x >= 0 ? std::optional(x) : std::nullopt); };
    cb.onCommit = [&p] { p.commitEdit(); };
    cb.onDragBegin = [&p](const std::string& name) { p.recordSnapshot(name); };
    cb.onTrimReadout = [&p](std::optional<model::TrimReadoutInfo> info) {
        p.setTrimReadout(std::move(info));
    };
    cb.onTrimPreview = [&p](std::optional<model::TrimPreviewState> s) {
        p.setTrimPreview(std::move(s));
    };
    cb.onSnap = [&p](std::optional<common::Uuid> snapped) { p.setTrimSnappedClipID(snapped); };
    cb.onSnapQuery = [&p, id](double time, double tolerance) {
        return nearestSnap(p.snapTargets(id), time, tolerance);
    };
    cb.onLinkToggle = [&p, id] { p.toggleLinkAV(id); };
    cb.onCancel = [&p] { p.cancelEdit(); };
    return std::make_unique<ClipBar>(std::move(cb));
}

void Timeline::scrubTo(double x) {
    ensureSynced();
    if (project_.isPlaying()) project_.setIsPlaying(false);
    project_.setPlayheadGlobal(scrubSeconds(x, layout_.pxPerSec, project_.totalDurationSeconds()));
}

void Timeline::placeThumb() {
    auto x = thumbCentreX(layout_.pxPerSec, project_.playheadGlobal(),
                          strip_->horizontalScrollBar()->value(), layout_.axisAvail);
    thumb_->setVisible(x.has_value());
    if (!x) return;
    QPoint centre(static_cast<int>(std::lround(*x)),
                  static_cast<int>(std::lround(kOuterPadding + kSliderHeight / 2)));
    thumb_->move(centre - QPoint(thumb_->width() / 2, thumb_->height() / 2));
    thumb_->raise();
}

void Timeline::syncReadout() {
    const auto& info = project_.trimReadout();
    if (!info) {
        if (bubble_) bubble_->hide();
        return;
    }
    QWidget* host = window();
    if (!bubble_ || bubble_->parentWidget() != host) {
        delete bubble_;
        bubble_ = new TrimReadoutBubble(host);
    }
    const model::Clip* clip = project_.clip(info->clipID);
    bubble_->setInfo(*info, clip ? std::optional(clip->url) : std::nullopt, onTrimFrameRequested);
    // Above the strip, outside its bounds; kept inside the window so that it stays visible.
    QPoint at = content_->mapTo(host, readoutBubbleOrigin(info->cursorX).toPoint());
    at.setY(std::max(at.y(), 0));
    at.setX(std::clamp(at.x(), 0, std::max(host->width() - bubble_->width(), 0)));
    bubble_->move(at);
    bubble_->show();
    bubble_->raise();
}

void Timeline::showClipMenu(const common::Uuid& id, QPoint globalPos) {
    const model::Clip* clip = project_.clip(id);
    if (!clip) return;
    delete menu_;
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu_ = menu;
    model::Project& p = project_;
    auto select = [&p, id] { p.setSelectedClipID(id); };
    const bool editing = !p.isPresentingSheet();
    auto add = [&](const QString& title, std::function<void()> action, bool enabled = true) {
        QAction* a = menu->addAction(title);
        a->setEnabled(enabled);
        connect(a, &QAction::triggered, this, [action = std::move(action)] { action(); });
        return a;
    };

    auto addDelete = [&] {
        add(
            "Delete Clip",
            [&p, select] {
                select();
                p.deleteSelected();
            },
            editing);
    };

    if (clip->isMissing) {
        add("Locate File…", [this, id] {
            if (onRelinkRequested) onRelinkRequested(id);
        });
        menu->addSeparator();
        addDelete();
    } else {
        add(
            "Split at Playhead",
            [&p, select] {
                select();
                p.splitAtPlayhead();
            },
            editing);
        add(
            "Set In",
            [&p, select] {
                select();
                p.setInAtPlayhead();
            },
            editing);
        add(
            "Set Out",
            [&p, select] {
                select();
                p.setOutAtPlayhead();
            },
            editing);
        auto link = model::linkState(*clip);
        if (link != model::ClipLinkState::none) {
            menu->addSeparator();
            add(
                link == model::ClipLinkState::unlinked ? "Re-link Audio" : "Unlink Audio",
                [&p, select, id] {
                    select();
                    p.toggleLinkAV(id);
                },
                editing);
        }
        menu->addSeparator();
        // Reverse and Retime act on a whole selection that already holds the clip.
        auto selectUnlessSelected = [&p, id] {
            if (!p.selectedClipIDs().count(id)) p.setSelectedClipID(id);
        };
        QAction* reverse = add(
            "Reverse",
            [&p, selectUnlessSelected] {
                selectUnlessSelected();
                p.reverseSelected();
            },
            editing);
        reverse->setCheckable(true);
        reverse->setChecked(clip->isReversed);
        add(
            "Retime…",
            [&p, selectUnlessSelected] {
                selectUnlessSelected();
                p.setShowRetimeSheet(true);
            },
            editing);
        menu->addSeparator();
        add("Cut", [&p, select] {
            select();
            if (p.selectedClipIDs().empty()) return;
            p.copySelection();
            p.recordSnapshot("Cut");
            p.deleteSelected(std::nullopt);
        });
        add("Copy", [&p, select] {
            select();
            p.copySelection();
        });
        add("Paste", [&p] { p.pasteAtPlayhead(); });
        menu->addSeparator();
        addDelete();
    }
    menu->popup(globalPos);
}

void Timeline::dragPointer(QPoint globalPos) {
    lastDragGlobal_ = globalPos;
    const double x = strip_->viewport()->mapFromGlobal(globalPos).x();
    const double w = strip_->viewport()->width();
    if ((x < kAutoScrollZone || x > w - kAutoScrollZone) && !autoScroll_.isActive())
        autoScroll_.start();
}

void Timeline::autoScrollStep() {
    TrackRow* dragging = videoRow_->isDragging()   ? videoRow_
                         : audioRow_->isDragging() ? audioRow_
                                                   : nullptr;
    const double x = strip_->viewport()->mapFromGlobal(lastDragGlobal_).x();
    const double w = strip_->viewport()->width();
    // Faster the further the pointer is past the zone's inner edge.
    double depth = x < kAutoScrollZone       ? x - kAutoScrollZone
                   : x > w - kAutoScrollZone ? x - (w - kAutoScrollZone)
                                             : 0;
    if (!dragging || depth == 0) {
        autoScroll_.stop();
        return;
    }
    double step = std::clamp(depth / 2, -kAutoScrollMaxStep, kAutoScrollMaxStep);
    step = step < 0 ? std::min(step, -2.0) : std::max(step, 2.0);
    QScrollBar* bar = strip_->horizontalScrollBar();
    int before = bar->value();
    bar->setValue(before + static_cast<int>(std::lround(step)));
    if (bar->value() != before) dragging->redragAt(lastDragGlobal_);
}

void Timeline::paintEvent(QPaintEvent*) {
    QPainter p(this);
    const double rowsTop = kOuterPadding + kSliderHeight + kRulerHeight;
    drawFilmSymbol(p, QRectF(2, rowsTop + (kTrackHeight - 18) / 2, 18, 18), tertiaryColor());
    drawWaveformSymbol(
        p, QRectF(2, rowsTop + kTrackHeight + kTrackGap + (kTrackHeight - 20) / 2, 20, 20),
        tertiaryColor());
}

void Timeline::resizeEvent(QResizeEvent*) {
    strip_->setGeometry(static_cast<int>(kGutter), kOuterPadding,
                        std::max(width() - static_cast<int>(kGutter), 1),
                        static_cast<int>(kTotalHeight) + scrollBarExtent(this));
    sync();
}

void Timeline::showEvent(QShowEvent*) {
    if (!filterInstalled_) {
        qApp->installEventFilter(this);
        filterInstalled_ = true;
    }
}

void Timeline::hideEvent(QHideEvent*) {
    if (filterInstalled_) {
        qApp->removeEventFilter(this);
        filterInstalled_ = false;
    }
}

bool Timeline::isInStrip(QObject* watched) const {
    auto* w = qobject_cast<QWidget*>(watched);
    return w && (w == strip_ || strip_->isAncestorOf(w));
}

bool Timeline::eventFilter(QObject* watched, QEvent* event) {
    bool taken = false;
    switch (event->type()) {
        case QEvent::Wheel:
            taken = zoomByWheel(watched, event) || scrollByWheel(watched, event);
            break;
        case QEvent::NativeGesture:
        case QEvent::Gesture:
            taken = zoomByPinch(watched, event);
            break;
        default:
            break;
    }
    // Accepted too, or Qt offers the event to each parent in turn, and this filter with it.
    if (taken) event->accept();
    return taken;
}

bool Timeline::zoomByWheel(QObject*, QEvent* event) {
    auto* wheel = static_cast<QWheelEvent*>(event);
    if (!(wheel->modifiers() & Qt::ControlModifier)) return false;
    // Application-wide: Ctrl+scroll zooms wherever the pointer is. The write is posted so that
    // several events of one turn apply in order, each to the zoom the one before left.
    double deltaY = wheelDeltaPoints(wheel->pixelDelta().y(), wheel->angleDelta().y());
    QMetaObject::invokeMethod(
        this, [this, deltaY] { project_.setZoom(wheelZoom(project_.zoomFactor(), deltaY)); },
        Qt::QueuedConnection);
    return true;
}

bool Timeline::scrollByWheel(QObject* watched, QEvent* event) {
    if (watched != strip_->viewport() && !isInStrip(watched)) return false;
    auto* wheel = static_cast<QWheelEvent*>(event);
    QPoint angle = wheel->angleDelta();
    if (std::abs(angle.x()) >= std::abs(angle.y())) return false;
    QScrollBar* bar = strip_->horizontalScrollBar();
    int delta = !wheel->pixelDelta().isNull()
                    ? wheel->pixelDelta().y()
                    : angle.y() * QApplication::wheelScrollLines() * bar->singleStep() / 120;
    bar->setValue(bar->value() - delta);
    return true;
}

bool Timeline::zoomByPinch(QObject* watched, QEvent* event) {
    if (!isInStrip(watched)) return false;
    if (event->type() == QEvent::NativeGesture) {
        auto* g = static_cast<QNativeGestureEvent*>(event);
        switch (g->gestureType()) {
            case Qt::BeginNativeGesture:
                nativeScale_ = 1.0;
                lastMagnification_ = 1.0;
                return false;
            case Qt::ZoomNativeGesture: {
                // Qt reports each step's scale change; the cumulative scale is their product.
                nativeScale_ *= 1 + g->value();
                project_.setZoom(
                    pinchZoom(project_.zoomFactor(), nativeScale_, lastMagnification_));
                lastMagnification_ = nativeScale_;
                return true;
            }
            case Qt::EndNativeGesture:
                lastMagnification_ = 1.0;
                nativeScale_ = 1.0;
                return false;
            default:
                return false;
        }
    }
    auto* g = static_cast<QGestureEvent*>(event);
    auto* pinch = static_cast<QPinchGesture*>(g->gesture(Qt::PinchGesture));
    if (!pinch) return false;
    if (pinch->state() == Qt::GestureStarted) lastMagnification_ = 1.0;
    double scale = pinch->totalScaleFactor();
    project_.setZoom(pinchZoom(project_.zoomFactor(), scale, lastMagnification_));
    lastMagnification_ = scale;
    if (pinch->state() == Qt::GestureFinished || pinch->state() == Qt::GestureCanceled)
        lastMagnification_ = 1.0;
    g->accept(pinch);
    return true;
}

}  // namespace timeline
