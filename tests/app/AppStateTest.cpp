#include "app/AppState.h"

#include <QCoreApplication>
#include <QSignalSpy>

#include <thread>

#include <gtest/gtest.h>

namespace {

TEST(AppState, StartsEmptyAndSignalsOnlyTheFieldThatChanged) {
    app::AppState state;
    EXPECT_FALSE(state.isRunning());
    EXPECT_EQ(state.progressMessage(), "");
    EXPECT_EQ(state.progressBarValue(), 0);
    EXPECT_FALSE(state.isAutoRestoreOn() || state.isBootToRecoveryOn() || state.shouldHideQRCodes());

    QSignalSpy messages(&state, &app::AppState::progressMessageChanged);
    QSignalSpy running(&state, &app::AppState::isRunningChanged);
    state.setProgressMessage("Waiting to start next process");
    state.setProgressMessage("Waiting to start next process");
    EXPECT_EQ(messages.count(), 1);
    EXPECT_EQ(running.count(), 0);
}

TEST(AppState, WritesFromAnotherThreadArriveOnTheMainThreadInOrder) {
    app::AppState state;
    QStringList seen;
    QObject::connect(&state, &app::AppState::progressMessageChanged, [&](const QString& text) {
        EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
        seen << text;
    });
    std::thread worker([&] {
        state.setProgressMessage("one");
        state.setProgressMessage("two");
        state.setProgressBarValue(0.5);
    });
    worker.join();
    EXPECT_TRUE(seen.isEmpty());
    QCoreApplication::processEvents();
    EXPECT_EQ(seen, QStringList({"one", "two"}));
    EXPECT_EQ(state.progressBarValue(), 0.5);
}

}  // namespace
