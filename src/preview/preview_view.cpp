#include "preview/preview_view.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <utility>

#include <QPainter>

#include "composition/stream_lookup.h"
#include "preview/fit_rect.h"
#include "preview/source_player.h"

namespace preview {

namespace {

QSize devicePixels(const QRectF& rect, double ratio) {
    return {static_cast<int>(std::lround(rect.width() * ratio)),
            static_cast<int>(std::lround(rect.height() * ratio))};
}

}  // namespace

PreviewView::PreviewView(model::Project& project, QWidget* parent)
    : QWidget(parent), project_(project) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    converter_ = std::make_unique<FrameConverter>([this](QImage image) {
        QMetaObject::invokeMethod(
            this,
            [this, image = std::move(image)]() mutable {
                shown_ = std::move(image);
                QWidget::update();
            },
            Qt::QueuedConnection);
    });
    ownListener_ = relay_->add([converter = converter_.get()](const PresentedFrame& frame) {
        converter->submit(frame.picture);
    });
    observer_ = project_.addObserver([this](model::ProjectField field) { projectChanged(field); });
    sync();
}

PreviewView::~PreviewView() {
    project_.removeObserver(observer_);
    starting_.clear();
    player_.reset();
    relay_->remove(ownListener_);
}

void PreviewView::projectChanged(model::ProjectField field) {
    using F = model::ProjectField;
    if (field == F::compositionToken || field == F::isPlaying || field == F::playheadGlobal ||
        field == F::trimPreview || field == F::clips)
        sync();
}

void PreviewView::sync() {
    if (const auto& trim = project_.trimPreview()) {
        applyTrimPreview(*trim);
    } else {
        if (trimPreviewURL_) {
            // The drag has ended: rebuild from the clips as they now are.
            trimPreviewURL_.reset();
            lastToken_ = -1;
        }
        const bool isPlaying = project_.isPlaying();
        if (project_.compositionToken() != lastToken_) {
            lastToken_ = project_.compositionToken();
            if (project_.clips().empty())
                tearDown();
            else
                rebuildAsync(project_.clips(), project_.playheadGlobal(), isPlaying);
            lastIsPlaying_ = isPlaying;
        } else if (isPlaying != lastIsPlaying_) {
            lastIsPlaying_ = isPlaying;
            if (player_ && isPlaying) {
                player_->play();
            } else if (player_) {
                player_->pause();
                seek(project_.playheadGlobal());
            }
        } else if (!isPlaying && player_ &&
                   std::abs(player_->currentTime() - project_.playheadGlobal()) > 0.05) {
            seek(project_.playheadGlobal());
        }
    }
    if (const auto aspect = project_.aspectAtPlayhead(); aspect != aspect_) {
        aspect_ = aspect;
        layoutPicture();
    }
}

void PreviewView::seek(double globalSeconds) {
    if (!player_) return;
    double t = std::max(globalSeconds, 0.0);
    if (const auto d = player_->duration(); d && *d > 0) t = std::min(t, std::max(*d - 0.001, 0.0));
    player_->seek(t);
}

void PreviewView::tearDown() {
    player_.reset();
    relay_->present({});
}

void PreviewView::installPlayer(std::unique_ptr<Player> player) {
    player_ = std::move(player);
    player_->setFrameSink([relay = relay_](const PresentedFrame& frame) { relay->present(frame); });
}

void PreviewView::rebuildAsync(std::vector<model::Clip> clips, double seekTo, bool autoPlay) {
    builder_.post([this, clips = std::move(clips), seekTo, autoPlay] {
        auto built = std::make_shared<const composition::Composition>(
            composition::buildComposition(clips, streams_));
        const double frameRate = frameRateFor(clips);
        QMetaObject::invokeMethod(
            this, [=, this] { startPlayer(built, frameRate, seekTo, autoPlay); },
            Qt::QueuedConnection);
    });
}

void PreviewView::startPlayer(std::shared_ptr<const composition::Composition> built,
                              double frameRate, double seekTo, bool autoPlay) {
    auto player = std::make_unique<Player>(
        [built]() -> common::Result<composition::Composition> { return *built; },
        Player::Options{frameRate, AudioOutput::device, player_.get()});
    Player* started = player.get();
    // Its pictures reach the screen once it is installed; its first one installs it.
    struct Handoff {
        std::mutex mutex;
        bool installed = false;
        std::optional<PresentedFrame> first;
    };
    auto handoff = std::make_shared<Handoff>();
    player->setFrameSink([this, relay = relay_, handoff, started](const PresentedFrame& frame) {
        std::lock_guard lock(handoff->mutex);
        if (handoff->installed) {
            relay->present(frame);
        } else if (!handoff->first) {
            handoff->first = frame;
            QMetaObject::invokeMethod(
                this,
                [this, relay, handoff, started] {
                    installStarted(started);
                    std::lock_guard lock(handoff->mutex);
                    handoff->installed = true;
                    relay->present(*handoff->first);
                },
                Qt::QueuedConnection);
        }
    });
    player->setPeriodicCallback([this, started](double t) {
        if (player_.get() == started)
            project_.setPlayheadGlobal(std::min(t, project_.totalDurationSeconds()));
    });
    player->setEndCallback([this, started] {
        if (player_.get() == started) project_.setIsPlaying(false);
    });
    starting_.push_back(std::move(player));
    // The duration is not known yet, so this seek is not held short of the end.
    started->seek(std::max(seekTo, 0.0));
    if (autoPlay) started->play();
}

void PreviewView::installStarted(Player* player) {
    auto found = std::find_if(starting_.begin(), starting_.end(),
                              [player](const auto& p) { return p.get() == player; });
    if (found == starting_.end()) return;
    std::unique_ptr<Player> installed = std::move(*found);
    starting_.erase(found);
    player_ = std::move(installed);
    // The play state may have moved while the player found its first picture.
    const bool isPlaying = project_.isPlaying();
    lastIsPlaying_ = isPlaying;
    if (isPlaying && player_->rate() == 0) {
        player_->play();
    } else if (!isPlaying && player_->rate() != 0) {
        player_->pause();
        seek(project_.playheadGlobal());
    }
}

void PreviewView::applyTrimPreview(const model::TrimPreviewState& state) {
    if (trimPreviewURL_ != state.url) {
        // A composition still finding its first picture is stale: the drag's end rebuilds.
        starting_.clear();
        installPlayer(std::make_unique<Player>(
            [url = state.url] { return sourceComposition(url); },
            Player::Options{model::Project::defaultFrameRate, AudioOutput::none}));
        trimPreviewURL_ = state.url;
    }
    player_->seek(std::max(state.assetSeconds, 0.0));
}

void PreviewView::layoutPicture() {
    converter_->resize(devicePixels(aspectFitRect(rect(), aspect_), devicePixelRatioF()));
    QWidget::update();
}

void PreviewView::resizeEvent(QResizeEvent*) {
    layoutPicture();
}

void PreviewView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    if (shown_.isNull()) return;
    // Drawn at its own size: the converter already scaled it to the shown size.
    QImage image = shown_;
    image.setDevicePixelRatio(devicePixelRatioF());
    painter.drawImage(aspectFitRect(rect(), aspect_).topLeft(), image);
}

}  // namespace preview
