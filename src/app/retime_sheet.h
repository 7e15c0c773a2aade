#pragma once

#include <QDialog>
#include <string>

#include "model/project.h"

class QLabel;
class QPushButton;

namespace app {

class EdgeSlider;

// "1 clip selected", "3 clips selected".
std::string selectionSummary(std::size_t count);
// "2×" for a whole rate (within 0.01), else "1.25×".
std::string rateLabel(double rate);
// "Selection length: %.2fs → %.2fs": the selection's timeline length now and at `rate`.
std::string retimeFooterText(const model::Project& project, double rate);

// The window-modal sheet that sets the speed of the selected clips. Only Apply changes
// the project; Cancel and Esc close it without a change.
class RetimeSheet final : public QDialog {
    Q_OBJECT

  public:
    static constexpr double kMinimumRate = 0.25;
    static constexpr double kMaximumRate = 4.0;

    explicit RetimeSheet(model::Project& project, QWidget* parent = nullptr);
    double rate() const { return rate_; }
    void setRate(double rate);
    QPushButton* applyButton() const { return apply_; }
    EdgeSlider* slider() const { return slider_; }

  private:
    void refresh();
    model::Project& project_;
    double rate_ = 1.0;
    EdgeSlider* slider_;
    QLabel* rateLabel_;
    QLabel* footer_;
    QPushButton* apply_;
};

}  // namespace app
