#pragma once

#include <QString>

#include <cstdint>

class AcronameHub;

// A snapshot of one hub port, filled in by the driver while probing and not changed after the
// hub publishes it (a reconnect builds new ones), so readers on any thread need no lock.
class AcronamePort {
public:
    std::int64_t portID() const { return portID_; }
    void setPortID(std::int64_t value) { portID_ = value; }

    // The owning hub; not owned, because the hub's port list owns its ports.
    AcronameHub* hub() const { return hub_; }
    void setHub(AcronameHub* value) { hub_ = value; }
    // "1A2B3C4D:3": the hub as `hub list` prints it and the port number, as technicians name it.
    QString name() const;

    bool isEnabled() const { return isEnabled_; }
    void setIsEnabled(bool value) { isEnabled_ = value; }
    bool isConnected() const { return isConnected_; }
    void setIsConnected(bool value) { isConnected_ = value; }
    bool isCableConnected() const { return isCableConnected_; }
    void setIsCableConnected(bool value) { isCableConnected_ = value; }
    bool isUpstreamPort() const { return isUpstreamPort_; }
    void setIsUpstreamPort(bool value) { isUpstreamPort_ = value; }
    bool isUSBCPowerPort() const { return isUSBCPowerPort_; }
    void setIsUSBCPowerPort(bool value) { isUSBCPowerPort_ = value; }

    std::int64_t cableOrientation() const { return cableOrientation_; }
    void setCableOrientation(std::int64_t value) { cableOrientation_ = value; }
    std::int64_t powerRole() const { return powerRole_; }
    void setPowerRole(std::int64_t value) { powerRole_ = value; }

    float vBusVoltage() const { return vBusVoltage_; }
    void setVBusVoltage(float value) { vBusVoltage_ = value; }
    float vBusCurrent() const { return vBusCurrent_; }
    void setVBusCurrent(float value) { vBusCurrent_ = value; }
    float vConnVoltage() const { return vConnVoltage_; }
    void setVConnVoltage(float value) { vConnVoltage_ = value; }
    float vConnCurrent() const { return vConnCurrent_; }
    void setVConnCurrent(float value) { vConnCurrent_ = value; }

    QString description() const;

private:
    std::int64_t portID_ = 0;
    AcronameHub* hub_ = nullptr;
    bool isEnabled_ = false;
    bool isConnected_ = false;
    bool isCableConnected_ = false;
    bool isUpstreamPort_ = false;
    bool isUSBCPowerPort_ = false;
    std::int64_t cableOrientation_ = 0;
    std::int64_t powerRole_ = 0;
    float vBusVoltage_ = 0.0f;
    float vBusCurrent_ = 0.0f;
    float vConnVoltage_ = 0.0f;
    float vConnCurrent_ = 0.0f;
};
