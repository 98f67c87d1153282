#include "app/DevicesCsv.h"

#include "configurator/AC2Device.h"
#include "core/Csv.h"

namespace app {

QString devicesCSV(const QList<std::shared_ptr<AC2Device>>& devices) {
    QString csv = QStringLiteral("UDID,ProductID,DeviceType,LocationID,SerialNumber\n");
    for (const auto& device : devices)
        csv += core::csvLine({device->udid(), device->productID(), device->deviceType(),
                              device->deviceinfo().value(QStringLiteral("locationID")).toString(),
                              device->serialNumber()});
    return csv;
}

}  // namespace app
