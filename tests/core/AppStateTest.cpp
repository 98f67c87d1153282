#include "core/AppState.h"

#include <QCoreApplication>
#include <QSignalSpy>

#include <thread>

#include <gtest/gtest.h>

namespace {

TEST(AppState, SignalsOnlyTheFieldThatChanged) {
    core::AppState state;
    QSignalSpy messages(&state, &core::AppState::progressMessageChanged);
    QSignalSpy running(&state, &core::AppState::isRunningChanged);
    state.setProgressMessage("Waiting to start next process");
    state.setProgressMessage("Waiting to start next process");
    EXPECT_EQ(messages.count(), 1);
    EXPECT_EQ(running.count(), 0);
}

TEST(AppState, WritesFromAnotherThreadArriveOnTheMainThreadInOrder) {
    core::AppState state;
    QStringList seen;
    QObject::connect(&state, &core::AppState::progressMessageChanged, [&](const QString& text) {
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
