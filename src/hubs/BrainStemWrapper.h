#pragma once

#include "hubs/DriverConsole.h"
#include "hubs/stem/Backend.h"

#include "core/Clock.h"

#include <QString>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class AcronameHub;
class AcronamePort;

// The driver of one USBHub3c over the vendor library. Every operation answers a value and
// writes its failures to the console; nothing is thrown. Calls block on the hub and are not
// serialised: callers on several threads share one hub at their own risk, as with the library.
class BrainStemWrapper {
  public:
    // The vendor-defined messages that make the Mac on a port reboot or enter DFU mode. They are
    // the contract with the Mac and go out byte for byte.
    static constexpr std::array<std::uint8_t, 16> kRebootMessage = {
        0x04, 0x00, 0x00, 0x00, 0x12, 0x80, 0xac, 0x05,
        0x05, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80};
    static constexpr std::array<std::uint8_t, 16> kDFUMessage = {0x04, 0x00, 0x00, 0x00, 0x12, 0x80,
                                                                 0xac, 0x05, 0x06, 0x01, 0x00, 0x00,
                                                                 0x00, 0x00, 0x01, 0x80};
    static constexpr std::uint8_t kVendorMessageOption = 48;
    static constexpr std::uint8_t kProbedPortCount = 7;

    explicit BrainStemWrapper(std::shared_ptr<stem::Backend> backend,
                              DriverConsole console = DriverConsole::standard());
    ~BrainStemWrapper();

    BrainStemWrapper(const BrainStemWrapper&) = delete;
    BrainStemWrapper& operator=(const BrainStemWrapper&) = delete;

    // Discovery over USB: one new hub record per module found, identity filled in. The hubs get
    // the same backend, clock and console for the drivers they create later.
    static std::vector<std::shared_ptr<AcronameHub>> hubs(
        const std::shared_ptr<stem::Backend>& backend, core::Clock& clock = core::Clock::system(),
        const DriverConsole& console = DriverConsole::standard());

    // Call while no one else works the driver.
    void setConsole(DriverConsole console) { console_ = std::move(console); }

    std::shared_ptr<AcronameHub> connectedHub() const;
    void setConnectedHub(std::shared_ptr<AcronameHub> hub);

    bool connect(const std::shared_ptr<AcronameHub>& hub);
    bool connect();
    bool isConnected();
    bool disconnect();
    void save();
    void toggleLED();
    void rebootHub();

    bool enablePort(std::uint8_t port);
    bool disablePort(std::uint8_t port);
    bool setPowerLimit(std::uint32_t limit, std::uint8_t port);
    bool setUnregulatedPowerSupplyMaxWatts(std::uint32_t watts);
    bool setPowerModeStandardDownstreamForPort(std::uint8_t port);
    bool setPowerModeChargingDownstreamForPort(std::uint8_t port);
    bool setPowerModePowerDeliveryForPort(std::uint8_t port);
    bool inPDMode(std::uint8_t port);
    // Whether the port is enabled, read from the hub now; nothing when the hub does not answer.
    std::optional<bool> portEnabled(std::uint8_t port);
    bool setPowerRoleToSourceForPort(std::uint8_t port);
    bool setPowerRoleToSinkForPort(std::uint8_t port);
    bool isPowerRoleSinkForPort(std::uint8_t port);
    bool turnOffPortNegotiationForPort(std::uint8_t port);
    bool rebootPort(std::uint8_t port);
    bool dfuPort(std::uint8_t port);

    // The library's answer to the last enable, disable or vendor message; -1 before any. Ports
    // of one hub are worked from several threads at once: a thread that made a call reads its
    // own answer, never the one another port's call left since.
    std::int32_t lastPortResult() const;

    std::uint32_t hubTotalPowerLimit();
    QString firmwareVersion();
    bool makeSourceWithNoNegotiation();
    void discoverPortInfo();

  private:
    bool setPowerMode(std::uint8_t port, std::uint8_t mode);
    bool setPowerRole(std::uint8_t port, std::uint8_t role);
    bool sendVendorMessage(std::uint8_t port, const std::array<std::uint8_t, 16>& message);
    std::shared_ptr<AcronamePort> probePort(std::uint8_t port, AcronameHub* hub);
    // Linked and bound to a hub: what the operations that touch the hub record require.
    bool isLinkedToHub();

    std::function<void(int)> busyLog(const char* command, std::uint8_t port) const;
    void print(const std::string& text) const;
    void log(const std::string& text) const;

    std::shared_ptr<stem::Backend> backend_;
    DriverConsole console_;
    std::unique_ptr<stem::Module> chub;

    mutable std::mutex hubMutex_;
    std::shared_ptr<AcronameHub> connectedHub_;
    void notePortResult(stem::aErr err);
    std::atomic<std::int32_t> lastPortResult_{-1};
};
