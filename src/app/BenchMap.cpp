#include "app/BenchMap.h"

#include "app/DeviceListModel.h"
#include "configurator/AC2Device.h"
#include "unattended/BenchPortModel.h"
#include "usb/MacModelNames.h"

namespace app {
namespace {

const QHash<QString, BenchTileLook>& builtInLooks() {
    static const QHash<QString, BenchTileLook> looks{
        {benchstate::empty, {QStringLiteral("Empty"), 0xECEFF1, 0x607D8B}},
        {benchstate::disabled, {QStringLiteral("Disabled"), 0x424242, 0xE0E0E0}},
        {benchstate::booted, {QStringLiteral("Booted"), 0xB0BEC5, 0x263238}},
        {benchstate::dfu, {QStringLiteral("DFU"), 0x1565C0, 0xFFFFFF}},
        {benchstate::recovery, {QStringLiteral("Recovery"), 0x6A1B9A, 0xFFFFFF}},
        {benchstate::restoring, {QStringLiteral("Restoring"), 0xF9A825, 0x212121}},
        {benchstate::restored, {QStringLiteral("Restored"), 0x2E7D32, 0xFFFFFF}},
        {benchstate::cancelled, {QStringLiteral("Cancelled"), 0x8D6E63, 0xFFFFFF}},
        {benchstate::failed, {QStringLiteral("Failed"), 0xC62828, 0xFFFFFF}},
    };
    return looks;
}

// The bench's phases that say more than the Mac's own state, each as a state of its own.
std::optional<BenchTileLook> portPhaseLook(unattended::PortPhase phase) {
    using unattended::PortPhase;
    const auto look = [phase](std::uint32_t fill, std::uint32_t ink) {
        return BenchTileLook{unattended::portPhaseTitle(phase), fill, ink};
    };
    switch (phase) {
        case PortPhase::dfuSequence:
            return look(0x90CAF9, 0x0D47A1);
        case PortPhase::waitingForDFU:
            return look(0xBBDEFB, 0x0D47A1);
        case PortPhase::queued:
            return look(0x1565C0, 0xFFFFFF);
        case PortPhase::done:
            return look(0x1B5E20, 0xFFFFFF);
        case PortPhase::needsAttention:
            return look(0xEF6C00, 0x212121);
        default:
            return std::nullopt;
    }
}

QString portPhaseState(unattended::PortPhase phase) {
    return QStringLiteral("bench_") + unattended::portPhaseKey(phase);
}

QString groupOf(const QString& port) {
    return port.section(':', 0, 0);
}

}  // namespace

BenchMap::BenchMap(DeviceListModel& devices, std::int64_t hostPortLocation, QObject* parent)
    : QObject(parent),
      devices_(devices),
      hostPortLocation_(hostPortLocation),
      looks_(builtInLooks()) {
    pendingRebuild_.setSingleShot(true);
    pendingRebuild_.setInterval(0);
    connect(&pendingRebuild_, &QTimer::timeout, this, &BenchMap::rebuild);
    for (const auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved})
        connect(&devices_, signal, this, &BenchMap::rebuildSoon);
    connect(&devices_, &QAbstractItemModel::dataChanged, this, &BenchMap::rebuildSoon);
    connect(&devices_, &QAbstractItemModel::modelReset, this, &BenchMap::rebuildSoon);
    rebuild();
}

void BenchMap::setHubPorts(const QStringList& ports) {
    if (ports == hubPorts_)
        return;
    hubPorts_ = ports;
    rebuild();
}

void BenchMap::setDisabledPorts(const QSet<QString>& ports) {
    if (ports == disabledPorts_)
        return;
    disabledPorts_ = ports;
    rebuild();
}

BenchTileLook BenchMap::look(const QString& state) const {
    return looks_.value(state, looks_.value(benchstate::empty));
}

void BenchMap::addState(const QString& state, const BenchTileLook& look) {
    looks_.insert(state, look);
}

void BenchMap::addClassifier(Classifier classifier) {
    classifiers_.prepend(std::move(classifier));
    rebuild();
}

