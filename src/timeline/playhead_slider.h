#pragma once

#include <functional>

#include "timeline/scrub_area.h"

namespace timeline {

// The playhead slider row: a track capsule over the whole content with the played part in
// the accent colour. Seeks like the ruler.
class PlayheadSlider : public ScrubArea {
    Q_OBJECT

  public:
    using ScrubArea::ScrubArea;
    void setFillWidth(double width);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    double fillWidth_ = 0;
};

// The playhead's thumb, drawn over the whole timeline so that the strip's edge does not cut
// it. It takes no pointer events: drags reach the slider under it. For accessibility it is
// the adjustable "Playhead".
class PlayheadThumb : public QWidget {
    Q_OBJECT

  public:
    explicit PlayheadThumb(QWidget* parent = nullptr);
    std::function<QString()> value = [] { return QString(); };
    std::function<void()> increment = [] {};
    std::function<void()> decrement = [] {};

  protected:
    void paintEvent(QPaintEvent* event) override;
};

}  // namespace timeline
