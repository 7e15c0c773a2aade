#include "preview/footer_reflection.h"

#include <cmath>

#include <QPainter>

#include "preview/image_blur.h"
#include "preview/preview_view.h"

namespace preview {

FooterReflection::FooterReflection(PreviewView& source, QWidget* parent)
    : QWidget(parent), source_(&source) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    converter_ = std::make_unique<FrameConverter>(
        [this](QImage image) {
            QMetaObject::invokeMethod(
                this,
                [this, image = std::move(image)]() mutable {
                    shown_ = std::move(image);
                    update();
                },
                Qt::QueuedConnection);
        },
        [this](QImage image) {
            return gaussianBlurred(image.mirrored(false, true), kBlurRadius * pixelRatio_.load());
        });
    listener_ = source.frames().add([converter = converter_.get()](const PresentedFrame& frame) {
        converter->submit(frame.picture);
    });
}

FooterReflection::~FooterReflection() {
    if (source_) source_->frames().remove(listener_);
}

void FooterReflection::resizeEvent(QResizeEvent*) {
    const double ratio = devicePixelRatioF();
    pixelRatio_ = ratio;
    converter_->resize({static_cast<int>(std::lround(width() * ratio)),
                        static_cast<int>(std::lround(height() * ratio))});
}

void FooterReflection::paintEvent(QPaintEvent*) {
    if (shown_.isNull()) return;
    QPainter painter(this);
    painter.setOpacity(kOpacity);
    QImage image = shown_;
    image.setDevicePixelRatio(devicePixelRatioF());
    painter.drawImage(QPointF(0, 0), image);
}

}  // namespace preview
