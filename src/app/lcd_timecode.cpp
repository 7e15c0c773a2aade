#include "app/lcd_timecode.h"

#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "model/time_format.h"

namespace app {

namespace {

const QColor kLcd = QColor::fromRgbF(0.4f, 1.0f, 0.85f);

QColor withAlpha(QColor c, double alpha) {
    c.setAlphaF(static_cast<float>(alpha));
    return c;
}

QFont monoFont(int pointSize, QFont::Weight weight) {
    QFont font(QStringLiteral("monospace"), pointSize, weight);
    font.setStyleHint(QFont::Monospace);
    return font;
}

// Draws a dim head and a glowing tail from `x`; answers the x after the text.
int drawSplit(QPainter& p, int x, int baseline, const std::string& text, const QFont& font) {
    auto [head, tail] = lcdDimSplit(text);
    p.setFont(font);
    QFontMetrics metrics(font);
    QString h = QString::fromStdString(head), t = QString::fromStdString(tail);
    p.setPen(withAlpha(kLcd, 0.18));
    p.drawText(x, baseline, h);
    x += metrics.horizontalAdvance(h);
    // The glow: the tail drawn a few times around itself, fainter further out.
    for (auto [radius, alpha] : {std::pair{3, 0.10}, std::pair{6, 0.05}}) {
        p.setPen(withAlpha(kLcd, alpha));
        for (int dx : {-radius / 2, radius / 2})
            for (int dy : {-radius / 2, radius / 2}) p.drawText(x + dx, baseline + dy, t);
    }
    p.setPen(kLcd);
    p.drawText(x, baseline, t);
    return x + metrics.horizontalAdvance(t);
}

}  // namespace

std::string lcdFrameText(double seconds, double frameRate) {
    long long frame = std::max(std::llround(seconds * frameRate), 0LL);
    char text[32];
    std::snprintf(text, sizeof text, "%06lldf", frame);
    return text;
}

std::pair<std::string, std::string> lcdDimSplit(const std::string& text) {
    std::size_t head = text.find_first_not_of("0:");
    if (head == std::string::npos) head = text.empty() ? 0 : text.size() - 1;
    return {text.substr(0, head), text.substr(head)};
}

LcdTimecode::LcdTimecode(const model::Project& project, QWidget* parent)
    : QWidget(parent), project_(project) {
    setAccessibleName(QStringLiteral("Playhead time"));
    refresh();
}

QSize LcdTimecode::sizeHint() const {
    QFontMetrics big(monoFont(15, QFont::DemiBold)), small(monoFont(13, QFont::Normal));
    int width = big.horizontalAdvance(QStringLiteral("00:00.00")) +
                small.horizontalAdvance(QStringLiteral(" / 000000f")) + 20;
    return {width, big.height() + 8};
}

void LcdTimecode::refresh() {
    double t = project_.playheadGlobal();
    QString description = QString::fromStdString(model::formatLCDTimecode(t));
    if (project_.largestVideoSize())
        description += QStringLiteral(", frame %1")
                           .arg(std::max(std::llround(t * project_.frameRateAtPlayhead()), 0LL));
    setAccessibleDescription(description);
    update();
}

void LcdTimecode::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QRectF panel = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QLinearGradient fill(panel.topLeft(), panel.bottomLeft());
    fill.setColorAt(0, QColor::fromRgbF(0.04f, 0.06f, 0.07f));
    fill.setColorAt(1, QColor::fromRgbF(0.07f, 0.09f, 0.1f));
    QPainterPath shape;
    shape.addRoundedRect(panel, 5, 5);
    p.fillPath(shape, fill);
    p.setPen(QPen(withAlpha(Qt::white, 0.08), 0.5));
    p.drawPath(shape);

    double t = project_.playheadGlobal();
    QFont big = monoFont(15, QFont::DemiBold);
    int baseline = (height() + QFontMetrics(big).ascent() - QFontMetrics(big).descent()) / 2;
    int x = drawSplit(p, 10, baseline, model::formatLCDTimecode(t), big);
    if (!project_.largestVideoSize()) return;
    QFont small = monoFont(13, QFont::Normal);
    p.setFont(small);
    p.setPen(withAlpha(kLcd, 0.35));
    QString slash = QStringLiteral(" / ");
    p.drawText(x, baseline, slash);
    x += QFontMetrics(small).horizontalAdvance(slash);
    drawSplit(p, x, baseline, lcdFrameText(t, project_.frameRateAtPlayhead()), small);
}

}  // namespace app
