#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <optional>

class AC2Device;

namespace unattended {
class BenchPortModel;
}

namespace app {

class DeviceListModel;

// The states a tile can show. Each is a key into the map's looks; more can be added with
// BenchMap::addState and told apart with BenchMap::addClassifier.
namespace benchstate {
inline const QString empty = QStringLiteral("empty");
inline const QString disabled = QStringLiteral("disabled");
inline const QString booted = QStringLiteral("booted");
inline const QString dfu = QStringLiteral("dfu");
inline const QString recovery = QStringLiteral("recovery");
inline const QString restoring = QStringLiteral("restoring");
inline const QString restored = QStringLiteral("restored");
inline const QString cancelled = QStringLiteral("cancelled");
inline const QString failed = QStringLiteral("failed");
}  // namespace benchstate

// How a state shows: its word and colours (0xRRGGBB; the library stays free of the GUI). The word
// is always shown, so colour is never the only way to tell two states apart.
struct BenchTileLook {
    QString word;
    std::uint32_t fill = 0;
    std::uint32_t ink = 0;

    bool operator==(const BenchTileLook&) const = default;
};

// One port of the bench and what sits on it.
struct BenchTile {
    QString port;        // "1C3B4A01:3"; empty for this computer's own DFU port
    QString group;       // the hub's serial, or empty for this computer's own DFU port
    QString label;       // "3", or "Host" for this computer's own port
    int deviceRow = -1;  // the Mac's row in the device list; -1 when none is known
    QString modelIdentifier;
    QString modelName;
    QString serialNumber;
    QString state;
    double progress = -1;  // 0 to 1 while restoring

    bool isHostPort() const { return port.isEmpty(); }
    bool operator==(const BenchTile&) const = default;
};

// The bench as tiles: one per usable port of every hub on the bus, grouped by hub, and one for
// this computer's own DFU port, each with the Mac the device list places there and its state.
// Widget-free; the bench map view draws it.
class BenchMap : public QObject {
    Q_OBJECT

  public:
    // A state for a tile ahead of the built-in ones; nullopt leaves the tile to the next one.
    // `device` is null for a port without a Mac.
    using Classifier =
        std::function<std::optional<QString>(const BenchTile& tile, const AC2Device* device)>;

    // `hostPortLocation`: the USB location of this computer's own DFU port.
    BenchMap(DeviceListModel& devices, std::int64_t hostPortLocation, QObject* parent = nullptr);

    // The usable hub ports on the bus ("HUB:PORT"), as the USB registry shows them.
    void setHubPorts(const QStringList& ports);
    // Ports the hubs reported disabled: their Macs have no power, so nothing can be seen of them.
    void setDisabledPorts(const QSet<QString>& ports);

    const QList<BenchTile>& tiles() const { return tiles_; }

    BenchTileLook look(const QString& state) const;
    void addState(const QString& state, const BenchTileLook& look);
    // Consulted before the built-in states, the last added first.
    void addClassifier(Classifier classifier);
    // While the unattended bench runs, its phases show on the ports' tiles: where the Mac's own
    // state says less ("Sending DFU", "Waiting for DFU", "Queued", "Done", "Needs attention",
    // "Failed", and "Restoring" with the Mac's percentage). `ports` outlives this map.
    void showPortPhases(const unattended::BenchPortModel& ports);

  signals:
    // Tiles came or went: the map is laid out anew.
    void tilesReplaced();
    // The same tiles with new contents.
    void tilesUpdated();

  private:
    void rebuild();
    // Many Macs report progress many times a second: their changes are drawn once a round.
    void rebuildSoon();
    BenchTile tileFor(const QString& port, int deviceRow) const;
    QString stateOf(const BenchTile& tile, const AC2Device* device) const;

    DeviceListModel& devices_;
    std::int64_t hostPortLocation_;
    QStringList hubPorts_;
    QSet<QString> disabledPorts_;
    QList<BenchTile> tiles_;
    QHash<QString, BenchTileLook> looks_;
    QList<Classifier> classifiers_;
    QTimer pendingRebuild_;
};

}  // namespace app
