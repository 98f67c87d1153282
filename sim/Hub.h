#pragma once

#include "FaultScript.h"
#include "Scheduler.h"
#include "StationConfig.h"

#include <QJsonObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>

namespace sim {

class Mac;

// What one stem call answers: the library's result code and, for getters, the value read.
struct StemAnswer {
    std::uint32_t result = 0;
    std::optional<qint64> value;
    QString message;
};

// Library result codes the hub answers with.
namespace code {
inline constexpr std::uint32_t none = 0;
inline constexpr std::uint32_t param = 2;
inline constexpr std::uint32_t notFound = 3;
inline constexpr std::uint32_t range = 13;
inline constexpr std::uint32_t size = 14;
inline constexpr std::uint32_t parse = 16;
inline constexpr std::uint32_t unimplemented = 21;
inline constexpr std::uint32_t connection = 25;
inline constexpr std::uint32_t indexRange = 26;
inline constexpr std::uint32_t invalidOption = 29;
}  // namespace code

// One USBHub3c: eight port and power-delivery entities, the system entity, and the Macs cabled
// to its ports, whose power follows the ports' enabled state.
class Hub {
  public:
    static constexpr int entityCount = 8;
    // Every call a fault can name: "connect" and the entity calls ("port.setEnabled").
    static QStringList faultableCalls();

    struct PortState {
        bool enabled = true;
        std::uint8_t powerMode = 2;
        std::uint32_t powerLimit = 15000;
        std::uint8_t powerRole = 1;
        std::uint32_t override = 0;
        // Simulated time at which the port last started negotiating with its device.
        double negotiatingSince = 0.0;
    };
    struct Settings {
        std::array<PortState, entityCount> ports;
        std::uint8_t led = 1;
        std::uint32_t powerLimitMax = 0;
    };

    Hub(HubConfig config, int number, Scheduler& scheduler, const Timing& timing,
        std::function<void()> changed);
    ~Hub() { scheduler_.cancel(resetTimer_); }
    Hub(const Hub&) = delete;
    Hub& operator=(const Hub&) = delete;

    const HubConfig& config() const { return config_; }
    std::uint32_t serial() const { return config_.serial; }
    int number() const { return number_; }  // 1-based position on the bus
    std::uint32_t location() const {
        return 0x01000000u | static_cast<std::uint32_t>(number_) << 20;
    }
    bool present() const { return present_; }
    void setPresent(bool present);

    // Library links. A link lives from a successful connect until its disconnect, or until the
    // hub drops off the bus (vanishing or resetting), which breaks every link at once.
    void addLink(quint64 link) { links_.insert(link); }
    void dropLink(quint64 link) { links_.remove(link); }
    bool linked(quint64 link) const { return present_ && links_.contains(link); }

    void attach(int port, Mac* mac) { macs_[static_cast<std::size_t>(port)] = mac; }
    // A cable plugged in while the station runs: the Mac gets the port's power and starts
    // negotiating a contract. Pulling it out leaves the port empty; the Mac's power is the
    // caller's to cut.
    void plugIn(int port, Mac* mac);
    void pullOut(int port);
    Mac* macAt(int port) const { return macs_[static_cast<std::size_t>(port)]; }
    const Settings& settings() const { return settings_; }
    const Settings& saved() const { return saved_; }
    FaultScript& faults() { return faults_; }

    QJsonObject linkSpec() const;

    // method is "port.setEnabled", "pd.getCableOrientation", "system.save", ...
    StemAnswer call(const QString& method, int index, const QJsonObject& arguments);

  private:
    StemAnswer portCall(const QString& name, PortState& port, int index,
                        const QJsonObject& arguments);
    StemAnswer pdCall(const QString& name, PortState& port, int index,
                      const QJsonObject& arguments);
    StemAnswer systemCall(const QString& name, const QJsonObject& arguments);
    void setPortEnabled(int index, bool enabled);
    void reset();

    qint64 vbusVoltage(int index) const;
    qint64 vbusCurrent(int index) const;
    std::uint8_t cableOrientation(int index) const;
    const Mac* poweredMac(int index) const;
    bool hasContract(int index) const;
    void startNegotiating(int index);

    HubConfig config_;
    int number_;
    Scheduler& scheduler_;
    const Timing& timing_;
    std::function<void()> changed_;
    FaultScript faults_;
    bool present_ = true;
    Scheduler::Token resetTimer_ = 0;
    Settings settings_;
    Settings saved_;
    std::array<Mac*, entityCount> macs_{};
    QSet<quint64> links_;
};

}  // namespace sim
