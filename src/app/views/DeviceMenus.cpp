#include "views/DeviceMenus.h"

#include "app/BenchMap.h"
#include "app/DeviceListModel.h"
#include "app/DeviceTableController.h"
#include "app/DfuPortLookup.h"
#include "restore/RestoreSession.h"

#include <QApplication>
#include <QClipboard>
#include <QMenu>

namespace views {

DeviceMenus::DeviceMenus(app::DeviceTableController& controller,
                         const app::DeviceListModel& devices,
                         const restore::RestoreSession& session, const app::DfuPortLookup& dfuPorts,
                         QWidget& owner)
    : QObject(&owner),
      controller_(controller),
      devices_(devices),
      session_(session),
      dfuPorts_(dfuPorts),
      owner_(owner) {}

void DeviceMenus::showForRows(const QList<int>& rows, const QPoint& globalPosition) {
    QMenu menu(&owner_);
    menu.addAction(QStringLiteral("Restore"), this, [this, rows] { controller_.restore(rows); })
        ->setEnabled(!rows.isEmpty());
    menu.addAction(QStringLiteral("Cancel Restores"), this, [this] { controller_.cancel(); })
        ->setEnabled(session_.isBatchRunning());
    menu.addSeparator();
    menu.addAction(QStringLiteral("Copy Serial Numbers"), this,
                   &DeviceMenus::copySerialNumbersRequested)
        ->setEnabled(!rows.isEmpty());
    menu.addAction(QStringLiteral("Export Selection as CSV…"), this,
                   &DeviceMenus::exportSelectionRequested)
        ->setEnabled(!rows.isEmpty());
    if (rows.size() == 1)
        addDfuPortHint(menu, devices_.deviceAt(rows.first())->deviceType());
    menu.exec(globalPosition);
}

// The port's own menu: its sequences always (a port without a Mac may hold one that is off),
// the Mac's restore and serial number when one is there.
void DeviceMenus::showForTile(const app::BenchTile& tile, const QPoint& globalPosition) {
    QMenu menu(&owner_);
    menu.addSection(tile.isHostPort() ? QStringLiteral("This Mac's DFU Port")
                                      : QStringLiteral("Port %1").arg(tile.port));
    addPortCommands(menu, tile.port);
    if (const auto device = devices_.deviceAt(tile.deviceRow)) {
        menu.addSeparator();
        const int row = tile.deviceRow;
        menu.addAction(QStringLiteral("Restore"), this, [this, row] { controller_.restore({row}); })
            ->setEnabled(device->inDFU() && !device->isRestoring());
        menu.addAction(
                QStringLiteral("Copy Serial Number"), this,
                [device] { QApplication::clipboard()->setText(device->serialNumber() + '\n'); })
            ->setEnabled(!device->serialNumber().isEmpty());
        addDfuPortHint(menu, device->deviceType());
    }
    if (session_.isBatchRunning()) {
        menu.addSeparator();
        menu.addAction(QStringLiteral("Cancel Restores"), this, [this] { controller_.cancel(); });
    }
    menu.exec(globalPosition);
}

void DeviceMenus::addPortCommands(QMenu& menu, const QString& port) {
    const auto command = [this, port](PortCommand which) {
        return [this, port, which] { emit portCommandRequested(port, which); };
    };
    menu.addAction(QStringLiteral("DFU Mode"), this, command(PortCommand::DFU));
    menu.addAction(QStringLiteral("Restart"), this, command(PortCommand::Restart));
    menu.addAction(QStringLiteral("Recovery"), this, command(PortCommand::Recovery));
}

void DeviceMenus::addDfuPortHint(QMenu& menu, const QString& deviceType) const {
    const auto record = dfuPorts_.forDeviceType(deviceType);
    if (!record)
        return;
    menu.addSeparator();
    const QString text =
        (record->verified ? QString() : QStringLiteral("(unverified) ")) + record->dfuPort;
    menu.addAction(QStringLiteral("DFU port: %1").arg(text.left(70)))->setEnabled(false);
}

}  // namespace views
