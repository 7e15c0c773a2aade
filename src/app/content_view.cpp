#include "app/content_view.h"

#include <QContextMenuEvent>
#include <QDragEnterEvent>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QProgressBar>
#include <QPushButton>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

#include "app/crop_sheet.h"
#include "app/empty_state_view.h"
#include "app/lcd_timecode.h"
#include "app/path_menu.h"
#include "app/project_signals.h"
#include "export/export_planning.h"
#include "preview/audio_preview_view.h"
#include "preview/footer_reflection.h"
#include "preview/preview_view.h"
#include "timeline/timeline.h"

namespace app {

namespace {

constexpr double kFooterRadius = 12;

// The stroke in the accent colour round the whole window while files are dragged over it.
class DropHighlight final : public QWidget {
  public:
    explicit DropHighlight(QWidget* parent) : QWidget(parent) {
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setAttribute(Qt::WA_NoSystemBackground);
        hide();
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setPen(QPen(palette().color(QPalette::Highlight), 3));
        p.drawRect(QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5));
    }
};

QPainterPath footerShape(const QRect& rect) {
    QPainterPath path;
    path.addRoundedRect(QRectF(rect).adjusted(0.5, 0.5, -0.5, -0.5), kFooterRadius, kFooterRadius);
    return path;
}

// The footer's base: black under the reflection.
class FooterBase final : public QWidget {
  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.fillPath(footerShape(rect()), Qt::black);
    }
};

// The bar material over the reflection: a translucent panel, a faint top-to-bottom
// shading and a thin inner stroke.
class FooterGlass final : public QWidget {
  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        QPainterPath shape = footerShape(rect());
        p.fillPath(shape, QColor(28, 28, 32, 205));
        QLinearGradient shade(0, 0, 0, height());
        shade.setColorAt(0, QColor(255, 255, 255, 5));
        shade.setColorAt(1, QColor(0, 0, 0, 26));
        p.fillPath(shape, shade);
        p.setPen(QPen(QColor(255, 255, 255, 20), 0.5));
        p.drawPath(shape);
    }
};

QPushButton* zoomButton(const QString& text, const QString& help) {
    auto* button = new QPushButton(text);
    button->setFlat(true);
    button->setFocusPolicy(Qt::NoFocus);
    button->setToolTip(help);
    button->setFixedHeight(20);
    return button;
}

}  // namespace

std::vector<std::filesystem::path> droppedFiles(const QList<QUrl>& urls) {
    std::vector<std::filesystem::path> files;
    for (const QUrl& url : urls)
        if (url.isLocalFile()) files.emplace_back(url.toLocalFile().toStdString());
    return files;
}

