#pragma once

#include <QLineEdit>
#include <QSlider>

namespace app {

// A borderless whole-number field limited to 0...cap: typed values are clamped (text that
// holds no number reads as 0), Up and Down step by 1, or by 10 with Shift. Tells
// valueEdited on every change that the user makes.
class BareIntField final : public QLineEdit {
    Q_OBJECT

  public:
    explicit BareIntField(QWidget* parent = nullptr);
    long long value() const { return value_; }
    // From the binding: shows `value` without telling valueEdited.
    void setValue(long long value);
    void setCap(long long cap) { cap_ = cap; }
    long long cap() const { return cap_; }

  signals:
    void valueEdited(long long value);

  protected:
    void keyPressEvent(QKeyEvent* event) override;

  private:
    void typed(const QString& text);
    void commit(long long value);
    long long value_ = 0;
    long long cap_ = 0;
};

// A continuous slider over a range of real numbers.
class EdgeSlider final : public QSlider {
    Q_OBJECT

  public:
    EdgeSlider(double minimum, double maximum, QWidget* parent = nullptr);
    double value() const;
    // Moves the knob only when the value differs by more than 0.0001 from where it is.
    void setValue(double value);

  signals:
    void valueEdited(double value);

  private:
    static constexpr int kSteps = 1000;
    double minimum_;
    double maximum_;
};

}  // namespace app
