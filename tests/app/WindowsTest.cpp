#include "views/HubWindow.h"
#include "views/MainWindow.h"
#include "views/MessageBoxAlerts.h"
#include "views/OptionsSheet.h"
#include "views/ProgressSheet.h"
#include "views/QuitGuard.h"
#include "views/WindowRoster.h"

#include "ScriptedHubStation.h"

#include "app/AppDelegate.h"
#include "app/HubController.h"
#include "app/OptionsSheetModel.h"
#include "core/AppState.h"
#include "core/SettingsKeys.h"
#include "support/RecordingAlerts.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTableView>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

namespace {

using testing_support::ScriptedHubStation;

class HubWindowTest : public ::testing::Test {
  protected:
    HubWindowTest() {
        station->addHub(0x1001);
        station->addHub(0x1002);
        window.show();
        EXPECT_TRUE(
            QTest::qWaitFor([&] { return window.table()->model()->rowCount() == 10; }, 2000));
    }

    // Clicks a row; with Ctrl held it joins the selection.
    void click(int row, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTableView* table = window.table();
        const QRect cell = table->visualRect(table->model()->index(row, 0));
        QTest::mouseClick(table->viewport(), Qt::LeftButton, modifiers, cell.center());
    }

    std::shared_ptr<ScriptedHubStation> station = std::make_shared<ScriptedHubStation>();
    core::NotificationCenter center;
    app::HubController controller{{station, &center, [](dispatch::Task task) { task(); }, [] {}}};
    views::HubWindow window{controller};
};

// The application lets go of the hubs when the window named "acroname" closes.
TEST_F(HubWindowTest, ShowsThePortsAndActsOnlyOnASelection) {
    EXPECT_EQ(window.objectName(), "acroname");
    EXPECT_EQ(window.statusBar()->findChild<QLabel*>()->text(), "device count: 10");
    EXPECT_FALSE(window.dfuAction()->isEnabled());
    EXPECT_FALSE(window.rebootHubAction()->isEnabled());
    EXPECT_TRUE(window.refreshAction()->isEnabled());
    window.dfuAction()->trigger();
    EXPECT_TRUE(station->requests.isEmpty());
    click(2);
    EXPECT_TRUE(window.dfuAction()->isEnabled());

    click(6);
    click(8, Qt::ControlModifier);  // the same hub: one command, not two
    window.toggleLEDAction()->trigger();
    window.rebootHubAction()->trigger();
    EXPECT_EQ(station->requests, (QStringList{"led 1002", "reboot 1002"}));

    QSignalSpy closed(&window, &views::HubWindow::closed);
    window.close();
    EXPECT_EQ(closed.size(), 1);
}

TEST_F(HubWindowTest, DfuOnClickedRowsShowsTheLiveSheetUntilTheSequenceEnds) {
    click(8);
    click(1, Qt::ControlModifier);
    click(4, Qt::ControlModifier);
    window.dfuAction()->trigger();
    EXPECT_EQ(station->requests, QStringList{"dfu 1001:2 1001:5 1002:4"});

    views::ProgressSheet* sheet = window.progressSheet();
    ASSERT_TRUE(QTest::qWaitFor([&] { return sheet->isVisible(); }, 2000));
    EXPECT_FALSE(window.dfuAction()->isEnabled()) << "no second sequence while one runs";
    station->say(QStringLiteral("Sending DFU command to port 2"));
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return sheet->message() == "Sending DFU command to port 2"; }, 2000));

    station->finish();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !sheet->isVisible(); }, 2000));
}

TEST_F(HubWindowTest, EveryCommandHasAPictureOfItsOwn) {
    QList<QImage> pictures;
    for (QAction* action :
         {window.dfuAction(), window.restartAction(), window.recoveryAction(),
          window.refreshAction(), window.rebootHubAction(), window.toggleLEDAction()}) {
        const QImage picture = action->icon().pixmap(24, 24).toImage();
        ASSERT_FALSE(picture.isNull()) << qPrintable(action->text());
        EXPECT_FALSE(pictures.contains(picture)) << qPrintable(action->text());
        pictures << picture;
    }
}

// The main window, the hub window and the rules between them, as the application wires them.
class WindowRulesTest : public HubWindowTest {
  protected:
    WindowRulesTest() {
        guard.watch(&mainWindow);
        guard.watch(&window);
        roster.watch(&window);
        QObject::connect(&window, &views::HubWindow::mainWindowRequested, &roster,
                         &views::WindowRoster::showMainWindow);
        mainWindow.show();
    }

    static void activate(QWidget* which) {
        QEvent activation(QEvent::WindowActivate);
        QApplication::sendEvent(which, &activation);
    }

    testing_support::TestSettings settings;
    testing_support::VirtualClock clock;
    testing_support::RecordingAlerts alerts;
    app::AppDelegate delegate{[this] {
        app::AppDelegateEnvironment environment;
        environment.settings = &settings.settings();
        environment.clock = &clock;
        environment.notifications = &center;
        environment.alerts = &alerts;
        return environment;
    }()};
    views::QuitGuard guard{delegate};
    core::AppState state;
    views::MainWindow mainWindow{state, nullptr};
    views::WindowRoster roster{&mainWindow};
};

TEST_F(WindowRulesTest, TheMainWindowClosedDuringABatchComesBackFromTheHubWindow) {
    delegate.setPreventTermination(true);
    QPointer<views::MainWindow> main(&mainWindow);
    EXPECT_TRUE(mainWindow.close()) << "another window is open, so this is no quit request";
    EXPECT_FALSE(mainWindow.isVisible());
    EXPECT_TRUE(alerts.shown().empty());

    window.mainWindowAction()->trigger();
    ASSERT_TRUE(main);
    EXPECT_TRUE(mainWindow.isVisible());

    // The hub window is now the last one open while the main one is hidden again: closing it
    // is a quit request, refused during the batch.
    mainWindow.close();
    EXPECT_FALSE(window.close());
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(alerts.shown().size(), 1u);

    delegate.setPreventTermination(false);
    EXPECT_TRUE(window.close());
}

