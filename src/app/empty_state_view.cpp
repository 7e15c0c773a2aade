#include "app/empty_state_view.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QVBoxLayout>

namespace app {

namespace {

// The scissors drawn with the orange-to-cyan gradient of the empty window.
class GradientSymbol final : public QWidget {
  public:
    GradientSymbol() { setFixedSize(96, 96); }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        QFont font = p.font();
        font.setPixelSize(72);
        QPainterPath glyph;
        glyph.addText(0, 0, font, QStringLiteral("✂"));
        QRectF box = glyph.boundingRect();
        glyph.translate(width() / 2.0 - box.center().x(), height() / 2.0 - box.center().y());
        p.fillPath(glyph.translated(0, 2), QColor(0, 0, 0, 100));
        QLinearGradient gradient(0, glyph.boundingRect().top(), 0, glyph.boundingRect().bottom());
        gradient.setColorAt(0, QColor::fromRgbF(0.97f, 0.45f, 0.3f));
        gradient.setColorAt(1, QColor::fromRgbF(0.42f, 0.83f, 0.9f));
        p.fillPath(glyph, gradient);
    }
};

QLabel* whiteLabel(const QString& text, int pixelSize, QFont::Weight weight, double opacity) {
    auto* label = new QLabel(text);
    QFont font = label->font();
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    label->setFont(font);
    label->setAlignment(Qt::AlignCenter);
    label->setStyleSheet(QStringLiteral("color: rgba(255,255,255,%1); background: transparent;")
                             .arg(static_cast<int>(opacity * 255)));
    return label;
}

QWidget* shortcutChip(const QString& key, const QString& label) {
    auto* chip = new QWidget;
    auto* row = new QHBoxLayout(chip);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(6);
    auto* keyLabel = whiteLabel(key, 10, QFont::DemiBold, 0.88);
    keyLabel->setStyleSheet(QStringLiteral(
        "color: rgba(255,255,255,224); background: rgba(255,255,255,26);"
        "border: 0.5px solid rgba(255,255,255,36); border-radius: 5px; padding: 3px 7px;"));
    row->addWidget(keyLabel);
    row->addWidget(whiteLabel(label, 11, QFont::Normal, 0.55));
    return chip;
}

}  // namespace

EmptyStateView::EmptyStateView(QWidget* parent) : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(40, 0, 40, 0);
    layout->setSpacing(22);
    layout->addStretch(1);
    layout->addWidget(new GradientSymbol, 0, Qt::AlignHCenter);

    auto* titles = new QVBoxLayout;
    titles->setSpacing(6);
    titles->addWidget(whiteLabel(QStringLiteral("Drop media to begin"), 22, QFont::DemiBold, 0.92));
    auto* subtitle =
        whiteLabel(QStringLiteral("Trim · Reorder · Combine · Export"), 12, QFont::Medium, 0.42);
    QFont spaced = subtitle->font();
    spaced.setLetterSpacing(QFont::AbsoluteSpacing, 0.8);
    subtitle->setFont(spaced);
    titles->addWidget(subtitle);
    layout->addLayout(titles);

    choose_ = new QPushButton(QIcon::fromTheme(QStringLiteral("list-add")),
                              QStringLiteral("Choose Files…"));
    choose_->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_I));
    choose_->setMinimumHeight(32);
    connect(choose_, &QPushButton::clicked, this, &EmptyStateView::chooseFiles);
    layout->addWidget(choose_, 0, Qt::AlignHCenter);

    auto* chips = new QHBoxLayout;
    chips->setSpacing(14);
    chips->setContentsMargins(0, 10, 0, 0);
    chips->addStretch(1);
    chips->addWidget(shortcutChip(QStringLiteral("Ctrl+K"), QStringLiteral("Split")));
    chips->addWidget(shortcutChip(QStringLiteral("I"), QStringLiteral("Set In")));
    chips->addWidget(shortcutChip(QStringLiteral("O"), QStringLiteral("Set Out")));
    chips->addWidget(shortcutChip(QStringLiteral("Ctrl+E"), QStringLiteral("Export")));
    chips->addStretch(1);
    layout->addLayout(chips);

    auto* note = whiteLabel(QStringLiteral("Vantrell links to media files; it doesn't embed them.\n"
                                           "Move a source file and you'll be prompted to re-link."),
                            11, QFont::Normal, 0.45);
    note->setWordWrap(true);
    note->setContentsMargins(0, 18, 0, 0);
    layout->addWidget(note);
    layout->addStretch(1);
}

}  // namespace app
