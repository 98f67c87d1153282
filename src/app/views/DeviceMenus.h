#pragma once

#include "views/PortCommand.h"

#include <QList>
#include <QObject>

class QMenu;
class QPoint;
class QWidget;

namespace app {
struct BenchTile;
class DeviceListModel;
class DeviceTableController;
class DfuPortLookup;
}  // namespace app
namespace restore {
class RestoreSession;
}

namespace views {

// The device area's context menus: the selected rows' in the table, and a port's on the bench
// map. Each names the Mac's DFU port when the lookup table knows its model.
class DeviceMenus : public QObject {
    Q_OBJECT

  public:
    // The menus open over `owner`, which also owns this object.
    DeviceMenus(app::DeviceTableController& controller, const app::DeviceListModel& devices,
                const restore::RestoreSession& session, const app::DfuPortLookup& dfuPorts,
                QWidget& owner);

    void showForRows(const QList<int>& rows, const QPoint& globalPosition);
    void showForTile(const app::BenchTile& tile, const QPoint& globalPosition);

  signals:
    void copySerialNumbersRequested();
    void exportSelectionRequested();
    void portCommandRequested(const QString& port, views::PortCommand command);

  private:
    void addPortCommands(QMenu& menu, const QString& port);
    void addDfuPortHint(QMenu& menu, const QString& deviceType) const;

    app::DeviceTableController& controller_;
    const app::DeviceListModel& devices_;
    const restore::RestoreSession& session_;
    const app::DfuPortLookup& dfuPorts_;
    QWidget& owner_;
};

}  // namespace views
