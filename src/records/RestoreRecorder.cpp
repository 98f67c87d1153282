#include "records/RestoreRecorder.h"

#include "records/FacilityDatabase.h"
#include "records/RecordOutbox.h"
#include "records/RecordStore.h"

#include "configurator/AC2Device.h"
#include "configurator/ProcessEngine.h"
#include "core/BundleInfo.h"
#include "core/Log.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "usb/HubPortNames.h"
#include "usb/LocalPortHelper.h"
#include "usb/UsbRegistry.h"

#include <QSysInfo>
#include <QUuid>

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace records {
namespace {

QString keptError(Outcome outcome, const QString& lastError, const QStringList& errorLines) {
    if (outcome != Outcome::failed || errorLines.isEmpty())
        return lastError;
    QStringList kept = errorLines;
    // The workflow's own word (a completion message, why it retried) when the lines lack it.
    if (!lastError.isEmpty() && !errorLines.contains(lastError))
        kept << lastError;
    return kept.join('\n');
}

}  // namespace

QString EngineReport::engineText(const QString& name, const QString& version) {
    if (version.isEmpty())
        return name;
    return version.startsWith(name + ' ') ? version : name + ' ' + version;
}

QString RestoreRecorder::hostStation() {
    return QSysInfo::machineHostName();
}

QString RestoreRecorder::realUserName() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    return found ? QString::fromLocal8Bit(found->pw_name) : QString::number(getuid());
}

QString RestoreRecorder::versionText() {
    const core::BundleInfo& bundle = core::BundleInfo::shared();
    return QStringLiteral("%1 (%2)").arg(bundle.shortVersion(), bundle.bundleVersion());
}

DeviceLocation RestoreRecorder::registryLocation(std::int64_t locationID) {
    if (locationID == hostDfuPortAddress)
        return {{}, 0, QStringLiteral("host DFU port")};
    const std::optional<QList<usb::PropertyMap>> devices = usb::UsbRegistry::shared().devices();
    const QString name =
        devices ? usb::HubPortNames(*devices).nameOf(static_cast<std::uint64_t>(locationID))
                : QString();
    const qsizetype colon = name.indexOf(':');
    if (colon < 0)
        return {
            {}, 0, QStringLiteral("unknown (location 0x%1)").arg(locationID, 8, 16, QChar('0'))};
    const QString hub = name.left(colon);
    const int port = name.mid(colon + 1).toInt();
    return {hub, port, QStringLiteral("hub %1 port %2").arg(hub).arg(port)};
}

RestoreRecorder::Collaborators RestoreRecorder::defaultCollaborators(
    const core::Settings& settings) {
    Collaborators c;
    const QString path = RecordStore::defaultPath();
    c.store = std::make_unique<RecordStore>(path);
    const QString url = settings.stringForKey(core::keys::recordsDatabaseURL);
    if (FacilityDatabase::isFacilityURL(url))
        c.outbox = std::make_unique<RecordOutbox>(path, url);
    else if (!url.isEmpty())
        ZMRLogLevel1(
            QStringLiteral("recordsDatabaseURL is not a postgresql:// address; records "
                           "stay on this bench"));
    const QString station = settings.stringForKey(core::keys::stationName);
    c.station = station.isEmpty() ? hostStation() : station;
    c.operatorName = realUserName();
    c.tarvelVersion = versionText();
    c.locate = registryLocation;
    c.engine = [] { return configurator::engineName(configurator::processEngine()); };
    return c;
}

RestoreRecorder& RestoreRecorder::shared() {
    static RestoreRecorder recorder(defaultCollaborators(core::Settings::shared()));
    return recorder;
}

RestoreRecorder::RestoreRecorder(Collaborators collaborators) : c_(std::move(collaborators)) {
    if (c_.store && !c_.store->isOpen())
        ZMRLogLevel0(QStringLiteral("Restore records are not kept: %1").arg(c_.store->lastError()));
}

RestoreRecorder::~RestoreRecorder() = default;

