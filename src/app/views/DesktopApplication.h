#pragma once

#include "app/AppDelegate.h"
#include "app/OptionsSheetModel.h"
#include "core/AppState.h"
#include "views/PortCommand.h"

#include <QObject>
#include <QPointer>
#include <QSettings>

#include <cstdint>
#include <memory>

class ZMRAcronameManager;

namespace app {
class HubController;
class VersionCheck;
}  // namespace app

namespace views {

class DeviceArea;
class HubWindow;
class MainWindow;
class OptionsSheet;
class QuitGuard;
class ToolsMenu;
class WindowRoster;

// One run of the desktop application: it builds the delegate, the windows and the services they
// share, and wires them to each other and to the application object.
class DesktopApplication : public QObject {
    Q_OBJECT

  public:
    // `launchedAt`: when the process started, in milliseconds since the epoch.
    explicit DesktopApplication(qint64 launchedAt, QObject* parent = nullptr);
    ~DesktopApplication() override;

    // Runs the launch steps and shows the main window.
    void start();

  private:
    app::AppDelegateEnvironment delegateEnvironment();
    void followMainWindow();
    void buildDeviceArea();
    HubWindow* showHubWindow();
    void showOptions();
    void startVersionCheck();
    void disconnectAllHubs();
    void quit();
    void showAbout();
    void logFirstExposure();
    void watchLogProblems();
    void runHubPortCommand(const QString& port, PortCommand command);

    qint64 launchedAt_;
    core::AppState state_;
    QSettings windowState_;
    std::unique_ptr<app::AppDelegate> delegate_;
    std::unique_ptr<QuitGuard> quitGuard_;
    QPointer<MainWindow> mainWindow_;
    std::unique_ptr<WindowRoster> windows_;
    std::shared_ptr<ZMRAcronameManager> hubManager_;
    std::unique_ptr<app::HubController> hubController_;
    QPointer<HubWindow> hubWindow_;
    app::OptionsSheetModel optionsModel_;
    QPointer<OptionsSheet> optionsSheet_;
    QPointer<app::VersionCheck> versionCheck_;
    std::unique_ptr<DeviceArea> deviceArea_;
    std::unique_ptr<ToolsMenu> tools_;
    std::uint64_t logProblemObserver_ = 0;
};

}  // namespace views
