#pragma once

#include "hubs/AcronamePort.h"
#include "hubs/DriverConsole.h"
#include "hubs/stem/Backend.h"

#include "core/Clock.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class BrainStemWrapper;

// One discovered hub: its identity as discovery reported it, what connecting learnt (firmware
// version and probed ports), and the way every command reaches the hardware. Shared between
// threads through std::shared_ptr; every property is read and written under the hub's lock.
//
// While connected, the driver holds the hub strongly (its `connectedHub`), so a connected hub
// lives until `disconnect` drops the driver.
class AcronameHub : public std::enable_shared_from_this<AcronameHub> {
public:
    // The backend, clock and console are handed to the driver the hub creates on connect.
    explicit AcronameHub(std::shared_ptr<stem::Backend> backend,
                         core::Clock& clock = core::Clock::system(),
                         DriverConsole console = DriverConsole::standard());
    ~AcronameHub();

    AcronameHub(const AcronameHub&) = delete;
    AcronameHub& operator=(const AcronameHub&) = delete;

    std::uint32_t model() const;
    void setModel(std::uint32_t value);
    std::uint32_t acronameModule() const;
    void setAcronameModule(std::uint32_t value);
    std::uint32_t serialNumber() const;
    void setSerialNumber(std::uint32_t value);
    std::uint32_t router() const;
    void setRouter(std::uint32_t value);
    std::uint32_t routerSerialNumber() const;
    void setRouterSerialNumber(std::uint32_t value);
    std::uint32_t usbID() const;
    void setUsbID(std::uint32_t value);
    std::uint32_t powerMax() const;
    void setPowerMax(std::uint32_t value);
    QString firmwareVersion() const;
    void setFirmwareVersion(const QString& value);
    std::vector<std::shared_ptr<AcronamePort>> ports() const;
    void setPorts(std::vector<std::shared_ptr<AcronamePort>> value);
    std::shared_ptr<BrainStemWrapper> brainStemWrapper() const;
    // Where this hub's driver writes from now on. Call while no one else works the hub.
    void setConsole(DriverConsole console);
    void setBrainStemWrapper(std::shared_ptr<BrainStemWrapper> value);

    QString description() const;
    // The serial number in upper-case hexadecimal, at least two digits: what technicians read
    // on the hub's label.
    QString modelName() const;

    bool connect();
    bool disconnect();
    bool isConnected() const;
    // Does nothing, and is kept so: callers that restart a hub reboot it (rebootHub).
    void restartHub();
    void rebootHub();
    void toggleLED();

    bool rebootPort(std::int64_t port);
    bool dfuPort(std::int64_t port);
    bool disablePort(std::int64_t port);
    bool enablePort(std::int64_t port);
    bool setPowerModeChargingDownstreamForPort(std::int64_t port);
    bool setPowerModeStandardDownstreamForPort(std::int64_t port);
    bool setPowerModePowerDeliveryForPort(std::int64_t port);
    bool inPDModeForPort(std::int64_t port);
    // The port's enabled state as the hub reports it now; nothing without an answer.
    std::optional<bool> portEnabled(std::int64_t port);
    // The library's answer to the last enable, disable or vendor message, -1 without a driver.
    std::int64_t lastPortResult() const;
    bool setPowerLimit(std::uint32_t limit, std::int64_t port);

private:
    // Gives other threads a chance before a command that may block on the hub for a while.
    void yield();

    std::shared_ptr<stem::Backend> backend_;
    core::Clock& clock_;
    DriverConsole console_;

    mutable std::mutex mutex_;
    std::uint32_t model_ = 0;
    std::uint32_t acronameModule_ = 0;
    std::uint32_t serialNumber_ = 0;
    std::uint32_t router_ = 0;
    std::uint32_t routerSerialNumber_ = 0;
    std::uint32_t usbID_ = 0;
    std::uint32_t powerMax_ = 0;
    QString firmwareVersion_;
    std::vector<std::shared_ptr<AcronamePort>> ports_;
    std::shared_ptr<BrainStemWrapper> brainStemWrapper_;
};
