#pragma once

#include <functional>

#include <QMouseEvent>
#include <QWidget>

namespace timeline {

// A strip row that seeks: a press, and every move while the button is down, report the
// pointer's x in the row (a plain click seeks too). The slider and the ruler are both one.
class ScrubArea : public QWidget {
  public:
    using QWidget::QWidget;
    std::function<void(double x)> onScrub = [](double) {};

  protected:
    void mousePressEvent(QMouseEvent* event) override {
        if (event->button() == Qt::LeftButton) onScrub(event->position().x());
    }
    void mouseMoveEvent(QMouseEvent* event) override {
        if (event->buttons() & Qt::LeftButton) onScrub(event->position().x());
    }
};

}  // namespace timeline
