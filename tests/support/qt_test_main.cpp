#include <gtest/gtest.h>

#include <QApplication>
#include <QStandardPaths>

// The widget suites' main: an application on the offscreen platform, which needs no display.
int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Recent files and other settings go to a scratch place, not the user's.
    QStandardPaths::setTestModeEnabled(true);
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("VantrellTests"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

// Fontconfig keeps its caches for the life of the process, which the leak checker of the
// sanitizer build reports once text has been drawn; a plain build never calls this.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n";
}
