#include "Hub.h"
#include "JsonScan.h"
#include "MacReader.h"
#include "StationBytes.h"
#include "StationConfig.h"
#include "StationReader.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <algorithm>

namespace sim {

namespace {

// What the simulator is built for; a longer list is a mistake or an attack, and reading past the
// limit would only make more of the same errors.
constexpr qsizetype maxMacsPerHub = 8;
constexpr qsizetype maxFaultsPerHub = 64;
constexpr qsizetype maxResultsPerFault = 256;
constexpr qsizetype maxLocalDfuMacs = 64;
// A long day at one hub: 32 Macs on each of its eight ports.
constexpr qsizetype maxPlugsPerHub = 256;
constexpr qsizetype maxHubs = 15;
// A station at every limit above has about 2,500 objects and arrays and 250,000 values.
constexpr qsizetype maxContainers = 10000;
constexpr qsizetype maxValues = 500000;

void checkLimit(StationReader& reader, const QString& field, qsizetype count, qsizetype maximum,
                const QString& reason = {}) {
    if (count > maximum)
        reader.error(
            field,
            reason.isEmpty()
                ? QStringLiteral("has %1 entries; at most %2 are allowed").arg(count).arg(maximum)
                : reason);
}

std::optional<std::uint32_t> parseVersion(const QString& written) {
    const QStringList parts = written.split(u'.');
    if (parts.size() != 3)
        return std::nullopt;
    bool ok[3] = {};
    const unsigned major = parts[0].toUInt(&ok[0]);
    const unsigned minor = parts[1].toUInt(&ok[1]);
    const unsigned patch = parts[2].toUInt(&ok[2]);
    if (!ok[0] || !ok[1] || !ok[2] || major > 15 || minor > 15 || patch > 0xFFFFFF)
        return std::nullopt;
    return packVersion(major, minor, patch);
}

FaultConfig readFault(StationReader& reader, const QJsonObject& object, const QString& path) {
    reader.rejectUnknown(object, path, {"call", "index", "results", "repeat"});
    FaultConfig fault;
    fault.call = reader.text(object, path, "call", true).value_or(QString());
    // A misspelt call would never fire and the run would look fault-free.
    if (!fault.call.isEmpty() && !Hub::faultableCalls().contains(fault.call))
        reader.error(StationReader::join(path, QStringLiteral("call")),
                     QStringLiteral("unknown call \"%1\" (known calls: %2)")
                         .arg(fault.call, Hub::faultableCalls().join(", ")));
    fault.index = static_cast<int>(reader.integer(object, path, "index", 0, 7).value_or(-1));
    fault.repeat = reader.boolean(object, path, "repeat").value_or(false);
    const QString field = StationReader::join(path, QStringLiteral("results"));
    const QJsonValue results = object.value(QLatin1String("results"));
    if (!results.isArray() || results.toArray().isEmpty()) {
        reader.error(field, QStringLiteral("must be a non-empty array of result codes"));
        return fault;
    }
    const QJsonArray codes = results.toArray();
    checkLimit(reader, field, codes.size(), maxResultsPerFault);
    for (qsizetype i = 0; i < std::min(codes.size(), maxResultsPerFault); ++i) {
        const double code = codes[i].toDouble(-1);
        if (!codes[i].isDouble() || code < 0 || code > 255 || code != static_cast<int>(code))
            reader.error(QStringLiteral("%1[%2]").arg(field).arg(i),
                         QStringLiteral("must be a result code from 0 to 255"));
        else
            fault.results.push_back(static_cast<std::uint32_t>(code));
    }
    return fault;
}

template <typename Read>
void readArray(StationReader& reader, const QJsonObject& object, const QString& path,
               const char* key, qsizetype maximum, Read read, const QString& tooMany = {}) {
    const QString field = StationReader::join(path, QLatin1String(key));
    const QJsonValue value = object.value(QLatin1String(key));
    if (value.isUndefined())
        return;
    if (!value.isArray()) {
        reader.error(field, QStringLiteral("must be an array"));
        return;
    }
    const QJsonArray items = value.toArray();
    checkLimit(reader, field, items.size(), maximum, tooMany);
    for (qsizetype i = 0; i < std::min(items.size(), maximum); ++i) {
        const QString itemPath = QStringLiteral("%1[%2]").arg(field).arg(i);
        if (!items[i].isObject())
            reader.error(itemPath, QStringLiteral("must be an object"));
        else
            read(items[i].toObject(), itemPath);
    }
}

// `last`: no Mac follows it on its port, so it may stay plugged in.
MacPlug readPlug(StationReader& reader, const QJsonObject& object, const QString& path,
                 MacPlace place, bool last) {
    MacPlug plug;
    plug.mac = readMac(reader, object, path, place);
    plug.plugAfter = reader.number(object, path, "plugAfter", 0, 1e9).value_or(0.0);
    plug.unplugAfter = reader.number(object, path, "unplugAfter", 0, 1e9);
    plug.unplugAfterRestore = reader.number(object, path, "unplugAfterRestore", 0, 1e9);
    plug.unplugAtProgress = reader.number(object, path, "unplugAtProgress", 0, 1);
    const int ways = int(plug.unplugAfter.has_value()) + int(plug.unplugAfterRestore.has_value()) +
                     int(plug.unplugAtProgress.has_value());
    if (ways > 1)
        reader.error(path, QStringLiteral("takes only one of unplugAfter, unplugAfterRestore and "
                                          "unplugAtProgress"));
    else if (!last && ways == 0)
        reader.error(path, QStringLiteral("needs unplugAfter, unplugAfterRestore or "
                                          "unplugAtProgress, or the Macs after it are never "
                                          "plugged in"));
    return plug;
}

// A port's plugs are its entries in file order; every one but the port's last must be pulled.
void readPlugs(StationReader& reader, const QJsonObject& object, const QString& path,
               HubConfig& hub) {
    const QJsonArray items = object.value(QLatin1String("plugs")).toArray();
    QHash<int, qsizetype> lastOfPort;
    for (qsizetype i = 0; i < std::min(items.size(), maxPlugsPerHub); ++i) {
        const QJsonValue port = items[i].toObject().value(QLatin1String("port"));
        lastOfPort[port.toInt(-1)] = i;
    }
    qsizetype index = 0;
    readArray(reader, object, path, "plugs", maxPlugsPerHub,
              [&](const QJsonObject& item, const QString& itemPath) {
                  const qsizetype at = index++;
                  MacPlug plug = readPlug(reader, item, itemPath, MacPlace::hubPlug,
                                          lastOfPort.value(item.value(QLatin1String("port"))
                                                               .toInt(-1)) == at);
                  for (const MacConfig& mac : hub.macs)
                      if (mac.port == plug.mac.port)
                          reader.error(StationReader::join(itemPath, QStringLiteral("port")),
                                       QStringLiteral("port %1 already has a Mac from the start")
                                           .arg(mac.port));
                  hub.plugs.push_back(std::move(plug));
              });
}

HubConfig readHub(StationReader& reader, const QJsonObject& object, const QString& path) {
    reader.rejectUnknown(object, path,
                         {"serial", "usbID", "firmware", "inputPowerSource", "powerLimit",
                          "powerLimitMax", "vanishAfter", "returnAfter", "faults", "macs", "plugs"});
    HubConfig hub;
    hub.serial = static_cast<std::uint32_t>(
        reader.identifier(object, path, "serial", 0xFFFFFFFF, true).value_or(0));
    hub.usbId = static_cast<std::uint32_t>(
        reader.integer(object, path, "usbID", 0, 0xFFFFFFFF).value_or(0));
    hub.firmware = packVersion(2, 10, 4);
    if (const auto written = reader.text(object, path, "firmware")) {
        if (const auto packed = parseVersion(*written))
            hub.firmware = *packed;
        else
            reader.error(
                StationReader::join(path, QStringLiteral("firmware")),
                QStringLiteral("must be \"major.minor.patch\" (major and minor up to 15)"));
    }
    hub.inputPowerSource = static_cast<std::uint8_t>(
        reader.integer(object, path, "inputPowerSource", 0, 255).value_or(7));
    hub.powerLimit = static_cast<std::uint32_t>(
        reader.integer(object, path, "powerLimit", 0, 0xFFFFFFFF).value_or(100000));
    hub.powerLimitMax = static_cast<std::uint32_t>(
        reader.integer(object, path, "powerLimitMax", 0, 0xFFFFFFFF).value_or(hub.powerLimit));
    hub.vanishAfter = reader.number(object, path, "vanishAfter", 0, 1e9);
    hub.returnAfter = reader.number(object, path, "returnAfter", 0, 1e9);
    if (hub.returnAfter && !hub.vanishAfter)
        reader.error(StationReader::join(path, QStringLiteral("returnAfter")),
                     QStringLiteral("needs vanishAfter"));
    readArray(reader, object, path, "faults", maxFaultsPerHub,
              [&](const QJsonObject& item, const QString& itemPath) {
                  hub.faults.push_back(readFault(reader, item, itemPath));
              });
    QSet<int> ports;
    readArray(reader, object, path, "macs", maxMacsPerHub,
              [&](const QJsonObject& item, const QString& itemPath) {
                  MacConfig mac = readMac(reader, item, itemPath, MacPlace::hubPort);
                  if (mac.port != 0 && ports.contains(mac.port))
                      reader.error(StationReader::join(itemPath, QStringLiteral("port")),
                                   QStringLiteral("port %1 already has a Mac").arg(mac.port));
                  ports.insert(mac.port);
                  hub.macs.push_back(std::move(mac));
              });
    readPlugs(reader, object, path, hub);
    return hub;
}

Timing readTiming(StationReader& reader, const QJsonObject& root) {
    Timing timing;
    const QJsonValue value = root.value(QLatin1String("timing"));
    if (value.isUndefined())
        return timing;
    if (!value.isObject()) {
        reader.error(QStringLiteral("timing"), QStringLiteral("must be an object"));
        return timing;
    }
    const QJsonObject object = value.toObject();
    const QString path = QStringLiteral("timing");
    reader.rejectUnknown(object, path,
                         {"bootSeconds", "dfuSeconds", "hubResetSeconds", "restoreSeconds",
                          "reenumerateSeconds", "rebootsForRecovery", "pdContractSeconds",
                          "leaveBusSeconds", "stemLatencySeconds"});
    timing.bootSeconds =
        reader.number(object, path, "bootSeconds", 0, 3600).value_or(timing.bootSeconds);
    timing.dfuSeconds =
        reader.number(object, path, "dfuSeconds", 0, 3600).value_or(timing.dfuSeconds);
    timing.hubResetSeconds =
        reader.number(object, path, "hubResetSeconds", 0, 3600).value_or(timing.hubResetSeconds);
    timing.restoreSeconds =
        reader.number(object, path, "restoreSeconds", 0, 86400).value_or(timing.restoreSeconds);
    timing.reenumerateSeconds = reader.number(object, path, "reenumerateSeconds", 0, 3600)
                                    .value_or(timing.reenumerateSeconds);
    timing.rebootsForRecovery =
        static_cast<int>(reader.integer(object, path, "rebootsForRecovery", 1, 100)
                             .value_or(timing.rebootsForRecovery));
    timing.pdContractSeconds = reader.number(object, path, "pdContractSeconds", 0, 3600)
                                   .value_or(timing.pdContractSeconds);
    timing.leaveBusSeconds =
        reader.number(object, path, "leaveBusSeconds", 0, 3600).value_or(timing.leaveBusSeconds);
    timing.stemLatencySeconds = reader.number(object, path, "stemLatencySeconds", 0, 10)
                                    .value_or(timing.stemLatencySeconds);
    return timing;
}

void readLocalDfu(StationReader& reader, const QJsonObject& root, StationConfig& station) {
    const QJsonValue local = root.value(QLatin1String("localDFU"));
    if (local.isObject()) {
        station.localDfu =
            readMac(reader, local.toObject(), QStringLiteral("localDFU"), MacPlace::localPort);
        return;
    }
    if (local.isUndefined() || local.isNull())
        return;
    if (!local.isArray() || local.toArray().isEmpty()) {
        reader.error(QStringLiteral("localDFU"),
                     QStringLiteral("must be an object, a non-empty array of Macs plugged in one "
                                    "after another, or null"));
        return;
    }
    const qsizetype count = local.toArray().size();
    qsizetype index = 0;
    readArray(
        reader, root, QString(), "localDFU", maxLocalDfuMacs,
        [&](const QJsonObject& item, const QString& path) {
            station.localDfuSequence.push_back(
                readPlug(reader, item, path, MacPlace::localSequence, ++index == count));
        });
}

void readIdevicerestore(StationReader& reader, const QJsonObject& root,
                        IdevicerestoreOptions& options) {
    const QString path = QStringLiteral("idevicerestore");
    if (!root.contains(path))
        return;
    if (!root.value(path).isObject())
        reader.error(path, QStringLiteral("must be an object"));
    const QJsonObject object = root.value(path).toObject();
    reader.rejectUnknown(object, path, {"errorStyle", "version"});
    options.errorStyle = reader.text(object, path, "errorStyle").value_or(options.errorStyle);
    if (options.errorStyle != "new" && options.errorStyle != "old")
        reader.error(StationReader::join(path, QStringLiteral("errorStyle")),
                     QStringLiteral("must be one of new, old"));
    options.version = reader.text(object, path, "version").value_or(options.version);
    // It is printed as the tool's first line, which a reader takes whole.
    if (options.version.isEmpty() || options.version.size() > 100 ||
        options.version.contains(u'\n') || options.version.contains(u'\r'))
        reader.error(StationReader::join(path, QStringLiteral("version")),
                     QStringLiteral("must be one line of 1 to 100 characters"));
}

void checkUnique(StationReader& reader, const StationConfig& station) {
    QSet<std::uint32_t> serials;
    QSet<std::uint64_t> ecids;
    auto checkEcid = [&](const MacConfig& mac, const QString& path) {
        if (mac.ecid != 0 && ecids.contains(mac.ecid))
            reader.error(path + QStringLiteral(".ecid"),
                         QStringLiteral("another Mac has this ECID"));
        ecids.insert(mac.ecid);
    };
    for (std::size_t h = 0; h < station.hubs.size(); ++h) {
        const HubConfig& hub = station.hubs[h];
        if (hub.serial != 0 && serials.contains(hub.serial))
            reader.error(QStringLiteral("hubs[%1].serial").arg(h),
                         QStringLiteral("another hub has this serial"));
        serials.insert(hub.serial);
        for (std::size_t m = 0; m < hub.macs.size(); ++m)
            checkEcid(hub.macs[m], QStringLiteral("hubs[%1].macs[%2]").arg(h).arg(m));
        for (std::size_t p = 0; p < hub.plugs.size(); ++p)
            checkEcid(hub.plugs[p].mac, QStringLiteral("hubs[%1].plugs[%2]").arg(h).arg(p));
    }
    if (station.localDfu)
        checkEcid(*station.localDfu, QStringLiteral("localDFU"));
    for (std::size_t i = 0; i < station.localDfuSequence.size(); ++i)
        checkEcid(station.localDfuSequence[i].mac, QStringLiteral("localDFU[%1]").arg(i));
}

}  // namespace

StationLoad parseStation(const QByteArray& json, const QString& fileName) {
    StationLoad load;
    StationReader reader(fileName, load);
    const JsonShape shape = measureJson(json);
    if (shape.containers > maxContainers || shape.commas + shape.containers > maxValues) {
        reader.error(QStringLiteral("(document)"),
                     QStringLiteral("has more objects, arrays or values than any station (at "
                                    "most %1 objects and arrays and %2 values)")
                         .arg(maxContainers)
                         .arg(maxValues));
        return load;
    }
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        reader.error(QStringLiteral("(document)"),
                     parseError.error != QJsonParseError::NoError
                         ? QStringLiteral("not valid JSON: %1 at offset %2")
                               .arg(parseError.errorString())
                               .arg(parseError.offset)
                         : QStringLiteral("must be a JSON object"));
        return load;
    }
    findDuplicateKeys(json, [&reader](const QString& path) {
        reader.error(path, QStringLiteral("is given more than once"));
    });
    const QJsonObject root = document.object();
    reader.rejectUnknown(root, QString(),
                         {"timing", "cfgutil", "idevicerestore", "hubs", "localDFU"});
    StationConfig station;
    station.source = fileName;
    station.timing = readTiming(reader, root);
    if (root.contains(QLatin1String("cfgutil"))) {
        if (!root.value(QLatin1String("cfgutil")).isObject())
            reader.error(QStringLiteral("cfgutil"), QStringLiteral("must be an object"));
        const QJsonObject cfgutil = root.value(QLatin1String("cfgutil")).toObject();
        reader.rejectUnknown(cfgutil, QStringLiteral("cfgutil"), {"garbledList"});
        station.garbledList =
            reader.boolean(cfgutil, QStringLiteral("cfgutil"), "garbledList").value_or(false);
    }
    readIdevicerestore(reader, root, station.idevicerestore);
    if (!root.value(QLatin1String("hubs")).isArray())
        reader.error(QStringLiteral("hubs"), QStringLiteral("must be an array of hubs"));
    readArray(
        reader, root, QString(), "hubs", maxHubs,
        [&](const QJsonObject& item, const QString& path) {
            station.hubs.push_back(readHub(reader, item, path));
        },
        QStringLiteral("at most 15 hubs fit on one USB bus position nibble"));
    readLocalDfu(reader, root, station);
    checkUnique(reader, station);
    if (load.errors.isEmpty())
        load.station = std::move(station);
    return load;
}

