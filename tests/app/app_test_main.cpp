#include <gtest/gtest.h>

#include <QApplication>
#include <QStandardPaths>

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Recent files and other settings go to a scratch place, not the user's.
    QStandardPaths::setTestModeEnabled(true);
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("VantrellTests"));
    QApplication::setApplicationName(QStringLiteral("app_tests"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
