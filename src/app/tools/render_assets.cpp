// Build-time helper: renders the README to HTML for the installed help, and the SVG icon
// to PNGs of the icon theme's sizes.
//   render_assets markdown IN.md OUT.html
//   render_assets icon IN.svg OUT.png SIZE
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <QTextDocument>
#include <cstdio>

namespace {

int renderMarkdown(const QString& in, const QString& out) {
    QFile source(in);
    if (!source.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "render_assets: can't read %s\n", qPrintable(in));
        return 1;
    }
    QTextDocument document;
    document.setMarkdown(QString::fromUtf8(source.readAll()));
    QString html = document.toHtml();
    html.replace(QStringLiteral("<head>"),
                 QStringLiteral("<head><title>Vantrell Help</title><meta charset=\"utf-8\">"));
    QFile target(out);
    if (!target.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        target.write(html.toUtf8()) < 0) {
        std::fprintf(stderr, "render_assets: can't write %s\n", qPrintable(out));
        return 1;
    }
    return 0;
}

int renderIcon(const QString& in, const QString& out, int size) {
    QSvgRenderer svg(in);
    if (!svg.isValid() || size <= 0) {
        std::fprintf(stderr, "render_assets: can't render %s\n", qPrintable(in));
        return 1;
    }
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    svg.render(&painter);
    painter.end();
    return image.save(out, "PNG") ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    // No window is ever shown; text layout and painting still need a GUI application.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QStringList args = QGuiApplication::arguments();
    if (args.size() == 4 && args[1] == QStringLiteral("markdown"))
        return renderMarkdown(args[2], args[3]);
    if (args.size() == 5 && args[1] == QStringLiteral("icon"))
        return renderIcon(args[2], args[3], args[4].toInt());
    std::fprintf(stderr, "usage: render_assets markdown IN OUT | icon IN.svg OUT.png SIZE\n");
    return 2;
}
