#pragma once

#include "app/AppDelegate.h"
#include "app/AppState.h"
#include "app/OptionsSheetModel.h"
#include "usb/HubPortNames.h"
#include "views/DevicePanel.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QSettings>
#include <QTimer>

#include <cstdint>
#include <memory>

class AC2Device;
class FirmwareUpdater;
class ZMRAcronameManager;
class QSplitter;

namespace app {
class BenchMap;
class DeviceListModel;
class DeviceTableController;
class DfuPortLookup;
class HistoryModel;
class HubController;
class VersionCheck;
}  // namespace app
namespace restore {
class LocalPortAutoRestore;
class RestoreSession;
}
namespace unattended {
class BenchController;
}

namespace views {

class LocalDFUGroupView;
class DfuPortWindow;
class HubWindow;
class MainWindow;
class OptionsSheet;
class QuitGuard;
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

    MainWindow* mainWindow() const;
    HubWindow* showHubWindow();
    OptionsSheet* showOptions();
    DfuPortWindow* showDfuPortLookup();
    DevicePanel* devicePanel() const;
    restore::RestoreSession& restoreSession() const { return *session_; }

  private:
    app::AppDelegateEnvironment delegateEnvironment();
    void buildDeviceArea();
    void buildTools();
    QWidget* buildLocalPortGroup();
    QWidget* buildLocalPortSection();
    void rememberSplitter(QSplitter* splitter);
    void startVersionCheck();
    void disconnectAllHubs();
    void quit();
    void showAbout();
    void logFirstExposure();
    void watchLogProblems();
    QString hubPortOf(const AC2Device& device);
    void readHubPorts();
    void followHubPorts();
    void rememberBenchMapChoice();
    void runPortCommand(const QString& port, PortCommand command);
    void showDisabledPorts();

    qint64 launchedAt_;
    app::AppState state_;
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
    QString firmwareCachePath_;
    std::unique_ptr<restore::RestoreSession> session_;
    // Before the views of its ports, which go first.
    std::unique_ptr<unattended::BenchController> benchController_;
    std::unique_ptr<app::DeviceListModel> devices_;
    std::unique_ptr<app::HistoryModel> history_;
    std::unique_ptr<app::DfuPortLookup> dfuPorts_;
    std::unique_ptr<app::BenchMap> benchMap_;
    std::unique_ptr<app::DeviceTableController> deviceTable_;
    QPointer<DevicePanel> devicePanel_;
    QPointer<DfuPortWindow> dfuPortWindow_;
    std::unique_ptr<FirmwareUpdater> firmwareUpdater_;
    std::unique_ptr<restore::LocalPortAutoRestore> localAutoRestore_;
    // The bench's hub ports as the USB registry showed them at most a second ago.
    std::optional<usb::HubPortNames> hubPortNames_;
    QElapsedTimer hubPortNamesAge_;
    std::uint64_t logProblemObserver_ = 0;
    std::vector<std::uint64_t> hubPortObservers_;
    QTimer hubPortsDelay_;
};

}  // namespace views
