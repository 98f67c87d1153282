#include "core/NotificationCenter.h"
#include "usb/MemoryUsbRegistry.h"
#include "usb/USBManager.h"

#include "UsbTestDevices.h"
#include "support/VirtualClock.h"

#include <gtest/gtest.h>

#include <vector>

namespace usb_testing {
namespace {
// Timers that fire only when the test says so; each stays readable after the manager drops it.
class ManualTimers {
  public:
    struct Scheduled {
        double seconds;
        std::function<void()> action;
        bool valid = true;
    };
    struct Timer final : usb::OneShotTimer {
        explicit Timer(std::shared_ptr<Scheduled> s) : scheduled(std::move(s)) {}
        bool isValid() const override { return scheduled->valid; }
        void invalidate() override { scheduled->valid = false; }
        std::shared_ptr<Scheduled> scheduled;
    };

    usb::TimerFactory factory() {
        return [this](double seconds, std::function<void()> action) {
            scheduled.push_back(std::make_shared<Scheduled>(Scheduled{seconds, std::move(action)}));
            return std::make_unique<Timer>(scheduled.back());
        };
    }

    void fire(std::size_t index) {
        ASSERT_LT(index, scheduled.size());
        ASSERT_TRUE(scheduled[index]->valid);
        scheduled[index]->valid = false;
        scheduled[index]->action();
    }

    std::vector<std::shared_ptr<Scheduled>> scheduled;
};

struct Posted {
    QString name;
    QList<DeviceIOKitInfo> devices;
};

usb::PropertyMap mac(int port, const QString& serial) {
    return device(apple, 0x14100000u | (qulonglong(port) << 16), serial, "Mac");
}

class USBManagerTest : public ::testing::Test {
  protected:
    USBManagerTest() {
        center.addObserver({}, [this](const QString& name, const QVariantMap& userInfo) {
            posted.push_back({name, USBManager::devicesInUserInfo(userInfo)});
        });
    }

    std::shared_ptr<USBManager> makeManager() {
        return std::make_shared<USBManager>(registry, clock, center, timers.factory());
    }

    // Starts watching and delivers the first batch, so later arrivals use the long window.
    std::shared_ptr<USBManager> managerPastFirstBatch() {
        auto manager = makeManager();
        manager->startWatching();
        clock.advanceMilliseconds(100);
        timers.fire(0);
        posted.clear();
        return manager;
    }

    usb::MemoryUsbRegistry registry;
    testing_support::VirtualClock clock;
    core::NotificationCenter center;
    ManualTimers timers;
    std::vector<Posted> posted;
};

TEST_F(USBManagerTest, DevicesPresentAtStartArriveAsTheFirstBatchAfterATenthOfASecond) {
    registry.attach(mac(1, "c02aaa"));
    registry.attach(mac(2, "C02BBB"));
    auto manager = makeManager();
    manager->startWatching();
    manager->startWatching();  // a second call keeps the one watcher

    ASSERT_EQ(timers.scheduled.size(), 1u);
    EXPECT_DOUBLE_EQ(timers.scheduled[0]->seconds, 0.1);
    EXPECT_TRUE(posted.empty());
    EXPECT_EQ(registry.watchers(), 1);

    timers.fire(0);
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].name, "deviceAdded");
    EXPECT_EQ(posted[0].devices, QList<DeviceIOKitInfo>({{apple, "C02AAA", 0x14110000, "Mac", 0},
                                                         {apple, "C02BBB", 0x14120000, "Mac", 0}}));
    EXPECT_DOUBLE_EQ(manager->delay(), 5.0);
    EXPECT_TRUE(manager->pendingDevices().isEmpty());
}

