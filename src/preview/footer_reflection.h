#pragma once

#include <atomic>
#include <memory>

#include <QImage>
#include <QPointer>
#include <QWidget>

#include "preview/frame_converter.h"
#include "preview/frame_relay.h"

namespace preview {

class PreviewView;

// The preview's pictures again behind the footer: stretched over the whole widget,
// mirrored top to bottom, blurred with radius 22 and drawn at opacity 0.75. It shares the
// preview's frames and never decodes on its own; it is empty while the preview has no
// player. UI thread only.
class FooterReflection : public QWidget {
    Q_OBJECT

  public:
    static constexpr double kBlurRadius = 22;
    static constexpr double kOpacity = 0.75;

    explicit FooterReflection(PreviewView& source, QWidget* parent = nullptr);
    ~FooterReflection() override;

    bool hasPicture() const { return !shown_.isNull(); }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    QPointer<PreviewView> source_;
    FrameRelay::ListenerID listener_ = 0;
    std::atomic<double> pixelRatio_ = 1;  // read by the converter's thread
    QImage shown_;  // mirrored and blurred, at the widget's size in device pixels
    std::unique_ptr<FrameConverter> converter_;
};

}  // namespace preview
