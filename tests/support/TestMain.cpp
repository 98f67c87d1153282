#include <QCoreApplication>

#include <gtest/gtest.h>

// Tests that touch the main queue need an application object; none of them may depend on what
// another test left in the process, so nothing else is set up here.
int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