StationLoad loadStationFile(const QString& path) {
    QString problem;
    const std::optional<QByteArray> json = readStationBytes(path, problem);
    if (!json) {
        StationLoad load;
        load.errors << QStringLiteral("%1: (file): %2").arg(path, problem);
        return load;
    }
    return parseStation(*json, path);
}

StationConfig defaultStation() {
    QFile file(QStringLiteral(":/sim/stations/default.json"));
    file.open(QIODevice::ReadOnly);
    StationLoad load = parseStation(file.readAll(), QStringLiteral("<default>"));
    // The compiled-in station is checked by the tests; a broken one is a build defect.
    Q_ASSERT(load.station);
    return load.station.value_or(StationConfig{});
}

std::uint32_t packVersion(unsigned major, unsigned minor, unsigned patch) {
    return (major & 0xFu) << 28 | (minor & 0xFu) << 24 | (patch & 0xFFFFFFu);
}

QString versionText(std::uint32_t packed) {
    return QStringLiteral("%1.%2.%3")
        .arg(packed >> 28)
        .arg((packed >> 24) & 0xF)
        .arg(packed & 0xFFFFFF);
}

QString macStateName(MacState state) {
    switch (state) {
        case MacState::Off:
            return QStringLiteral("off");
        case MacState::Booted:
            return QStringLiteral("booted");
        case MacState::Dfu:
            return QStringLiteral("dfu");
        case MacState::Recovery:
            return QStringLiteral("recovery");
        case MacState::Restoring:
            return QStringLiteral("restoring");
    }
    return QString();
}

std::optional<MacState> macStateFromName(const QString& name) {
    for (MacState state :
         {MacState::Off, MacState::Booted, MacState::Dfu, MacState::Recovery, MacState::Restoring})
        if (macStateName(state) == name)
            return state;
    return std::nullopt;
}

}  // namespace sim
