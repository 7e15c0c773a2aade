#include "app/retime_sheet.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "app/sheet_controls.h"
#include "app/sheet_header.h"

namespace app {

std::string selectionSummary(std::size_t count) {
    return std::to_string(count) + " clip" + (count == 1 ? "" : "s") + " selected";
}

std::string rateLabel(double rate) {
    char text[32];
    if (std::abs(rate - std::round(rate)) < 0.01)
        std::snprintf(text, sizeof text, "%.0f×", rate);
    else
        std::snprintf(text, sizeof text, "%.2f×", rate);
    return text;
}

std::string retimeFooterText(const model::Project& project, double rate) {
    double now = 0, coming = 0;
    for (const auto& clip : project.clips()) {
        if (!project.selectedClipIDs().contains(clip.id)) continue;
        double length = std::max(clip.outSeconds - clip.inSeconds, 0.0);
        now += length / (clip.rateMultiplier > 0 ? clip.rateMultiplier : 1.0);
        coming += length / std::max(rate, 0.1);
    }
    char text[96];
    std::snprintf(text, sizeof text, "Selection length: %.2fs → %.2fs", now, coming);
    return text;
}

RetimeSheet::RetimeSheet(model::Project& project, QWidget* parent)
    : QDialog(parent), project_(project) {
    setWindowTitle(QStringLiteral("Retime"));
    setWindowModality(Qt::WindowModal);
    setMinimumWidth(420);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->addLayout(
        sheetHeader(QStringLiteral("preferences-system-time"), QStringLiteral("Retime"),
                    QString::fromStdString(selectionSummary(project.selectedClipIDs().size()))));

    auto* speed = new QGroupBox(QStringLiteral("Speed"));
    auto* speedLayout = new QVBoxLayout(speed);
    auto* row = new QHBoxLayout;
    slider_ = new EdgeSlider(kMinimumRate, kMaximumRate);
    rateLabel_ = new QLabel;
    rateLabel_->setFixedWidth(48);
    row->addWidget(slider_, 1);
    row->addWidget(rateLabel_);
    row->setSpacing(6);
    struct Preset {
        const char* title;
        double rate;
        const char* accessible;
    };
    for (auto preset : {Preset{"0.5×", 0.5, "Half speed"}, Preset{"1×", 1.0, "Normal speed"},
                        Preset{"2×", 2.0, "Double speed"}}) {
        auto* button = new QPushButton(QString::fromUtf8(preset.title));
        button->setAutoDefault(false);
        button->setAccessibleName(QString::fromUtf8(preset.accessible));
        connect(button, &QPushButton::clicked, this, [this, r = preset.rate] { setRate(r); });
        row->addWidget(button);
    }
    speedLayout->addLayout(row);
    footer_ = new QLabel;
    footer_->setEnabled(false);
    speedLayout->addWidget(footer_);
    layout->addWidget(speed);

    auto* buttons = new QHBoxLayout;
    auto* cancel = new QPushButton(QStringLiteral("Cancel"));
    cancel->setAutoDefault(false);
    apply_ = new QPushButton(QStringLiteral("Apply"));
    apply_->setDefault(true);
    buttons->addWidget(cancel);
    buttons->addStretch(1);
    buttons->addWidget(apply_);
    layout->addLayout(buttons);

    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(apply_, &QPushButton::clicked, this, [this] {
        project_.retimeSelected(rate_);
        accept();
    });
    connect(slider_, &EdgeSlider::valueEdited, this, [this](double r) {
        rate_ = r;
        refresh();
    });
    setRate(project.commonRateOfSelection().value_or(1.0));
}

void RetimeSheet::setRate(double rate) {
    rate_ = std::clamp(rate, kMinimumRate, kMaximumRate);
    slider_->setValue(rate_);
    refresh();
}

void RetimeSheet::refresh() {
    rateLabel_->setText(QString::fromStdString(rateLabel(rate_)));
    footer_->setText(QString::fromStdString(retimeFooterText(project_, rate_)));
}

}  // namespace app
