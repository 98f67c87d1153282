#include "configurator/ScriptedConfigurator.h"

#include "app/AppState.h"
#include "app/DeviceListModel.h"
#include "app/DeviceTableController.h"
#include "app/DfuPortLookup.h"
#include "app/HistoryModel.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/SettingsKeys.h"
#include "restore/EventNotification.h"
#include "restore/RestoreSession.h"
#include "restore/SoundPlayer.h"
#include "support/RecordingAlerts.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"
#include "usb/AutoDFU.h"
#include "views/CollapsibleSection.h"
#include "views/DevicePanel.h"
#include "views/MainWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QItemSelectionModel>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QToolButton>
#include <QVBoxLayout>
#include <QSortFilterProxyModel>
#include <QTableView>
#include <QTest>

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
    return device;
}

class DeviceArea : public ::testing::Test {
  protected:
    void SetUp() override {
        settings.settings().setValue(core::keys::timeBetweenProcesses, "0");
        settings.settings().setValue(core::keys::removeACCache, false);
        utility = testing_support::scriptedConfigurator(
            scripts,
            scripts.write("cfgutil",
                          "echo '{\"Step\":\"Restoring\",\"Progress\":0.5}'; sleep 0.2; exit 0"),
            settings.settings(), alerts, clock);

        restore::RestoreSession::Collaborators c;
        c.settings = &settings.settings();
        c.alerts = &alerts;
        c.clock = &clock;
        c.configurator = utility.get();
        c.appState = &appState;
        c.events = &events;
        c.sounds = &sounds;
        c.autoDFU = &autoDFU;
        c.homeFolder = scripts.dir.path();
        session = std::make_unique<restore::RestoreSession>(c);
        history = std::make_unique<app::HistoryModel>(*session);
        controller = std::make_unique<app::DeviceTableController>(app::DeviceTableController::Environment{
            &settings.settings(), utility.get(), session.get(), &devices, &appState, nullptr, 1500, 0});
        devices.applyListing({mac(0xA1, "SN-A1", 0x1110000, true),
                              mac(0xA2, "SN,A2", 0x1120000, true),
                              mac(0xB1, "SN-B1", 0x1130000, false)});
        panel = std::make_unique<views::DevicePanel>(*controller, devices, *session, *history,
                                                     lookup);
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
    app::AppState appState;
    restore::EventNotification events{clock};
    restore::SoundPlayer sounds;
    AutoDFU autoDFU;
    std::unique_ptr<ZMRConfigurator2Utility> utility;
    std::unique_ptr<restore::RestoreSession> session;
    app::DeviceListModel devices{{&settings.settings(), nullptr, &clock, {}}};
    std::unique_ptr<app::HistoryModel> history;
    app::DfuPortLookup lookup;
    std::unique_ptr<app::DeviceTableController> controller;
    std::unique_ptr<views::DevicePanel> panel;
};

TEST_F(DeviceArea, RestoreRefusesABootedMacThenRestoresTheDFUMacsIntoTheHistory) {
    select({0, 1, 2});
    QTest::mouseClick(panel->restoreButton(), Qt::LeftButton);
    ASSERT_EQ(alerts.shown().size(), 1u);
    EXPECT_EQ(alerts.shown()[0].message,
              "All devices must be in DFU mode to restore. Please select only devices in DFU "
              "mode.");
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
    devices.applyListing(bench);

    views::MainWindow window(appState, nullptr);
    auto* area = new QWidget;
    auto* layout = new QVBoxLayout(area);
    auto* fullPanel = new views::DevicePanel(*controller, devices, *session, *history, lookup);
    auto* localPort = new views::CollapsibleSection("This Mac's DFU Port", new QLabel("controls"));
    layout->addWidget(fullPanel, 1);
    layout->addWidget(localPort);
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

    // The batch's bar says what it measures.
    appState.setIsRunning(true);
    EXPECT_TRUE(window.batchProgress()->isVisible());
    EXPECT_EQ(window.batchProgress()->accessibleName(), "Restore batch progress");
    appState.setIsRunning(false);
}

}  // namespace
