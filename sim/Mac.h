#pragma once

#include "Scheduler.h"
#include "StationConfig.h"

#include <QByteArray>
#include <QString>

#include <cstdint>

namespace sim {

class Mac;

enum class VendorMessage { Reboot, Dfu, Other };

// The two 16-byte power-delivery messages a Mac acts on; anything else it ignores.
VendorMessage classifyVendorMessage(const QByteArray& bytes);

class MacObserver {
  public:
    virtual ~MacObserver() = default;
    virtual void macChanged(Mac& mac) = 0;
    virtual void restoreProgress(Mac& mac, const QString& step, double progress) = 0;
    virtual void restoreFinished(Mac& mac, int status, const QString& message) = 0;
};

// One Mac as the station sees it: powered through its hub port (or the host's DFU port), off the
// bus while it starts up, and arriving in the state its last power event or message chose.
class Mac {
  public:
    Mac(MacConfig config, std::uint32_t hubSerial, Scheduler& scheduler, const Timing& timing,
        MacObserver& observer);
    ~Mac();
    Mac(const Mac&) = delete;
    Mac& operator=(const Mac&) = delete;

    const MacConfig& config() const { return config_; }
    std::uint32_t hubSerial() const { return hubSerial_; }  // 0 on the host's DFU port
    MacState state() const { return state_; }
    bool onBus() const { return onBus_; }
    bool powered() const { return powered_; }
    bool startingUp() const { return startup_ != 0; }
    // Meaningful while the state is Restoring.
    RestoreStage restoreStage() const { return restoreStage_; }

    void setPowered(bool powered);
    void receive(VendorMessage message);

    // Result codes as the protocol answers them; message explains a refusal.
    int startRestore(QString* message);
    int cancelRestore(QString* message);
    // The engine fault the stand-in plays on this Mac's next restore; empty once it has spoilt
    // as many restores as the station file says.
    QString engineFault() const { return engineFaultsLeft_ == 0 ? QString() : config_.engineFault; }
    void useEngineFault() {
        if (engineFaultsLeft_ > 0)
            --engineFaultsLeft_;
    }

  private:
    void startUp(MacState target, double seconds);
    void leaveBus(double after);
    void arrive(MacState target);
    void restoreStep(std::size_t index);
    void reenumerate(RestoreStage stage);
    double stepSeconds() const;
    void abortRestore(int status, const QString& message);
    void notify() { observer_.macChanged(*this); }

    MacConfig config_;
    std::uint32_t hubSerial_;
    Scheduler& scheduler_;
    const Timing& timing_;
    MacObserver& observer_;

    MacState state_;
    bool onBus_;
    bool powered_ = true;
    int rebootsWhileStarting_ = 0;
    Scheduler::Token startup_ = 0;
    Scheduler::Token leaving_ = 0;
    Scheduler::Token restoreTimer_ = 0;
    Scheduler::Token reenumeration_ = 0;
    RestoreStage restoreStage_ = RestoreStage::Dfu;
    int engineFaultsLeft_ = config_.engineFaultTimes;
};

}  // namespace sim