RestoreRecorder::Open& RestoreRecorder::openFor(const AC2Device& device) {
    Open& open = open_[device.ecid()];
    open.serialNumber = device.serialNumber();
    open.modelIdentifier = device.deviceType();
    open.deviceName = device.name();
    return open;
}

void RestoreRecorder::batchSubmitted(const QString& batchId,
                                     const QList<std::shared_ptr<AC2Device>>& devices) {
    const QDateTime now = c_.now();
    for (const auto& device : devices) {
        Open& open = openFor(*device);
        open = Open{batchId,
                    now,
                    {},
                    c_.locate ? c_.locate(device->locationID()) : DeviceLocation{},
                    open.serialNumber,
                    open.modelIdentifier,
                    open.deviceName,
                    false};
    }
}

void RestoreRecorder::deviceStarted(const QString& batchId, const AC2Device& device,
                                    const FirmwareUsed& firmware) {
    Open& open = openFor(device);
    if (open.batchId != batchId || !open.startedAt.isValid())
        open.location = c_.locate ? c_.locate(device.locationID()) : DeviceLocation{};
    open.batchId = batchId;
    open.startedAt = c_.now();
    open.firmware = firmware;
    open.started = true;
}

std::optional<RestoreRecord> RestoreRecorder::deviceEnded(const AC2Device& device, Outcome outcome,
                                                          std::optional<int> exitStatus,
                                                          const QString& lastError,
                                                          const EngineReport& report) {
    const Open open = open_.take(device.ecid());
    RestoreRecord record;
    record.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    record.batchId = open.batchId;
    record.ecid = QString::number(device.ecid(), 16).toUpper();
    record.serialNumber =
        device.serialNumber().isEmpty() ? open.serialNumber : device.serialNumber();
    record.modelIdentifier =
        device.deviceType().isEmpty() ? open.modelIdentifier : device.deviceType();
    record.deviceName = device.name().isEmpty() ? open.deviceName : device.name();
    record.hubSerial = open.location.hubSerial;
    record.hubPort = open.location.hubPort;
    record.location = open.location.text.isEmpty() ? QStringLiteral("unknown") : open.location.text;
    record.station = c_.station;
    record.operatorName = c_.operatorName;
    record.endedAt = c_.now();
    // A Mac that never started (cancelled before its turn) began and ended at once.
    record.startedAt = open.started ? open.startedAt : record.endedAt;
    record.durationMs = record.startedAt.msecsTo(record.endedAt);
    record.outcome = outcome;
    record.exitStatus = exitStatus;
    record.lastError = keptError(outcome, lastError, report.errorLines);
    record.firmware = open.started ? open.firmware.firmware : QString();
    record.firmwareSha256 = open.started ? open.firmware.sha256 : QString();
    record.tarvelVersion = c_.tarvelVersion;
    record.engine = !report.engine.isEmpty() ? report.engine : c_.engine ? c_.engine() : QString();
    record.firmwareVersion = report.firmwareVersion;
    if (!c_.store)
        return std::nullopt;
    std::optional<RestoreRecord> written = c_.store->append(record, c_.outbox != nullptr);
    if (!written) {
        if (!std::exchange(reportedFailure_, true))
            ZMRLogLevel0(
                QStringLiteral("A restore record was not written: %1").arg(c_.store->lastError()));
        return std::nullopt;
    }
    if (c_.outbox)
        c_.outbox->wake();
    return written;
}

QList<RestoreRecord> RestoreRecorder::abandonUnfinished() {
    QList<RestoreRecord> abandoned;
    const QList<std::uint64_t> ecids = open_.keys();
    for (const std::uint64_t ecid : ecids) {
        AC2Device device;
        device.setEcid(ecid);
        if (auto record = deviceEnded(device, Outcome::abandoned, std::nullopt, {}))
            abandoned.append(*record);
    }
    return abandoned;
}

qint64 RestoreRecorder::waitingToSync() {
    return c_.outbox && c_.store ? c_.store->waitingCount() : 0;
}

}  // namespace records
