#include "app/HubController.h"

#include "ScriptedHubStation.h"

#include "usb/USBManager.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

namespace {

using app::HubController;
using app::HubTableModel;
using testing_support::ScriptedHubStation;

class HubControllerTest : public ::testing::Test {
  protected:
    HubControllerTest() {
        station->addHub(0x1001);
        station->addHub(0x1002);
    }

    // Shows the view and waits for the rows the refresh delivers to the main thread.
    void showAndLoad() {
        QSignalSpy rebuilt(&controller, &HubController::rowsRebuilt);
        controller.viewShown();
        ASSERT_TRUE(rebuilt.wait(2000));
    }

    // Ends the running sequence and waits until its sheet is gone and the rows are back.
    void finishSequence() {
        QSignalSpy rebuilt(&controller, &HubController::rowsRebuilt);
        station->finish();
        ASSERT_TRUE(rebuilt.wait(2000));
        ASSERT_FALSE(controller.showModal());
    }

    // The identifiers of the rows at these indexes, as a selection.
    QSet<QUuid> rows(std::initializer_list<int> indexes) {
        QSet<QUuid> selected;
        for (int index : indexes) selected.insert(controller.hubDevices().at(index).id);
        return selected;
    }

    static QVariantMap arrival(std::int64_t vendor, const QString& product) {
        const QList<DeviceIOKitInfo> devices{{vendor, {}, 0, product}};
        return {{USBManager::devicesKey, QVariant::fromValue(devices)}};
    }

    std::shared_ptr<ScriptedHubStation> station = std::make_shared<ScriptedHubStation>();
    core::NotificationCenter center;
    int backgroundTasks = 0;
    int watcherStarts = 0;
    HubController controller{{station, &center,
                              [this](dispatch::Task task) {
                                  ++backgroundTasks;
                                  task();
                              },
                              [this] { ++watcherStarts; }}};
};

TEST_F(HubControllerTest, RowsComeFromTheManagersEntriesWithTheirColumns) {
    showAndLoad();
    EXPECT_EQ(backgroundTasks, 1) << "the rebuild runs in the background";
    EXPECT_EQ(watcherStarts, 1);
    EXPECT_FALSE(controller.isRefreshing());
    HubTableModel& model = *controller.model();
    ASSERT_EQ(model.rowCount(), 10);
    ASSERT_EQ(model.columnCount(), 7);

    QStringList fourthRow;
    for (int column = 0; column < model.columnCount(); ++column)
        fourthRow << model.data(model.index(3, column)).toString();
    EXPECT_EQ(fourthRow, (QStringList{"1001", "2.10.4", "4", "5.0", "0.4", "2.0", "No"}));
    EXPECT_EQ(model.data(model.index(5, 0)).toString(), "1002");

    EXPECT_EQ(controller.hubDevices().front().deviceUSBID, 0x01110000);
    EXPECT_EQ(controller.hubDevices().front().acronamePort, station->entries.front()->port());
}

TEST_F(HubControllerTest, PowerIsTheMagnitudeOfVoltageTimesCurrent) {
    app::HubDevice row;
    row.acronamePort = std::make_shared<AcronamePort>();
    row.acronamePort->setVBusVoltage(20.04f);
    row.acronamePort->setVBusCurrent(-1.56f);
    EXPECT_EQ(HubTableModel::cellText(row, HubTableModel::Voltage), "20.0");
    EXPECT_EQ(HubTableModel::cellText(row, HubTableModel::Current), "-1.6");
    EXPECT_EQ(HubTableModel::cellText(row, HubTableModel::Power), "31.3");
}

TEST_F(HubControllerTest, SequencesGetTheSelectedPortsInRowOrder) {
    showAndLoad();
    controller.dfu(rows({7, 0, 2}));
    finishSequence();
    controller.restart(rows({9, 5}));
    finishSequence();
    controller.recovery(rows({1}));
    finishSequence();
    EXPECT_EQ(station->requests, (QStringList{"dfu 1001:1 1001:3 1002:3", "restart 1002:1 1002:5",
                                              "recovery 1001:2"}));
}

// Every rebuild makes new row identifiers, so a selection from an earlier one acts on nothing.
TEST_F(HubControllerTest, NothingHappensOnAnEmptyOrStaleSelection) {
    showAndLoad();
    const QUuid stale = controller.hubDevices().front().id;
    showAndLoad();
    EXPECT_EQ(watcherStarts, 1) << "the watcher and the observers are set up once";
    controller.dfu({});
    controller.restart({});
    controller.recovery({});
    controller.rebootHub({});
    controller.toggleLED({});
    controller.dfu({stale});
    EXPECT_TRUE(station->requests.isEmpty());
    EXPECT_FALSE(controller.showModal());
}

TEST_F(HubControllerTest, TheProgressSheetShowsTheSequencesTextUntilItEnds) {
    showAndLoad();
    QSignalSpy texts(&controller, &HubController::updateMessageChanged);
    controller.dfu(rows({0}));
    EXPECT_TRUE(controller.showModal());

    station->say(QStringLiteral("Putting devices into DFU mode (setting power role)"));
    station->say(QStringLiteral("Sending DFU command to port 1"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return texts.size() == 2; }, 2000));
    EXPECT_EQ(controller.updateMessage(), "Sending DFU command to port 1");

