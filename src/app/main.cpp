#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QTimer>
#include <cstdio>

#include "app/appearance.h"
#include "app/application.h"
#include "app/document_window.h"
#include "app/instance_handover.h"
#include "app/screenshot.h"
#include "common/version.h"

namespace {

const char* kHelp =
    "usage: vantrell [FILE...]\n"
    "       vantrell --screenshot OUT.png [--size WxH] [FILE...]\n"
    "\n"
    "Trims and joins media. Opens each .vantrell project in a window of its own and the\n"
    "other files, as media, in one new window. If Vantrell is already running, the files\n"
    "open there.\n"
    "\n"
    "options:\n"
    "  --screenshot OUT.png  open the files, wait until the window has settled, save its\n"
    "                        picture as PNG and quit\n"
    "  --size WxH            the window's size for --screenshot (default 800x882)\n"
    "  --version             print the version and stop\n"
    "  --help                print this help and stop\n";

}  // namespace

int main(int argc, char** argv) {
    // The two informational options answer without a display.
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--version") {
            std::printf("vantrell %.*s\n", static_cast<int>(common::kVersion.size()),
                        common::kVersion.data());
            return 0;
        }
        if (arg == "--help" || arg == "-h") {
            std::fputs(kHelp, stdout);
            return 0;
        }
    }

    QApplication qapp(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vantrell"));
    QApplication::setOrganizationName(QStringLiteral("Vantrell"));
    QApplication::setApplicationVersion(QString::fromUtf8(
        common::kVersion.data(), static_cast<qsizetype>(common::kVersion.size())));
    QApplication::setDesktopFileName(QStringLiteral("com.corvane.vantrell"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("vantrell")));
    app::applyDarkAppearance();

    QCommandLineParser parser;
    QCommandLineOption screenshot(QStringLiteral("screenshot"), QString(),
                                  QStringLiteral("OUT.png"));
    QCommandLineOption size(QStringLiteral("size"), QString(), QStringLiteral("WxH"));
    parser.addOption(screenshot);
    parser.addOption(size);
    parser.addPositionalArgument(QStringLiteral("files"), QString());
    if (!parser.parse(QApplication::arguments())) {
        std::fprintf(stderr, "vantrell: %s\n%s", qPrintable(parser.errorText()), kHelp);
        return 2;
    }
    QStringList files;
    for (const QString& file : parser.positionalArguments())
        files << QFileInfo(file).absoluteFilePath();
    std::vector<std::filesystem::path> paths;
    for (const QString& file : files) paths.emplace_back(file.toStdString());

    if (parser.isSet(screenshot)) {
        QSize windowSize =
            parser.isSet(size) ? app::parseWindowSize(parser.value(size)) : QSize(800, 882);
        if (!windowSize.isValid()) {
            std::fprintf(stderr, "vantrell: --size wants WIDTHxHEIGHT, such as 1280x800\n");
            return 2;
        }
        app::Application application;
        application.openFiles(paths);
        auto windows = application.windows();
        app::DocumentWindow* window = windows.empty() ? application.newDocument() : windows.back();
        window->resize(windowSize);
        QString out = QFileInfo(parser.value(screenshot)).absoluteFilePath();
        int status = 1;
        app::screenshotWhenSettled(application, *window, out, [&status, out](bool saved) {
            if (saved)
                std::printf("vantrell: screenshot saved to %s\n", qPrintable(out));
            else
                std::fprintf(stderr, "vantrell: couldn't write %s\n", qPrintable(out));
            status = saved ? 0 : 1;
            QCoreApplication::quit();
        });
        QApplication::exec();
        return status;
    }

    app::InstanceHandover handover(app::InstanceHandover::defaultName());
    if (handover.handOver(files)) return 0;
    app::Application application;
    handover.listen();
    QObject::connect(&handover, &app::InstanceHandover::filesReceived, &application,
                     [&application](const QStringList& received) {
                         std::vector<std::filesystem::path> handed;
                         for (const QString& file : received)
                             handed.emplace_back(file.toStdString());
                         if (handed.empty())
                             application.newDocument();
                         else
                             application.openFiles(handed);
                     });
    application.openFiles(paths);
    if (application.windows().empty()) application.newDocument();
    return QApplication::exec();
}