TEST_F(WindowRulesTest, TheStatusLineFollowsTheStateButKeepsAnUnwritableLog) {
    EXPECT_FALSE(mainWindow.logProblem()->isVisible());
    mainWindow.showLogProblem(
        QStringLiteral("Cannot write the log file /x/generic.log (<b>x</b>)"));
    EXPECT_TRUE(mainWindow.logProblem()->isVisible());
    EXPECT_EQ(mainWindow.logProblem()->textFormat(), Qt::PlainText);
    state.setProgressMessage(QStringLiteral("Waiting to start next process"));
    EXPECT_EQ(mainWindow.statusMessage()->text(), "Waiting to start next process");
    EXPECT_TRUE(mainWindow.logProblem()->text().startsWith("Cannot write the log file"));
}

TEST_F(WindowRulesTest, BringingToFrontRaisesOnlyWindowsThatAreOpen) {
    activate(&window);
    EXPECT_EQ(roster.frontWindow(), &window);
    window.close();
    roster.bringToFront();
    EXPECT_FALSE(window.isVisible()) << "a closed hub window is not reopened";
    EXPECT_TRUE(mainWindow.isVisible());
    EXPECT_EQ(roster.frontWindow(), &mainWindow);

    window.show();
    activate(&window);
    mainWindow.close();
    roster.bringToFront();
    EXPECT_FALSE(mainWindow.isVisible()) << "nor is a hidden main window shown";
    EXPECT_EQ(roster.frontWindow(), &window);
}

TEST(MessageBoxAlertsTest, TextsFromOutsideAreShownAsPlainText) {
    QList<Qt::TextFormat> formats;
    QStringList texts;
    QTimer::singleShot(0, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        for (const QLabel* label : box->findChildren<QLabel*>()) {
            if (label->text().isEmpty())
                continue;
            texts << label->text();
            formats << label->textFormat();
        }
        box->buttons().front()->click();
    });
    views::MessageBoxAlerts alerts;
    alerts.show({QStringLiteral("New <b>Version</b> Available"),
                 QStringLiteral("The new version is 9.<a href='https://example.invalid/x'>click"
                                "</a>."),
                 {QStringLiteral("OK")}});
    EXPECT_EQ(texts.size(), 2) << texts.join('|').toStdString();
    EXPECT_EQ(formats, QList<Qt::TextFormat>(texts.size(), Qt::PlainText));
}

class OptionsSheetTest : public ::testing::Test {
  protected:
    core::Settings& store() { return settings.settings(); }

    testing_support::TestSettings settings{false};
    QStringList opened;
    int cacheRemovals = 0;
    app::OptionsSheetModel model{{&settings.settings(),
                                  [this](std::function<void(bool, const QString&)> done) {
                                      ++cacheRemovals;
                                      done(true, QString());
                                  },
                                  [this](const QString& folder) { opened << folder; },
                                  QStringLiteral("/home/tech")}};
    views::OptionsSheet sheet{model};
};

TEST_F(OptionsSheetTest, AFreshUserSeesTheSheetsDefaults) {
    sheet.show();
    for (const core::OptionsSheetDefault& option : core::optionsSheetDefaults()) {
        if (const QCheckBox* box = sheet.toggle(option.key))
            EXPECT_EQ(box->isChecked(), option.value.toBool()) << option.key;
        else if (const QLineEdit* field = sheet.textField(option.key))
            EXPECT_EQ(field->text(), option.value.toString()) << option.key;
        else  // the paths are chosen elsewhere and start empty
            EXPECT_EQ(option.value.toString(), "") << option.key;
    }
    EXPECT_TRUE(store().userKeys().isEmpty()) << "showing writes nothing";
}

TEST_F(OptionsSheetTest, EveryChangeIsWrittenAtOnceAndReopeningReadsTheStoreAgain) {
    sheet.show();
    sheet.toggle(core::keys::acronameSkipDFUSDPMode)->click();
    EXPECT_EQ(store().userValue(core::keys::acronameSkipDFUSDPMode).toBool(), false);
    QLineEdit* pause = sheet.textField(core::keys::timeBetweenProcesses);
    pause->clear();
    QTest::keyClicks(pause, QStringLiteral("abc"));
    EXPECT_EQ(store().userValue(core::keys::timeBetweenProcesses).toString(), "abc");

    sheet.hide();
    store().setValue(core::keys::stayInFrontAfterDFUSecs, QStringLiteral("40"));
    store().setValue(core::keys::shouldPlaySound, false);
    sheet.show();
    EXPECT_EQ(sheet.textField(core::keys::stayInFrontAfterDFUSecs)->text(), "40");
    EXPECT_FALSE(sheet.toggle(core::keys::shouldPlaySound)->isChecked());
}

TEST_F(OptionsSheetTest, CacheButtons) {
    sheet.show();
    for (QPushButton* button : sheet.findChildren<QPushButton*>()) {
        if (button->text() == "Show Cached IPSWs" || button->text() == "Empty Now")
            button->click();
    }
    EXPECT_EQ(opened,
              QStringList{"/home/tech/Library/Group Containers/"
                          "K36BKF7T3D.group.com.apple.configurator/Library/Caches/Firmware"});
    EXPECT_EQ(cacheRemovals, 1);
}

}  // namespace