void BenchMap::showPortPhases(const unattended::BenchPortModel& ports) {
    for (const unattended::PortPhase phase : unattended::allPortPhases)
        if (const auto look = portPhaseLook(phase))
            addState(portPhaseState(phase), *look);
    addClassifier([&ports](const BenchTile& tile, const AC2Device*) -> std::optional<QString> {
        const unattended::BenchPort* port = tile.isHostPort() ? nullptr : ports.port(tile.port);
        if (!port)
            return std::nullopt;
        if (port->phase == unattended::PortPhase::failed)
            return benchstate::failed;
        // The device list may still hold the Mac's last batch ("Restored") for a moment.
        if (port->phase == unattended::PortPhase::restoring)
            return benchstate::restoring;
        if (portPhaseLook(port->phase))
            return portPhaseState(port->phase);
        return std::nullopt;
    });
    connect(&ports, &unattended::BenchPortModel::portPhaseChanged, this, &BenchMap::rebuildSoon);
    connect(&ports, &QAbstractItemModel::modelReset, this, &BenchMap::rebuildSoon);
}

void BenchMap::rebuildSoon() {
    if (!pendingRebuild_.isActive())
        pendingRebuild_.start();
}

// At 35 Macs a pass is a few hundred comparisons.
void BenchMap::rebuild() {
    pendingRebuild_.stop();
    QHash<QString, int> rowOfPort;
    int hostRow = -1;
    for (int row = 0; row < devices_.rowCount(); ++row) {
        const QString port =
            devices_.data(devices_.index(row, 0), DeviceListModel::HubPortRole).toString();
        // A Mac that is gone leaves its port to the next one that arrives there.
        const bool present =
            devices_.roster().isConnected(row) || devices_.deviceAt(row)->isRestoring();
        if (!port.isEmpty() && (present || !rowOfPort.contains(port)))
            rowOfPort.insert(port, row);
        else if (port.isEmpty() && devices_.deviceAt(row)->locationID() == hostPortLocation_ &&
                 (present || hostRow < 0))
            hostRow = row;
    }
    QList<BenchTile> tiles;
    for (const QString& port : hubPorts_) tiles << tileFor(port, rowOfPort.value(port, -1));
    tiles << tileFor(QString(), hostRow);

    const bool sameTiles =
        tiles.size() == tiles_.size() &&
        std::equal(tiles.begin(), tiles.end(), tiles_.begin(),
                   [](const BenchTile& a, const BenchTile& b) { return a.port == b.port; });
    tiles_ = tiles;
    if (sameTiles)
        emit tilesUpdated();
    else
        emit tilesReplaced();
}

BenchTile BenchMap::tileFor(const QString& port, int deviceRow) const {
    BenchTile tile;
    tile.port = port;
    tile.group = groupOf(port);
    tile.label = port.isEmpty() ? QStringLiteral("Host") : port.section(':', 1, 1);
    tile.deviceRow = deviceRow;
    const auto device = devices_.deviceAt(deviceRow);
    if (device) {
        tile.modelIdentifier = device->deviceType();
        tile.modelName = usb::MacModelNames::shipped().displayName(tile.modelIdentifier);
        tile.serialNumber = device->serialNumber();
        tile.progress =
            devices_.data(devices_.index(deviceRow, 0), DeviceListModel::ProgressRole).toDouble();
    }
    tile.state = stateOf(tile, device.get());
    return tile;
}

QString BenchMap::stateOf(const BenchTile& tile, const AC2Device* device) const {
    for (const Classifier& classifier : classifiers_)
        if (const auto state = classifier(tile, device))
            return *state;
    if (!tile.isHostPort() && disabledPorts_.contains(tile.port))
        return benchstate::disabled;
    if (!device)
        return benchstate::empty;
    if (device->isRestoring())
        return benchstate::restoring;
    const QString status = device->restoreStatus();
    if (status == QLatin1String("Successful"))
        return benchstate::restored;
    if (status == QLatin1String("Restore Cancelled"))
        return benchstate::cancelled;
    if (!status.isEmpty() && !status.startsWith(QLatin1String("Cancelling")))
        return benchstate::failed;
    if (!devices_.roster().isConnected(tile.deviceRow))
        return benchstate::empty;
    if (device->inDFU())
        return benchstate::dfu;
    if (devices_.data(devices_.index(tile.deviceRow, 0), DeviceListModel::RecoveryRole).toBool())
        return benchstate::recovery;
    return benchstate::booted;
}

}  // namespace app
