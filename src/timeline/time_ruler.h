#pragma once

#include "timeline/scrub_area.h"

namespace timeline {

// The ticks and time labels above the rows, spaced so that labels stay 60 points apart.
class TimeRuler : public ScrubArea {
    Q_OBJECT

  public:
    using ScrubArea::ScrubArea;
    // `totalDuration` is the fit duration: the ticks stop at its end.
    void setScale(double pxPerSecond, double totalDuration);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    double pxPerSecond_ = 1;
    double totalDuration_ = 0.5;
};

}  // namespace timeline
