#pragma once

#include <QObject>
#include <QPointer>

class QMenu;

namespace app {
class DfuPortLookup;
}

namespace views {

class DevicePanel;
class DfuPortWindow;
class MainWindow;

// The device area's entries in the main window's Tools menu: the DFU port lookup (also on the
// toolbar), the places this machine has (Apple Configurator, cached firmware, diagnostic
// reports, the log), and what can be done with the selected devices and the history.
class ToolsMenu : public QObject {
    Q_OBJECT

  public:
    ToolsMenu(MainWindow& window, app::DfuPortLookup& dfuPorts, DevicePanel& panel,
              const QString& firmwareCachePath, QObject* parent = nullptr);
    ~ToolsMenu() override;

  private:
    void showDfuPortLookup();
    void addPlaces(QMenu& tools, const QString& firmwareCachePath);
    void addDeviceExports(QMenu& tools, DevicePanel& panel);

    app::DfuPortLookup& dfuPorts_;
    QPointer<DfuPortWindow> dfuPortWindow_;
};

}  // namespace views