ContentView::ContentView(model::Project& project, ProjectSignals& projectSignals, QWidget* parent)
    : QWidget(parent), project_(project) {
    setAcceptDrops(true);
    setMinimumSize(640, 762);
    setAutoFillBackground(true);
    QPalette dark = palette();
    dark.setColor(QPalette::Window, Qt::black);
    setPalette(dark);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    titleStrip_ = new QWidget;
    titleStrip_->setFixedHeight(28);
    titleStrip_->installEventFilter(this);
    auto* stripLayout = new QHBoxLayout(titleStrip_);
    stripLayout->setContentsMargins(80, 0, 80, 0);
    titleButton_ = new QToolButton;
    titleButton_->setAutoRaise(true);
    titleButton_->setPopupMode(QToolButton::InstantPopup);
    titleButton_->setToolButtonStyle(Qt::ToolButtonTextOnly);
    titleButton_->setStyleSheet(QStringLiteral(
        "QToolButton { color: rgba(255,255,255,217); font-weight: 600; border: none; }"
        "QToolButton::menu-indicator { image: none; width: 0; }"));
    titleButton_->setContextMenuPolicy(Qt::CustomContextMenu);
    pathMenu_ = new QMenu(this);
    titleButton_->setMenu(pathMenu_);
    connect(titleButton_, &QWidget::customContextMenuRequested, this,
            [this](const QPoint& at) { pathMenu_->popup(titleButton_->mapToGlobal(at)); });
    titleButton_->hide();
    stripLayout->addStretch(1);
    stripLayout->addWidget(titleButton_);
    stripLayout->addStretch(1);
    layout->addWidget(titleStrip_);

    layout->addWidget(makePreviewRegion(), 1);

    footer_ = new QWidget;
    auto* footerGrid = new QGridLayout(footer_);
    footerGrid->setContentsMargins(0, 0, 0, 0);
    footerGrid->addWidget(new FooterBase, 0, 0);
    auto* reflection = new preview::FooterReflection(*preview_);
    reflection->setAttribute(Qt::WA_TransparentForMouseEvents);
    footerGrid->addWidget(reflection, 0, 0);
    auto* glass = new FooterGlass;
    auto* footerLayout = new QVBoxLayout(glass);
    footerLayout->setContentsMargins(0, 0, 0, 0);
    footerLayout->setSpacing(0);
    footerLayout->addWidget(makeTransportBar());
    auto* timelineBox = new QWidget;
    auto* timelineLayout = new QHBoxLayout(timelineBox);
    timelineLayout->setContentsMargins(14, 0, 14, 0);
    timeline_ = new timeline::Timeline(project_);
    timeline_->onRelinkRequested = [this](const common::Uuid& id) { emit relinkRequested(id); };
    timelineLayout->addWidget(timeline_);
    footerLayout->addWidget(timelineBox, 1);
    footerLayout->addWidget(makeStatusBar());
    footerGrid->addWidget(glass, 0, 0);
    footer_->installEventFilter(this);

    auto* footerInset = new QWidget;
    auto* insetLayout = new QVBoxLayout(footerInset);
    insetLayout->setContentsMargins(10, 0, 10, 10);
    insetLayout->addWidget(footer_);
    layout->addWidget(footerInset);

    dropHighlight_ = new DropHighlight(this);

    connect(&projectSignals, &ProjectSignals::changed, this, &ContentView::projectChanged);
    refreshTransport();
    refreshStatus();
    refreshLayers();
    rebuildPathMenu();
}

QWidget* ContentView::makePreviewRegion() {
    previewRegion_ = new QWidget;
    previewRegion_->setAutoFillBackground(true);
    previewRegion_->setPalette(palette());
    auto* grid = new QGridLayout(previewRegion_);
    grid->setContentsMargins(0, 0, 0, 0);
    preview_ = new preview::PreviewView(project_);
    grid->addWidget(preview_, 0, 0);
    audioPreview_ = new preview::AudioPreviewView(project_);
    grid->addWidget(audioPreview_, 0, 0);
    cropOverlay_ = new CropOverlay(project_);
    grid->addWidget(cropOverlay_, 0, 0);
    empty_ = new EmptyStateView;
    connect(empty_, &EmptyStateView::chooseFiles, this, &ContentView::importRequested);
    grid->addWidget(empty_, 0, 0);

    previewRegion_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(previewRegion_, &QWidget::customContextMenuRequested, this, [this](const QPoint& at) {
        if (!project_.videoAtPlayhead()) return;
        QMenu menu;
        menu.addAction(QStringLiteral("Copy Current Frame"), this,
                       &ContentView::copyFrameRequested);
        menu.addSeparator();
        menu.addAction(QStringLiteral("Crop…"), this, [this] { project_.setShowCropSheet(true); });
        menu.exec(previewRegion_->mapToGlobal(at));
    });
    return previewRegion_;
}

