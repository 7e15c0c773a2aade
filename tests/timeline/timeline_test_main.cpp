#include <cstdlib>

#include <QApplication>

#include <gtest/gtest.h>

// Widgets need an application object; the offscreen platform needs no display.
int main(int argc, char** argv) {
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
