#include "timeline/trim_readout_bubble.h"

#include <QDateTime>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>

#include "timeline/picture_cache.h"
#include "timeline/row_painting.h"
#include "timeline/timeline_labels.h"
#include "timeline/timeline_style.h"

namespace timeline {

namespace {

constexpr int kPadding = 6;
constexpr int kSpacing = 4;
constexpr int kTileW = 160;
constexpr int kTileH = 90;

QFont labelFont() {
    QFont f = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    f.setPixelSize(11);
    f.setBold(true);
    return f;
}

QFont edgeFont() {
    QFont f;
    f.setPixelSize(9);
    return f;
}

}  // namespace

TrimReadoutBubble::TrimReadoutBubble(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    spinner_.setInterval(33);
    connect(&spinner_, &QTimer::timeout, this, qOverload<>(&QWidget::update));
}

QString TrimReadoutBubble::text() const {
    return info_ ? trimReadoutText(info_->absoluteClipSeconds, info_->timelineSeconds) : QString();
}

void TrimReadoutBubble::setInfo(const model::TrimReadoutInfo& info,
                                const std::optional<std::filesystem::path>& url,
                                const FrameRequester& request) {
    bool secondsChanged = !info_ || info_->absoluteClipSeconds != info.absoluteClipSeconds ||
                          info_->clipID != info.clipID;
    if (!info_ || info_->clipID != info.clipID) frame_.reset();
    info_ = info;

    QFontMetricsF label(labelFont());
    int w = static_cast<int>(std::ceil(label.horizontalAdvance(text())));
    int h = static_cast<int>(std::ceil(label.height() + 1 + QFontMetricsF(edgeFont()).height()));
    if (info.hasVideo) {
        w = std::max(w, kTileW);
        h += kTileH + kSpacing;
    }
    resize(w + 2 * kPadding, h + 2 * kPadding);

    if (secondsChanged && info.hasVideo && url && request) {
        int token = ++requestToken_;
        QPointer<TrimReadoutBubble> self(this);
        request(*url, info.absoluteClipSeconds, [self, token](model::Image image) {
            if (!self || token != self->requestToken_) return;
            self->frame_ = std::move(image);
            self->update();
        });
    }
    if (info.hasVideo && !frame_ && !reduceMotion())
        spinner_.start();
    else
        spinner_.stop();
    update();
}

void TrimReadoutBubble::hideEvent(QHideEvent*) {
    // A new trim starts with the spinner, not with the last trim's frame.
    spinner_.stop();
    info_.reset();
    frame_.reset();
}

void TrimReadoutBubble::paintEvent(QPaintEvent*) {
    if (!info_) return;
    if (frame_) spinner_.stop();
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    paintInBands(p, rect(), [&] {
        p.setPen(QPen(primaryColor(0.15), 0.5));
        p.setBrush(withOpacity(palette().color(QPalette::Window), 0.94));
        p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 6, 6);
    });

    double y = kPadding;
    if (info_->hasVideo) {
        QRectF tile(kPadding, y, kTileW, kTileH);
        QPainterPath shape;
        shape.addRoundedRect(tile, 4, 4);
        p.fillPath(shape, Qt::black);
        if (frame_) {
            QImage image = wrapImage(*frame_);
            QSizeF fitted = QSizeF(image.size()).scaled(tile.size(), Qt::KeepAspectRatio);
            QRectF target(QPointF(0, 0), fitted);
            target.moveCenter(tile.center());
            p.save();
            p.setClipPath(shape);
            p.drawImage(target, image);
            p.restore();
        } else {
            double phase =
                reduceMotion()
                    ? 0
                    : static_cast<double>(QDateTime::currentMSecsSinceEpoch() % 1000) / 1000.0;
            QRectF spin(0, 0, 16, 16);
            spin.moveCenter(tile.center());
            paintSpinningArc(p, spin, Qt::white, 2, phase);
        }
        p.setPen(QPen(primaryColor(0.18), 0.5));
        p.setBrush(Qt::NoBrush);
        p.drawPath(shape);
        y += kTileH + kSpacing;
    }
    QFontMetricsF label(labelFont());
    p.setFont(labelFont());
    p.setPen(primaryColor());
    p.drawText(QRectF(kPadding, y, width() - 2 * kPadding, label.height()),
               Qt::AlignLeft | Qt::AlignVCenter, text());
    y += label.height() + 1;
    p.setFont(edgeFont());
    p.setPen(secondaryColor());
    p.drawText(QRectF(kPadding, y, width() - 2 * kPadding, QFontMetricsF(edgeFont()).height()),
               Qt::AlignLeft | Qt::AlignVCenter,
               info_->edge == model::TrimReadoutInfo::Edge::in ? "In" : "Out");
}

}  // namespace timeline