QWidget* ContentView::makeTransportBar() {
    auto* bar = new QWidget;
    auto* row = new QHBoxLayout(bar);
    row->setContentsMargins(14, 16, 14, 8);
    row->setSpacing(14);

    play_ = new QPushButton;
    play_->setFixedSize(22, 22);
    play_->setFocusPolicy(Qt::NoFocus);
    play_->setAccessibleDescription(QStringLiteral("Plays or pauses the timeline"));
    connect(play_, &QPushButton::clicked, this, [this] { project_.togglePlayback(); });
    row->addWidget(play_);

    lcd_ = new LcdTimecode(project_);
    row->addWidget(lcd_);
    row->addStretch(1);

    auto* segment = new QWidget;
    segment->setObjectName(QStringLiteral("zoomSegment"));
    segment->setStyleSheet(QStringLiteral(
        "#zoomSegment { background: rgba(255,255,255,15); border: 0.5px solid "
        "rgba(255,255,255,26); border-radius: 11px; }"
        "QPushButton { color: rgba(255,255,255,220); border: none; padding: 0 8px; }"));
    auto* segmentRow = new QHBoxLayout(segment);
    segmentRow->setContentsMargins(4, 1, 4, 1);
    segmentRow->setSpacing(0);
    auto* out = zoomButton(QStringLiteral("−"), QStringLiteral("Zoom Out (Ctrl+−)"));
    out->setAccessibleName(QStringLiteral("Zoom Out"));
    auto* fit = zoomButton(QStringLiteral("Fit"), QStringLiteral("Zoom to Fit (Ctrl+0)"));
    auto* in = zoomButton(QStringLiteral("+"), QStringLiteral("Zoom In (Ctrl+=)"));
    in->setAccessibleName(QStringLiteral("Zoom In"));
    connect(out, &QPushButton::clicked, this,
            [this] { project_.setZoom(project_.zoomFactor() / 1.4); });
    connect(fit, &QPushButton::clicked, this, [this] { project_.setZoom(1.0); });
    connect(in, &QPushButton::clicked, this,
            [this] { project_.setZoom(project_.zoomFactor() * 1.4); });
    segmentRow->addWidget(out);
    segmentRow->addWidget(fit);
    segmentRow->addWidget(in);
    row->addWidget(segment);
    return bar;
}

QWidget* ContentView::makeStatusBar() {
    auto* bar = new QWidget;
    auto* row = new QHBoxLayout(bar);
    row->setContentsMargins(14, 8, 14, 16);
    row->setSpacing(12);
    status_ = new QLabel;
    QFont mono(QStringLiteral("monospace"));
    mono.setStyleHint(QFont::Monospace);
    mono.setPixelSize(11);
    status_->setFont(mono);
    status_->setStyleSheet(QStringLiteral("color: rgba(255,255,255,150);"));
    row->addWidget(status_);
    row->addStretch(1);

    progress_ = new QProgressBar;
    progress_->setFixedWidth(160);
    progress_->setRange(0, 1000);
    progress_->setTextVisible(false);
    exportMessage_ = new QLabel;
    exportMessage_->setStyleSheet(QStringLiteral("color: rgba(255,255,255,150);"));
    cancelExport_ = new QPushButton(QStringLiteral("Cancel"));
    cancelExport_->setFocusPolicy(Qt::NoFocus);
    connect(cancelExport_, &QPushButton::clicked, this, &ContentView::cancelExportRequested);
    crop_ = new QPushButton(QStringLiteral("Crop…"));
    crop_->setToolTip(QStringLiteral("Output crop"));
    crop_->setFocusPolicy(Qt::NoFocus);
    connect(crop_, &QPushButton::clicked, this, [this] { project_.setShowCropSheet(true); });
    export_ = new QPushButton(QStringLiteral("Export…"));
    export_->setToolTip(QStringLiteral("Export project (Ctrl+E)"));
    export_->setFocusPolicy(Qt::NoFocus);
    export_->setStyleSheet(QStringLiteral(
        "QPushButton { background: palette(highlight); color: palette(highlighted-text);"
        " border-radius: 5px; padding: 4px 12px; } QPushButton:disabled { background: "
        "rgba(255,255,255,30); color: rgba(255,255,255,90); }"));
    connect(export_, &QPushButton::clicked, this, [this] {
        if (!project_.isPresentingSheet()) exporting::beginExport(project_);
    });
    for (QWidget* w :
         std::initializer_list<QWidget*>{progress_, exportMessage_, cancelExport_, crop_, export_})
        row->addWidget(w);
    return bar;
}

void ContentView::projectChanged(model::ProjectField field) {
    using F = model::ProjectField;
    switch (field) {
        case F::playheadGlobal:
            lcd_->refresh();
            if (project_.isPlaying()) return;  // the layers follow the playhead when it stops
            refreshLayers();
            return;
        case F::isPlaying:
            refreshTransport();
            refreshLayers();
            return;
        case F::clips:
        case F::compositionToken:
            refreshTransport();
            refreshStatus();
            refreshLayers();
            lcd_->refresh();
            return;
        case F::isExporting:
        case F::exportProgress:
        case F::exportMessage:
        case F::smallClipMode:
            refreshStatus();
            return;
        case F::cropInsetTop:
        case F::cropInsetLeading:
        case F::cropInsetTrailing:
        case F::cropInsetBottom:
            refreshStatus();
            refreshLayers();
            cropOverlay_->update();
            return;
        default:
            return;
    }
}

