#include "support/CollaboratorBuilder.h"
#include "support/Scripts.h"

#include "app/BenchMap.h"
#include "app/DeviceListModel.h"
#include "app/DeviceTableController.h"
#include "app/DfuPortLookup.h"
#include "app/HistoryModel.h"
#include "engines/CfgutilEngine.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/AppState.h"
#include "core/SettingsKeys.h"
#include "localport/AutoDFU.h"
#include "restore/EventNotification.h"
#include "restore/RestoreSession.h"
#include "restore/SoundPlayer.h"
#include "support/RecordingAlerts.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"
#include "unattended/BenchController.h"
#include "views/BenchMapView.h"
#include "views/BenchTileButton.h"
#include "views/CollapsibleSection.h"
#include "views/DevicePanel.h"
#include "views/MainWindow.h"
#include "views/UnattendedBenchGroupView.h"

#include <QApplication>
#include <QClipboard>
#include <QItemSelectionModel>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>

#include <gtest/gtest.h>

namespace {

using testing_support::runLoopUntil;

std::shared_ptr<AC2Device> mac(quint64 ecid, const QString& serial, qint64 location, bool inDFU) {
    auto device = std::make_shared<AC2Device>();
    device->setEcid(ecid);
    device->setSerialNumber(serial);
    device->setLocationID(location);
    device->setInDFU(inDFU);
    device->setName(QStringLiteral("Bench %1").arg(location, 0, 16));
    device->setDeviceType(QStringLiteral("Macmini9,1"));
    return device;
}

class DeviceArea : public ::testing::Test {
  protected:
    void SetUp() override {
        settings.settings().setValue(core::keys::timeBetweenProcesses, "0");
        settings.settings().setValue(core::keys::removeACCache, false);
        const testing_support::CollaboratorBuilder parts(settings.settings(), clock, &alerts);
        utility = std::make_unique<ZMRConfigurator2Utility>(parts.configurator(
            scripts, scripts.write("cfgutil",
                                   "echo '{\"Step\":\"Restoring\",\"Progress\":0.5}'; "
                                   "sleep 0.2; exit 0")));
        engine = std::make_unique<engines::CfgutilEngine>(*utility);
        session = std::make_unique<restore::RestoreSession>(
            parts.restoreSession(*engine, *utility, appState, events, sounds, autoDFU, scripts.dir.path()));
        history = std::make_unique<app::HistoryModel>(*session);
        controller =
            std::make_unique<app::DeviceTableController>(app::DeviceTableController::Environment{
                engine.get(), session.get(), &devices, &appState, nullptr, 1500, 0});
        devices.roster().applyListing({mac(0xA1, "SN-A1", 0x1110000, true),
                                       mac(0xA2, "SN,A2", 0x1120000, true),
                                       mac(0xB1, "SN-B1", 0x1130000, false)});
        panel = std::make_unique<views::DevicePanel>(*controller, devices, *session, *history,
                                                     lookup, benchMap);
        panel->show();
    }

