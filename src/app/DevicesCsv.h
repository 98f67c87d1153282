#pragma once

#include <QList>
#include <QString>

#include <memory>

class AC2Device;

namespace app {

// The selected devices for a spreadsheet: the header "UDID,ProductID,DeviceType,LocationID,
// SerialNumber", then one line per device.
QString devicesCSV(const QList<std::shared_ptr<AC2Device>>& devices);

}  // namespace app
