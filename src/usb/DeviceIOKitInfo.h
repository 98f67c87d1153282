#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include <cstdint>

// The facts about one USB device that the watcher broadcasts. A device whose vendor could not be
// read is all empty and 0.
struct DeviceIOKitInfo {
    std::int64_t vendor = 0;
    QString serialNumber;         // upper-cased; empty when it carries "ECID" or "-"
    std::int64_t usbAddress = 0;  // the locationID
    QString productName;
    std::int64_t ecid = 0;
    // A boot ROM names its chip (CPID) and board (BDID) in its serial, which tells the model of a
    // Mac in DFU mode; 0 for other devices.
    int chip = 0;
    int board = 0;

    bool operator==(const DeviceIOKitInfo&) const = default;
};

Q_DECLARE_METATYPE(DeviceIOKitInfo)