    controller.restart(rows({1}));
    EXPECT_EQ(station->requests.size(), 1) << "one sequence at a time";

    const int refreshesBefore = station->refreshes;
    station->finish();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !controller.showModal(); }, 2000));
    EXPECT_EQ(station->refreshes, refreshesBefore + 1) << "the rows are rebuilt after a sequence";
}

// The sheet names the port being worked, counts the ports done, and with hubs worked at once
// gives each hub a line.
TEST_F(HubControllerTest, TheSheetNamesThePortsAtWorkAndCountsThoseDone) {
    showAndLoad();
    const AcronamePorts ports = {station->hubs[0]->ports()[0], station->hubs[1]->ports()[0]};
    const auto step = [&](int index, PortProgress::Step what, unsigned seconds = 0) {
        station->runningObserver({.kind = PortProgress::Kind::PortStep,
                                  .step = what,
                                  .port = ports[index].get(),
                                  .position = index + 1,
                                  .count = 2,
                                  .seconds = seconds});
    };
    controller.dfu(rows({0, 5}));
    step(0, PortProgress::Step::Settling, 3);
    ASSERT_TRUE(QTest::qWaitFor([&] { return controller.portsCount() == 2; }, 2000));
    EXPECT_EQ(controller.activityText().toStdString(), "port 1 of 2 · 1001:1 · settling 3 s");
    station->runningObserver({.kind = PortProgress::Kind::PortResult,
                              .port = ports[0].get(),
                              .position = 1,
                              .count = 2,
                              .succeeded = true});
    ASSERT_TRUE(QTest::qWaitFor([&] { return controller.portsDone() == 1; }, 2000));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return controller.activityText() == "port 1 of 2 · 1001:1 · settling 2 s"; }, 2500))
        << "the sheet is told every second, so the countdown moves";
    finishSequence();

    station->parallel = true;
    controller.dfu(rows({0, 5}));
    EXPECT_EQ(controller.portsDone(), 0) << "a new sequence counts from nothing";
    step(1, PortProgress::Step::Disable);
    step(0, PortProgress::Step::Enable);
    ASSERT_TRUE(QTest::qWaitFor([&] { return controller.activityText().contains('\n'); }, 2000));
    EXPECT_EQ(controller.activityText().toStdString(),
              "1001 | port 1 of 2 · 1001:1 · enable\n1002 | port 2 of 2 · 1002:1 · disable");
    finishSequence();
}

TEST_F(HubControllerTest, RebuildsWhenAHubComesOrGoesButNotForAMac) {
    showAndLoad();
    const int refreshes = station->refreshes;
    center.post(USBManager::deviceAddedNotification,
                arrival(0x05AC, QStringLiteral("Apple Mobile Device (DFU Mode)")));
    center.post(USBManager::deviceRemovedNotification, arrival(9471, QStringLiteral("USBHub3c")));
    QCoreApplication::processEvents();  // what the notifications queued for the main thread
    EXPECT_EQ(station->refreshes, refreshes);

    QSignalSpy rebuilt(&controller, &HubController::rowsRebuilt);
    center.post(USBManager::deviceAddedNotification,
                arrival(9471, QStringLiteral("USBHub3c-Stem")));
    ASSERT_TRUE(rebuilt.wait(2000));
    center.post(USBManager::deviceRemovedNotification,
                arrival(9471, QStringLiteral("USBHub3c-Stem")));
    ASSERT_TRUE(rebuilt.wait(2000));
    EXPECT_EQ(station->refreshes, refreshes + 2);
}

TEST_F(HubControllerTest, ARefreshAskedForDuringOneRunsAfterIt) {
    station->holdRefreshes = true;
    controller.refresh();
    EXPECT_TRUE(controller.isRefreshing());
    controller.refresh();
    controller.refresh();
    EXPECT_EQ(station->refreshes, 1);

    QSignalSpy rebuilt(&controller, &HubController::rowsRebuilt);
    station->heldRefresh();
    ASSERT_TRUE(rebuilt.wait(2000));
    EXPECT_EQ(station->refreshes, 2) << "the requests made meanwhile become one more refresh";
    station->heldRefresh();
    ASSERT_TRUE(rebuilt.wait(2000));
    EXPECT_EQ(station->refreshes, 2);
    EXPECT_FALSE(controller.isRefreshing());
}

}  // namespace
