#include <QApplication>

#include <gtest/gtest.h>

// The window tests need a widget application; this main replaces the support library's, which
// only makes a core application. Windows are drawn off screen also when test discovery runs the
// executable without the tests' environment.
int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