TEST_F(USBManagerTest, LaterArrivalsShareOneFiveSecondBatchAndRemovalsGoOutFirst) {
    registry.attach(device(acroname, 0x14100000, "1A2B3C4D", "USBHub3c"));
    auto manager = managerPastFirstBatch();
    for (int port = 1; port <= 8; ++port) {
        registry.attach(mac(port, QStringLiteral("SERIAL%1").arg(port)));
        clock.advanceMilliseconds(400);
    }
    registry.attach(device(acroname, 0x14180000, "1A2B3C4D", "USBHub3c-Stem"));
    registry.attach(device(apple, 0x00100000, dfuSerial(0x42), "Apple Mobile Device (DFU Mode)"));
    ASSERT_EQ(timers.scheduled.size(), 2u);
    EXPECT_DOUBLE_EQ(timers.scheduled[1]->seconds, 5.0);

    // Detached while its attachment still waits in the batch.
    ASSERT_TRUE(registry.detach(0x14130000));
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].name, "deviceRemoved");
    EXPECT_EQ(posted[0].devices,
              QList<DeviceIOKitInfo>({{apple, "SERIAL3", 0x14130000, "Mac", 0}}));
    EXPECT_EQ(manager->pendingDevices().size(), 10);  // removals leave the batch alone

    timers.fire(1);
    ASSERT_EQ(posted.size(), 2u);
    EXPECT_EQ(posted[1].name, "deviceAdded");
    ASSERT_EQ(posted[1].devices.size(), 10);
    EXPECT_EQ(posted[1].devices[0].usbAddress, 0x14110000);
    EXPECT_EQ(posted[1].devices[8].productName, "USBHub3c-Stem");
    EXPECT_EQ(posted[1].devices[9].usbAddress, 0x00100000);
    EXPECT_EQ(posted[1].devices[9].serialNumber, "");  // a DFU serial is no serial number

    registry.attach(mac(9, "NEXT"));
    ASSERT_EQ(timers.scheduled.size(), 3u);
    EXPECT_DOUBLE_EQ(timers.scheduled[2]->seconds, 5.0);
}

// The window test compares the time to the last update with the window, and a record that
// arrives while a batch waits does not count as an update. Only a clock that steps back can
// show either, so the test steps it back.
TEST_F(USBManagerTest, ArrivalsAreDroppedOnlyWhenTheLastUpdateLiesAWindowAhead) {
    auto manager = makeManager();  // last update: now
    clock.advanceMilliseconds(-100);
    manager->deviceAdded(mac(1, "DROPPED"));  // last update 0.1 s ahead: dropped, but it counts
    EXPECT_TRUE(timers.scheduled.empty());
    EXPECT_TRUE(manager->pendingDevices().isEmpty());

    manager->deviceAdded(mac(1, "A"));  // 0 s from the last update: batched
    ASSERT_EQ(timers.scheduled.size(), 1u);
    manager->deviceAdded(mac(2, "B"));
    clock.advanceMilliseconds(10'000);
    manager->deviceAdded(mac(3, "C"));  // batch waiting: last update stays 10 s back
    clock.advanceMilliseconds(-150);
    manager->deviceAdded(mac(4, "D"));  // would be dropped had the last arrival counted
    EXPECT_EQ(manager->pendingDevices().size(), 4);
    EXPECT_EQ(timers.scheduled.size(), 1u);
}

// The manager's tests above cover what a watcher hands its delegate.
TEST(USBWatcherTest, WithoutADelegateItStillDrainsAndStopsWatchingWhenDestroyed) {
    usb::MemoryUsbRegistry registry({mac(1, "A")});
    auto watcher = std::make_unique<USBWatcher>(std::weak_ptr<USBWatcherDelegate>(), registry);
    registry.attach(mac(2, "B"));  // nobody to tell; the watcher takes it all the same
    EXPECT_TRUE(registry.detach(0x14120000));
    EXPECT_EQ(registry.watchers(), 1);
    watcher.reset();
    EXPECT_EQ(registry.watchers(), 0);
    registry.attach(mac(3, "C"));  // no watcher, no call into freed memory
}

}  // namespace
}  // namespace usb_testing
