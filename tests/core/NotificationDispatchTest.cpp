#include "core/Dispatch.h"
#include "core/NotificationCenter.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <QThreadPool>
#include <QTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <vector>

namespace {

TEST(NotificationCenter, DeliversByNameWithUserInfoUntilRemoved) {
    core::NotificationCenter center;
    QStringList seen;
    const auto named =
        center.addObserver("deviceAdded", [&](const QString& name, const QVariantMap& info) {
            seen << name + ":" + info.value("devices").toString();
        });
    const auto all = center.addObserver(
        {}, [&](const QString& name, const QVariantMap&) { seen << "*" + name; });

    center.post("deviceAdded", {{"devices", "A"}});
    center.post("deviceRemoved");
    center.removeObserver(named);
    center.post("deviceAdded", {{"devices", "B"}});
    center.removeObserver(all);
    center.post("deviceAdded");

    EXPECT_EQ(seen,
              QStringList({"deviceAdded:A", "*deviceAdded", "*deviceRemoved", "*deviceAdded"}));
}

TEST(NotificationCenter, ObserversRunOnThePostingThreadAndMayRemoveThemselves) {
    core::NotificationCenter center;
    std::atomic<int> calls = 0;
    core::NotificationCenter::Token token = 0;
    token = center.addObserver("once", [&](const QString&, const QVariantMap&) {
        ++calls;
        center.removeObserver(token);
    });
    std::thread::id observedOn;
    center.addObserver("where", [&](const QString&, const QVariantMap&) {
        observedOn = std::this_thread::get_id();
    });

    std::thread poster([&] {
        center.post("once");
        center.post("once");
        center.post("where");
        EXPECT_EQ(observedOn, std::this_thread::get_id());
    });
    poster.join();
    EXPECT_EQ(calls, 1);
}

TEST(Dispatch, MainRunsOnTheMainThreadInOrder) {
    std::vector<int> order;
    QEventLoop loop;
    std::thread worker([&] {
        for (int i = 0; i < 3; ++i)
            dispatch::main([&, i] {
                EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
                order.push_back(i);
                if (i == 2)
                    loop.quit();
            });
    });
    QTimer::singleShot(5000, &loop, &QEventLoop::quit);
    loop.exec();
    worker.join();
    EXPECT_EQ(order, std::vector<int>({0, 1, 2}));
}

// Lanes wait on one another (a pause, a shared failure); a pool that queued some of them behind
// the others would serialise or deadlock them. Every task here waits until all have started.
TEST(Dispatch, GlobalRunsOffTheMainThreadAndConcurrentlyRunsMoreTasksThanThePoolAllAtOnce) {
    const int count = QThreadPool::globalInstance()->maxThreadCount() + 4;
    std::mutex mutex;
    std::condition_variable allStarted;
    int started = 0;
    std::atomic<int> sawEveryone = 0;
    std::promise<void> finished;
    std::atomic<bool> offMain = false;
    dispatch::global([&] {
        offMain = QThread::currentThread() != QCoreApplication::instance()->thread();
        std::vector<dispatch::Task> tasks;
        for (int i = 0; i < count; ++i)
            tasks.push_back([&] {
                std::unique_lock lock(mutex);
                ++started;
                allStarted.notify_all();
                if (allStarted.wait_for(lock, std::chrono::seconds(5),
                                        [&] { return started == count; }))
                    ++sawEveryone;
            });
        dispatch::concurrently(std::move(tasks));
        finished.set_value();
    });
    finished.get_future().wait();
    EXPECT_TRUE(offMain) << "global work runs off the main thread";
    EXPECT_EQ(sawEveryone, count);
}

TEST(Dispatch, SerialQueueRunsOneAtATimeInSubmissionOrder) {
    std::vector<int> order;
    std::atomic<int> running = 0;
    std::atomic<bool> overlapped = false;
    {
        dispatch::SerialQueue queue("restore");
        for (int i = 0; i < 50; ++i)
            queue.async([&, i] {
                if (++running > 1)
                    overlapped = true;
                order.push_back(i);
                --running;
            });
    }  // the destructor lets every queued task finish
    ASSERT_EQ(order.size(), 50u);
    for (int i = 0; i < 50; ++i) EXPECT_EQ(order[i], i);
    EXPECT_FALSE(overlapped);
}

}  // namespace