void ContentView::refreshTransport() {
    bool empty = project_.clips().empty();
    bool playing = project_.isPlaying();
    play_->setEnabled(!empty);
    play_->setText(playing ? QStringLiteral("❚❚") : QStringLiteral("▶"));
    play_->setToolTip(playing ? QStringLiteral("Pause (Space)") : QStringLiteral("Play (Space)"));
    play_->setAccessibleName(playing ? QStringLiteral("Pause") : QStringLiteral("Play"));
    QString sheet = QStringLiteral(
                        "QPushButton { border-radius: 11px; color: white; font-weight: bold;"
                        " font-size: 9px; background: %1; }")
                        .arg(empty ? QStringLiteral("rgba(160,160,160,64)")
                                   : QStringLiteral("palette(highlight)"));
    // Setting a style sheet polishes the button anew even when the text is the same, and
    // every edit comes through here.
    if (play_->styleSheet() != sheet) play_->setStyleSheet(sheet);
}

void ContentView::refreshStatus() {
    status_->setText(QString::fromStdString(exporting::statusLine(project_)));
    bool exporting = project_.isExporting();
    progress_->setVisible(exporting);
    exportMessage_->setVisible(exporting);
    cancelExport_->setVisible(exporting);
    crop_->setVisible(!exporting);
    export_->setVisible(!exporting);
    export_->setEnabled(!project_.clips().empty());
    progress_->setValue(static_cast<int>(project_.exportProgress() * 1000));
    exportMessage_->setText(QString::fromStdString(project_.exportMessage()));
}

void ContentView::refreshLayers() {
    bool empty = project_.clips().empty();
    empty_->setVisible(empty);
    audioPreview_->setVisible(!empty && !project_.videoAtPlayhead());
    cropOverlay_->setVisible(project_.hasCrop() && project_.largestVideoSize().has_value());
}

void ContentView::setDocument(const QString& title,
                              const std::optional<std::filesystem::path>& file) {
    title_ = title;
    file_ = file;
    titleButton_->setText(title);
    rebuildPathMenu();
}

void ContentView::rebuildPathMenu() {
    pathMenu_->clear();
    if (!file_) {
        pathMenu_->addAction(QStringLiteral("Unsaved Document"))->setEnabled(false);
        return;
    }
    QFileIconProvider icons;
    for (const auto& item : ancestorPaths(*file_)) {
        QIcon icon = icons.icon(QFileInfo(QString::fromStdString(item.string())));
        pathMenu_->addAction(icon, pathMenuDisplayName(item), this,
                             [this, item] { emit revealRequested(item); });
    }
}

bool ContentView::eventFilter(QObject* watched, QEvent* event) {
    if (watched == titleStrip_) {
        if (event->type() == QEvent::Enter) titleButton_->setVisible(!title_.isEmpty());
        if (event->type() == QEvent::Leave && !pathMenu_->isVisible()) titleButton_->hide();
    } else if (watched == footer_ && event->type() == QEvent::Resize) {
        project_.setFooterHeight(footer_->height());
    }
    return QWidget::eventFilter(watched, event);
}

int ContentView::previewHeight() const {
    return previewRegion_->height();
}

bool ContentView::showsFirstFrame() const {
    return !project_.videoAtPlayhead() || preview_->hasPicture();
}

void ContentView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    dropHighlight_->setGeometry(rect());
}

void ContentView::dragEnterEvent(QDragEnterEvent* event) {
    if (!event->mimeData()->hasUrls() || droppedFiles(event->mimeData()->urls()).empty()) return;
    event->acceptProposedAction();
    targeted_ = true;
    dropHighlight_->raise();
    dropHighlight_->show();
}

void ContentView::dragLeaveEvent(QDragLeaveEvent*) {
    targeted_ = false;
    dropHighlight_->hide();
}

void ContentView::dropEvent(QDropEvent* event) {
    targeted_ = false;
    dropHighlight_->hide();
    auto files = droppedFiles(event->mimeData()->urls());
    if (files.empty()) return;
    event->acceptProposedAction();
    project_.importURLs(std::move(files));
}

}  // namespace app
