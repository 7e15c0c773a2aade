#include "app/appearance.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace app {

void applyDarkAppearance() {
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette p;
    const QColor window(34, 35, 39), base(24, 25, 28), text(232, 232, 235);
    const QColor accent(10, 132, 255);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, QColor(52, 53, 58));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, accent);
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, QColor(130, 131, 136));
    p.setColor(QPalette::Disabled, QPalette::Button, QColor(44, 45, 49));
    QApplication::setPalette(p);
}

}  // namespace app
