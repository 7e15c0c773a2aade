#include "preview/audio_preview_view.h"

#include <algorithm>

#include <QFontDatabase>
#include <QPainter>
#include <QPen>

#include "model/time_format.h"
#include "preview/waveform_window.h"

namespace preview {

AudioPreviewView::AudioPreviewView(model::Project& project, QWidget* parent)
    : QWidget(parent), project_(project) {
    observer_ = project_.addObserver([this](model::ProjectField field) {
        if (field == model::ProjectField::playheadGlobal || field == model::ProjectField::clips)
            update();
    });
}

AudioPreviewView::~AudioPreviewView() {
    project_.removeObserver(observer_);
}

void AudioPreviewView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const WaveformWindow window = waveformWindow(project_.playheadGlobal());
    for (const WaveformStroke& stroke :
         waveformStrokes(project_.clips(), window, width(), height())) {
        painter.setPen(QPen(waveColor(), stroke.lineWidth));
        painter.drawLines(stroke.lines.data(), static_cast<int>(stroke.lines.size()));
    }
    painter.fillRect(QRectF(width() / 2.0 - 1, 0, 2, height()),
                     palette().color(QPalette::Highlight));

    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPointSizeF(11);
    painter.setFont(font);
    QColor label = Qt::white;
    label.setAlphaF(0.45f);
    painter.setPen(label);
    const QRectF labels = rect().adjusted(14, 0, -14, -14);
    painter.drawText(
        labels, Qt::AlignLeft | Qt::AlignBottom,
        QString::fromStdString(model::formatTimecode(std::max(window.startSeconds, 0.0))));
    painter.drawText(labels, Qt::AlignRight | Qt::AlignBottom,
                     QString::fromStdString(model::formatTimecode(window.endSeconds)));
}

}  // namespace preview
