#include <QApplication>

#include <gtest/gtest.h>

// Under the leak sanitizer: the font and session libraries a widget application loads keep caches
// for the life of the process by design; leaks of our own code still count.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n"
           "leak:libglib-2.0.so\n"
           "leak:libgobject-2.0.so\n"
           "leak:libdbus-1.so\n";
}

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