    // Rows as the table shows them, sorted by location: A1, A2, then the booted B1.
    void select(const QList<int>& rows) {
        QItemSelectionModel* selection = panel->table()->selectionModel();
        selection->clearSelection();
        for (const int row : rows)
            selection->select(panel->table()->model()->index(row, 0),
                              QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }

    testing_support::Scripts scripts;
    testing_support::TestSettings settings;
    testing_support::RecordingAlerts alerts;
    testing_support::VirtualClock clock;
    core::AppState appState;
    restore::EventNotification events{clock};
    restore::SoundPlayer sounds;
    AutoDFU autoDFU;
    std::unique_ptr<ZMRConfigurator2Utility> utility;
    std::unique_ptr<engines::CfgutilEngine> engine;
    std::unique_ptr<restore::RestoreSession> session;
    // The Macs at 0x11N0000 hang on port N of hub 1C3B4A01.
    app::DeviceListModel devices{{&clock, [](const AC2Device& mac) {
                                      const auto hop = (mac.locationID() >> 16) & 0xF;
                                      return (mac.locationID() >> 20) == 0x11
                                                 ? QStringLiteral("1C3B4A01:%1").arg(hop)
                                                 : QString();
                                  }}};
    app::BenchMap benchMap{devices, 0x100000};
    std::unique_ptr<app::HistoryModel> history;
    app::DfuPortLookup lookup;
    std::unique_ptr<app::DeviceTableController> controller;
    std::unique_ptr<views::DevicePanel> panel;
};

TEST_F(DeviceArea, RestoreRefusesABootedMacThenRestoresTheDFUMacsIntoTheHistory) {
    select({0, 1, 2});
    QTest::mouseClick(panel->restoreButton(), Qt::LeftButton);
    EXPECT_EQ(alerts.shown().size(), 1u) << "a booted Mac is refused";
    EXPECT_FALSE(session->isBatchRunning());

    select({0, 1});
    QTest::mouseClick(panel->restoreButton(), Qt::LeftButton);
    EXPECT_TRUE(panel->cancelButton()->isEnabled());
    ASSERT_TRUE(runLoopUntil([&] { return history->rowCount() == 2; }));
    const QAbstractItemModel* table = panel->table()->model();
    EXPECT_EQ(table->index(0, app::DeviceListModel::Status).data().toString(), "Successful");
    EXPECT_EQ(table->index(1, app::DeviceListModel::Status).data().toString(), "Successful");
    EXPECT_EQ(table->index(2, app::DeviceListModel::Status).data().toString(), "");
    EXPECT_EQ(history->index(0, app::HistoryModel::Message).data().toString(),
              "Restored Successfully");
    ASSERT_TRUE(runLoopUntil([&] { return !session->isBatchRunning(); }));
    EXPECT_FALSE(panel->cancelButton()->isEnabled());
    EXPECT_EQ(panel->notice()->text(), "Restore Complete");
}

TEST_F(DeviceArea, CopyPutsTheSelectedSerialNumbersOnTheClipboardInTableOrder) {
    panel->table()->sortByColumn(app::DeviceListModel::Location, Qt::DescendingOrder);
    select({0, 2});
    panel->copySerialNumbers();
    EXPECT_EQ(QApplication::clipboard()->text(), "SN-B1\nSN-A1\n");
    EXPECT_EQ(controller->csv(panel->selectedRows()).count('\n'), 3);
}

// The main window as the application lays it out, on a bench of 35 Macs.
TEST_F(DeviceArea, ThirtyFiveMacsNeedOnlyAShortScrollAt1280By800) {
    configurator::DeviceList bench;
    for (int i = 0; i < 35; ++i)
        bench.append(mac(0xC00 + i, QStringLiteral("SN-C%1").arg(i), 0x2000000 + (i << 16), true));
    devices.roster().applyListing(bench);

    views::MainWindow window(appState, nullptr);
    auto* area = new QWidget;
    auto* layout = new QVBoxLayout(area);
    auto* fullPanel =
        new views::DevicePanel(*controller, devices, *session, *history, lookup, benchMap);
    auto* localPort = new views::CollapsibleSection("This Mac's DFU Port", new QLabel("controls"));
    unattended::BenchController unattendedBench(*session);
    layout->addWidget(fullPanel, 1);
    layout->addWidget(localPort);
    layout->addWidget(new views::UnattendedBenchGroupView(unattendedBench));
    window.setDeviceArea(area);
    localPort->setExpanded(false);
    window.show();
    ASSERT_EQ(window.size(), QSize(1280, 800));
    QTableView* table = fullPanel->table();
    QApplication::processEvents();
    EXPECT_GE(table->rowAt(table->viewport()->height() - 1), 19) << "20 rows or more in view";
    EXPECT_GE(fullPanel->historyTable()->height(), fullPanel->historyTable()->minimumHeight());

    // Unfolding the host's port takes its room from the table, and folding gives it back.
    const int folded = table->height();
    localPort->header()->click();
    QApplication::processEvents();
    EXPECT_TRUE(localPort->body()->isVisible());
    EXPECT_LT(table->height(), folded);
    localPort->header()->click();
    QApplication::processEvents();
    EXPECT_GE(table->rowAt(table->viewport()->height() - 1), 19);

    // The batch's bar says what it measures, beside it where its chunk cannot hide the words.
    appState.setIsRunning(true);
    appState.setProgressBarValue(0.12);
    EXPECT_TRUE(window.batchProgress()->isVisible());
    EXPECT_FALSE(window.batchProgress()->isTextVisible());
    EXPECT_EQ(window.batchProgressLabel()->text(), "Restore batch: 12% restored");
    appState.setIsRunning(false);
}

class BenchMapArea : public DeviceArea {
  protected:
    void SetUp() override {
        DeviceArea::SetUp();
        benchMap.setHubPorts(
            {"1C3B4A01:1", "1C3B4A01:2", "1C3B4A01:3", "1C3B4A01:4", "1C3B4A01:5"});
        panel->showBenchMap(true);
    }
    views::BenchTileButton* tile(int index) const { return panel->benchMap()->tiles().at(index); }
    QStringList states() const {
        QStringList words;
        for (const auto* button : panel->benchMap()->tiles()) words << button->stateText();
        return words;
    }
};

TEST_F(BenchMapArea, TilesFollowTheMacsThroughARestore) {
    ASSERT_EQ(panel->benchMap()->tiles().size(), 6) << "five hub ports and this Mac's own";
    EXPECT_EQ(states(), (QStringList{"DFU", "DFU", "Booted", "Empty", "Empty", "Empty"}));
    EXPECT_EQ(tile(0)->accessibleName(), "Port 1C3B4A01:1, Mac mini (M1, 2020), DFU");
    EXPECT_EQ(tile(5)->accessibleName(), "This Mac's DFU port, Empty");
    EXPECT_TRUE(tile(0)->toolTip().contains("Macmini9,1"));

    select({0});
    QTest::mouseClick(panel->restoreButton(), Qt::LeftButton);
    ASSERT_TRUE(runLoopUntil([&] { return tile(0)->stateText().startsWith("Restoring"); }));
    ASSERT_TRUE(runLoopUntil([&] { return tile(0)->stateText() == "Restored"; }));
    EXPECT_EQ(tile(1)->stateText(), "DFU");

    benchMap.setDisabledPorts({"1C3B4A01:4"});
    EXPECT_EQ(tile(3)->stateText(), "Disabled");
    devices.roster().usbDevicesRemoved({{1452, "SN-B1", 0x1130000, "Mac", 0xB1}});
    EXPECT_TRUE(runLoopUntil([&] { return tile(2)->stateText() == "Empty"; }))
        << "a Mac that left leaves its port empty";
}

TEST_F(BenchMapArea, MoreStatesCanBeAddedWithoutTouchingTheBuiltInOnes) {
    benchMap.addState("attention", {"Needs Attention", 0xFF6F00, 0x000000});
    benchMap.addClassifier(
        [](const app::BenchTile& tile, const AC2Device* mac) -> std::optional<QString> {
            if (mac && tile.port == "1C3B4A01:2")
                return QStringLiteral("attention");
            return std::nullopt;
        });
    EXPECT_EQ(states(),
              (QStringList{"DFU", "Needs Attention", "Booted", "Empty", "Empty", "Empty"}));
}

TEST_F(BenchMapArea, ClicksAndKeysOnTilesSelectTheMacsInTheTable) {
    QTest::mouseClick(tile(1), Qt::LeftButton);
    ASSERT_EQ(panel->selectedRows().size(), 1);
    EXPECT_EQ(devices.deviceAt(panel->selectedRows()[0])->serialNumber(), "SN,A2");
    EXPECT_TRUE(tile(1)->isSelected());
    EXPECT_TRUE(panel->restoreButton()->isEnabled());

    QTest::mouseClick(tile(2), Qt::LeftButton, Qt::ControlModifier);
    EXPECT_EQ(panel->selectedRows().size(), 2);
    QTest::mouseClick(tile(4), Qt::LeftButton);
    EXPECT_EQ(panel->selectedRows().size(), 2) << "an empty port selects nothing";

    select({0});
    EXPECT_TRUE(tile(0)->isSelected()) << "the table's selection shows on the map";
    EXPECT_FALSE(tile(1)->isSelected());

    panel->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(panel.get()));
    tile(0)->setFocus();
    QTest::keyClick(tile(0), Qt::Key_Right);
    ASSERT_TRUE(tile(1)->hasFocus());
    QTest::keyClick(tile(1), Qt::Key_Space);
    EXPECT_EQ(devices.deviceAt(panel->selectedRows().value(0))->serialNumber(), "SN,A2");
    QTest::keyClick(tile(1), Qt::Key_Down);
    EXPECT_TRUE(tile(5)->hasFocus()) << "down a row of five ports";
}

}  // namespace
