#include "app/crop_sheet.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/sheet_controls.h"
#include "app/sheet_header.h"

namespace app {

namespace {

struct EdgeSpec {
    CropEdge edge;
    const char* icon;
    const char* help;
};

constexpr std::array<EdgeSpec, 4> kEdges = {{
    {CropEdge::top, "go-top", "Top inset"},
    {CropEdge::leading, "go-first", "Leading inset"},
    {CropEdge::trailing, "go-last", "Trailing inset"},
    {CropEdge::bottom, "go-bottom", "Bottom inset"},
}};

QString subtitle(const model::Project& project) {
    auto size = project.largestVideoSize();
    if (!size) return QStringLiteral("No video in project");
    return QStringLiteral("Output frame: %1 × %2 px")
        .arg(static_cast<long long>(size->width))
        .arg(static_cast<long long>(size->height));
}

}  // namespace

CropSheet::CropSheet(model::Project& project, QWidget* parent)
    : QDialog(parent), project_(project) {
    setWindowTitle(QStringLiteral("Crop"));
    setWindowModality(Qt::WindowModal);
    setMinimumWidth(480);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(14);
    layout->addLayout(
        sheetHeader(QStringLiteral("transform-crop"), QStringLiteral("Crop"), subtitle(project)));

    auto* group = new QGroupBox;
    auto* groupLayout = new QVBoxLayout(group);
    groupLayout->setSpacing(10);
    if (auto size = project.largestVideoSize()) {
        pixels_.emplace(project, *size);
        auto* row = new QHBoxLayout;
        for (std::size_t i = 0; i < kEdges.size(); ++i) {
            const auto& spec = kEdges[i];
            auto* cell = new QHBoxLayout;
            cell->setSpacing(3);
            auto* icon = new QLabel;
            icon->setPixmap(QIcon::fromTheme(QString::fromUtf8(spec.icon)).pixmap(16, 16));
            auto* field = new BareIntField;
            field->setCap(pixels_->cap(spec.edge));
            field->setToolTip(QString::fromUtf8(spec.help));
            field->setAccessibleName(QString::fromUtf8(spec.help));
            connect(field, &BareIntField::valueEdited, this, [this, edge = spec.edge](long long v) {
                pixels_->setPixels(edge, v, locked_);
            });
            fields_[i] = field;
            cell->addWidget(icon);
            cell->addWidget(field);
            row->addLayout(cell);
            row->addSpacing(8);
        }
        lock_ = new QToolButton;
        lock_->setCheckable(true);
        lock_->setAccessibleName(QStringLiteral("Lock crop edges"));
        lock_->setFixedSize(28, 28);
        connect(lock_, &QToolButton::clicked, this, &CropSheet::toggleLock);
        row->addStretch(1);
        row->addWidget(lock_);
        groupLayout->addLayout(row);

        auto* footer = new QHBoxLayout;
        footer->setSpacing(6);
        auto* outputCaption = new QLabel(QStringLiteral("Output:"));
        outputCaption->setEnabled(false);
        output_ = new QLabel;
        reset_ = new QPushButton(QStringLiteral("Reset"));
        reset_->setFlat(true);
        reset_->setAutoDefault(false);
        connect(reset_, &QPushButton::clicked, this, [this] { pixels_->resetAll(); });
        footer->addWidget(outputCaption);
        footer->addWidget(output_);
        footer->addStretch(1);
        footer->addWidget(reset_);
        groupLayout->addLayout(footer);
        auto* note = new QLabel(QStringLiteral(
            "Pixels trimmed from each edge of the output frame. Lock to keep all four edges "
            "equal."));
        note->setWordWrap(true);
        note->setEnabled(false);
        groupLayout->addWidget(note);
    } else {
        auto* none = new QLabel(QStringLiteral("Add a video clip to access crop settings."));
        none->setEnabled(false);
        groupLayout->addWidget(none);
    }
    layout->addWidget(group);

    auto* bottom = new QHBoxLayout;
    bottom->setSpacing(6);
    auto* info = new QLabel(QStringLiteral("Crop applies only on export."));
    info->setEnabled(false);
    done_ = new QPushButton(QStringLiteral("Done"));
    done_->setDefault(true);
    connect(done_, &QPushButton::clicked, this, &QDialog::accept);
    bottom->addWidget(info);
    bottom->addStretch(1);
    bottom->addWidget(done_);
    layout->addLayout(bottom);

    observer_ = project_.addObserver([this](model::ProjectField field) {
        using F = model::ProjectField;
        if (field == F::cropInsetTop || field == F::cropInsetLeading ||
            field == F::cropInsetTrailing || field == F::cropInsetBottom)
            refresh();
    });
    refresh();
}

CropSheet::~CropSheet() {
    project_.removeObserver(observer_);
}

BareIntField* CropSheet::field(CropEdge edge) const {
    return fields_[static_cast<std::size_t>(edge) - 1];
}

QString CropSheet::outputText() const {
    return output_ ? output_->text() : QString();
}

void CropSheet::refresh() {
    if (!pixels_) return;
    for (const auto& spec : kEdges) field(spec.edge)->setValue(pixels_->pixels(spec.edge));
    QSize out = pixels_->outputSize();
    output_->setText(QStringLiteral("%1 × %2 px").arg(out.width()).arg(out.height()));
    reset_->setVisible(pixels_->total() > 0);
    lock_->setChecked(locked_);
    lock_->setIcon(QIcon::fromTheme(locked_ ? QStringLiteral("object-locked")
                                            : QStringLiteral("object-unlocked")));
    lock_->setText(locked_ ? QStringLiteral("🔒") : QStringLiteral("🔓"));
    lock_->setToolTip(locked_ ? QStringLiteral("Unlock crop edges (each can vary)")
                              : QStringLiteral("Lock crop edges (uniform pixels on all sides)"));
    lock_->setAccessibleDescription(locked_ ? QStringLiteral("Locked, all edges uniform")
                                            : QStringLiteral("Unlocked, each edge independent"));
}

void CropSheet::toggleLock() {
    locked_ = !locked_;
    if (locked_) pixels_->setAll(pixels_->pixels(CropEdge::top));
    refresh();
}

CropOverlay::CropOverlay(const model::Project& project, QWidget* parent)
    : QWidget(parent), project_(project) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_NoSystemBackground);
}

void CropOverlay::paintEvent(QPaintEvent*) {
    auto size = project_.largestVideoSize();
    if (!size || !project_.hasCrop() || size->height <= 0) return;
    QRectF video = fittedVideoRect(QSizeF(width(), height()), size->width / size->height);
    QRectF inner = croppedRect(video, project_.cropInsetTop(), project_.cropInsetLeading(),
                               project_.cropInsetTrailing(), project_.cropInsetBottom());
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.setFillRule(Qt::OddEvenFill);
    path.addRect(video);
    path.addRect(inner);
    p.fillPath(path, QColor::fromRgbF(1, 0, 0, 0.4f));
    p.setPen(QPen(QColor::fromRgbF(1, 0, 0, 0.75f), 1));
    p.drawRect(inner);
}

}  // namespace app
