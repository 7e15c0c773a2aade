#include "app/sheet_controls.h"

#include <QFontDatabase>
#include <QKeyEvent>
#include <algorithm>
#include <cmath>

namespace app {

BareIntField::BareIntField(QWidget* parent) : QLineEdit(parent) {
    setFrame(false);
    setAlignment(Qt::AlignCenter);
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    setFixedWidth(64);
    setText(QStringLiteral("0"));
    connect(this, &QLineEdit::textEdited, this, &BareIntField::typed);
}

void BareIntField::setValue(long long value) {
    value_ = value;
    if (text() != QString::number(value)) setText(QString::number(value));
}

void BareIntField::typed(const QString& text) {
    bool ok = false;
    long long typedValue = text.trimmed().toLongLong(&ok);
    commit(std::max(std::min(ok ? typedValue : 0, cap_), 0LL));
}

void BareIntField::commit(long long value) {
    value_ = value;
    emit valueEdited(value);
    // The binding may have changed what the field shows (a locked crop, say); show the
    // clamped value only if the field still holds something else.
    if (text() != QString::number(value_)) setText(QString::number(value_));
}

void BareIntField::keyPressEvent(QKeyEvent* event) {
    long long step = event->modifiers() & Qt::ShiftModifier ? 10 : 1;
    if (event->key() == Qt::Key_Up) return commit(std::min(value_ + step, cap_));
    if (event->key() == Qt::Key_Down) return commit(std::max(value_ - step, 0LL));
    QLineEdit::keyPressEvent(event);
}

EdgeSlider::EdgeSlider(double minimum, double maximum, QWidget* parent)
    : QSlider(Qt::Horizontal, parent), minimum_(minimum), maximum_(maximum) {
    setRange(0, kSteps);
    setTracking(true);
    connect(this, &QSlider::valueChanged, this, [this] { emit valueEdited(value()); });
}

double EdgeSlider::value() const {
    return minimum_ + (maximum_ - minimum_) * QSlider::value() / kSteps;
}

void EdgeSlider::setValue(double value) {
    if (std::abs(value - this->value()) <= 0.0001) return;
    double clamped = std::clamp(value, minimum_, maximum_);
    QSignalBlocker quiet(this);
    QSlider::setValue(
        static_cast<int>(std::lround((clamped - minimum_) / (maximum_ - minimum_) * kSteps)));
}

}  // namespace app
