#include "timeline/strip_overlay.h"

#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>

#include "timeline/row_painting.h"
#include "timeline/timeline_geometry.h"
#include "timeline/timeline_style.h"

namespace timeline {

StripOverlay::StripOverlay(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

QRect StripOverlay::dirtyRect(const State& s) const {
    QRectF r = playheadLineRect(s.pxPerSec, s.playheadSeconds);
    if (s.showsAudioPreview) r |= audioPreviewWindowRect(s.pxPerSec, s.playheadSeconds);
    if (s.landingX) r |= landingIndicatorRect(*s.landingX);
    // The landing glow reaches 4 beyond its bar.
    return r.adjusted(-6, 0, 6, 0).toAlignedRect();
}

void StripOverlay::setState(const State& state) {
    if (state == state_) return;
    if (state.pxPerSec != state_.pxPerSec) {
        update();
    } else {
        // A moving playhead repaints only where the marks were and are.
        update(dirtyRect(state_));
        update(dirtyRect(state));
    }
    state_ = state;
}

void StripOverlay::paintEvent(QPaintEvent* event) {
    QPainter p(this);
    paintInBands(p, event->rect(), [&] { paintMarks(p); });
}

void StripOverlay::paintMarks(QPainter& p) {
    const State& s = state_;
    if (s.showsAudioPreview) {
        p.setRenderHint(QPainter::Antialiasing);
        QRectF window = audioPreviewWindowRect(s.pxPerSec, s.playheadSeconds);
        p.setPen(QPen(accentColor(0.45), 1));
        p.setBrush(accentColor(0.12));
        p.drawRoundedRect(window.adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
        p.setRenderHint(QPainter::Antialiasing, false);
    }
    p.fillRect(playheadLineRect(s.pxPerSec, s.playheadSeconds), accentColor(0.95));
    if (s.landingX) {
        QRectF bar = landingIndicatorRect(*s.landingX);
        for (int ring = 4; ring >= 1; --ring)
            p.fillRect(bar.adjusted(-ring, 0, ring, 0), accentColor(0.6 / 4));
        p.fillRect(bar, accentColor(0.9));
    }
}

}  // namespace timeline
