#include "app/sheet_header.h"

#include <QIcon>
#include <QVBoxLayout>

namespace app {

QHBoxLayout* sheetHeader(const QString& icon, const QString& title, const QString& caption,
                         QLabel** captionLabel) {
    auto* row = new QHBoxLayout;
    row->setSpacing(10);
    auto* image = new QLabel;
    image->setPixmap(QIcon::fromTheme(icon).pixmap(28, 28));
    row->addWidget(image, 0, Qt::AlignTop);
    auto* column = new QVBoxLayout;
    column->setSpacing(1);
    auto* heading = new QLabel(title);
    QFont font = heading->font();
    font.setPointSizeF(font.pointSizeF() * 1.4);
    font.setWeight(QFont::DemiBold);
    heading->setFont(font);
    heading->setAccessibleDescription(QStringLiteral("heading"));
    column->addWidget(heading);
    if (!caption.isNull()) {
        auto* sub = new QLabel(caption);
        sub->setEnabled(false);
        column->addWidget(sub);
        if (captionLabel) *captionLabel = sub;
    }
    row->addLayout(column, 1);
    return row;
}

}  // namespace app
