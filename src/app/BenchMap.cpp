#include "app/BenchMap.h"

#include "app/DeviceListModel.h"
#include "app/MacModelNames.h"
#include "configurator/AC2Device.h"

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

QString groupOf(const QString& port) {
    return port.section(':', 0, 0);
}

}  // namespace

BenchMap::BenchMap(DeviceListModel& devices, std::int64_t hostPortLocation, QObject* parent)
    : QObject(parent), devices_(devices), hostPortLocation_(hostPortLocation),
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

int BenchMap::tileOfRow(int deviceRow) const {
    for (qsizetype i = 0; i < tiles_.size(); ++i)
        if (tiles_[i].deviceRow == deviceRow)
            return static_cast<int>(i);
    return -1;
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
            devices_.data(devices_.index(row, DeviceListModel::HubPort)).toString();
        // A Mac that is gone leaves its port to the next one that arrives there.
        const bool present = devices_.isConnected(row) || devices_.deviceAt(row)->isRestoring();
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
        tile.modelName = MacModelNames::shipped().displayName(tile.modelIdentifier);
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
    if (!devices_.isConnected(tile.deviceRow))
        return benchstate::empty;
    if (device->inDFU())
        return benchstate::dfu;
    if (devices_.data(devices_.index(tile.deviceRow, 0), DeviceListModel::RecoveryRole).toBool())
        return benchstate::recovery;
    return benchstate::booted;
}

}  // namespace app
