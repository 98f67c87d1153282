#include "MacReader.h"

namespace sim {
namespace {

constexpr std::uint64_t maxEcid = 0xFFFFFFFFFFFFFFFFull;

std::optional<MacState> readState(StationReader& reader, const QJsonObject& object,
                                  const QString& path, const char* key, bool allowRestoring) {
    const auto name = reader.text(object, path, key);
    if (!name)
        return std::nullopt;
    const auto state = macStateFromName(*name);
    if (!state || (*state == MacState::Restoring && !allowRestoring)) {
        reader.error(StationReader::join(path, QLatin1String(key)),
                     QStringLiteral("must be one of off, booted, dfu, recovery"));
        return std::nullopt;
    }
    return state;
}

std::optional<RestoreFailure> readFailure(StationReader& reader, const QJsonValue& value,
                                          const QString& path) {
    if (!value.isObject()) {
        reader.error(path, QStringLiteral("must be an object"));
        return std::nullopt;
    }
    const QJsonObject object = value.toObject();
    reader.rejectUnknown(object, path, {"atProgress", "status", "message", "endState"});
    RestoreFailure failure;
    failure.atProgress = reader.number(object, path, "atProgress", 0.0, 1.0, true).value_or(0.5);
    failure.status = static_cast<int>(reader.integer(object, path, "status", 1, 255).value_or(21));
    failure.message = reader.text(object, path, "message")
                          .value_or(QStringLiteral("libusbrestore error:%1").arg(failure.status));
    failure.endState =
        readState(reader, object, path, "endState", false).value_or(MacState::Recovery);
    return failure;
}

// The ways the idevicerestore stand-in can fail a Mac before or beside the simulator's restore,
// and for how many of its restores.
void readEngineFault(StationReader& reader, const QJsonObject& object, const QString& path,
                     MacConfig& mac) {
    static const QStringList faults{"unknownDeviceType", "signingRefused", "restoreModeTimeout",
                                    "ignoresTerm"};
    mac.engineFault = reader.text(object, path, "engineFault").value_or(QString());
    if (object.contains(QLatin1String("engineFault")) && !faults.contains(mac.engineFault))
        reader.error(StationReader::join(path, QStringLiteral("engineFault")),
                     QStringLiteral("must be one of %1").arg(faults.join(", ")));
    mac.engineFaultTimes =
        int(reader.integer(object, path, "engineFaultTimes", 1, 1000).value_or(-1));
}

}  // namespace

MacConfig readMac(StationReader& reader, const QJsonObject& object, const QString& path,
                  MacPlace place) {
    const bool onHub = place == MacPlace::hubPort || place == MacPlace::hubPlug;
    QStringList known{"ecid",
                      "serialNumber",
                      "deviceType",
                      "name",
                      "state",
                      "ignoresDFU",
                      "garbledRestoreOutput",
                      "engineFault",
                      "engineFaultTimes",
                      "restoreFailure"};
    if (onHub)
        known << "port";
    if (place == MacPlace::hubPlug || place == MacPlace::localSequence)
        known << "plugAfter"
              << "unplugAfter"
              << "unplugAfterRestore"
              << "unplugAtProgress";
    reader.rejectUnknown(object, path, known);
    MacConfig mac;
    if (onHub) {
        if (!object.contains(QLatin1String("port"))) {
            reader.error(StationReader::join(path, QStringLiteral("port")),
                         QStringLiteral("is required"));
        } else if (const auto port = object.value(QLatin1String("port"));
                   !port.isDouble() || port.toDouble() < 0 || port.toDouble() > 7 ||
                   port.toDouble() != static_cast<int>(port.toDouble())) {
            reader.error(StationReader::join(path, QStringLiteral("port")),
                         QStringLiteral("must be an integer from 0 to 7"));
        } else {
            mac.port = port.toInt();
        }
    }
    mac.ecid = reader.identifier(object, path, "ecid", maxEcid, true).value_or(0);
    mac.serialNumber = reader.text(object, path, "serialNumber", true).value_or(QString());
    // Serials with "-" occur on real benches; telling them from a boot-ROM identity is the
    // client's job, so only the boot ROM's own marker is refused.
    if (mac.serialNumber.contains(QLatin1String("ECID")) ||
        (object.contains(QLatin1String("serialNumber")) && mac.serialNumber.isEmpty()))
        reader.error(
            StationReader::join(path, QStringLiteral("serialNumber")),
            QStringLiteral("must be a serial number, not a boot-ROM identity (no \"ECID\")"));
    mac.deviceType = reader.text(object, path, "deviceType").value_or(QStringLiteral("Macmini9,1"));
    mac.name =
        reader.text(object, path, "name").value_or(QStringLiteral("Mac %1").arg(mac.serialNumber));
    mac.state = readState(reader, object, path, "state", false).value_or(MacState::Booted);
    mac.ignoresDfu = reader.boolean(object, path, "ignoresDFU").value_or(false);
    mac.garbledRestoreOutput = reader.boolean(object, path, "garbledRestoreOutput").value_or(false);
    readEngineFault(reader, object, path, mac);
    if (object.contains(QLatin1String("restoreFailure")))
        mac.restoreFailure =
            readFailure(reader, object.value(QLatin1String("restoreFailure")),
                        StationReader::join(path, QStringLiteral("restoreFailure")));
    return mac;
}

}  // namespace sim
