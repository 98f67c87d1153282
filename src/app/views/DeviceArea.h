#pragma once

#include "views/PortCommand.h"

#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include <memory>

class QSettings;
class QSplitter;

namespace app {
class BenchMap;
class DeviceListModel;
class DeviceTableController;
class DfuPortLookup;
class HistoryModel;
class HubPortWatch;
}  // namespace app
namespace core {
class AppState;
}
namespace restore {
class AttachmentEvents;
class RestoreSession;
}  // namespace restore
namespace unattended {
class BenchController;
}

namespace views {

class DevicePanel;
class LocalPortSection;
class MainWindow;

// The main window's device area and everything behind it: the restore session, the bench's
// Macs in the device table or on the bench map, the restore history, this computer's own DFU
// port and the unattended bench. The area is laid out as the technician left it last time.
class DeviceArea : public QObject {
    Q_OBJECT

  public:
    // Builds the area into `window`, which owns its widgets from then on.
    DeviceArea(core::AppState& state, QSettings& windowState, MainWindow& window,
               QObject* parent = nullptr);
    ~DeviceArea() override;

    // The device table follows the bus from now on; the first batch of arrivals lists the Macs
    // already there.
    void start();

    restore::RestoreSession& session() const { return *session_; }
    DevicePanel& panel() const;
    app::DfuPortLookup& dfuPorts() const { return *dfuPorts_; }
    QString firmwareCachePath() const { return firmwareCachePath_; }
    // Ports the hubs reported switched off.
    void showDisabledPorts(const QSet<QString>& ports);

  signals:
    // The bench map asked for a hub port's sequence.
    void hubPortCommandRequested(const QString& port, views::PortCommand command);

  private:
    void buildModels(core::AppState& state);
    QWidget* buildWidget(core::AppState& state);
    void rememberSplitter(QSplitter* splitter);
    void rememberBenchMapChoice(MainWindow& window);
    void runPortCommand(const QString& port, PortCommand command);

    QSettings& windowState_;
    QString firmwareCachePath_;
    std::unique_ptr<restore::RestoreSession> session_;
    // Before the views of its ports, which go first.
    std::unique_ptr<unattended::BenchController> benchController_;
    std::unique_ptr<app::HubPortWatch> hubPorts_;
    std::unique_ptr<app::DeviceListModel> devices_;
    std::unique_ptr<restore::AttachmentEvents> attachmentEvents_;
    std::unique_ptr<app::HistoryModel> history_;
    std::unique_ptr<app::DfuPortLookup> dfuPorts_;
    std::unique_ptr<app::BenchMap> benchMap_;
    std::unique_ptr<app::DeviceTableController> deviceTable_;
    QPointer<DevicePanel> panel_;
    std::unique_ptr<LocalPortSection> localPort_;
};

}  // namespace views
