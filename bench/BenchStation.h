#pragma once

#include "CountingBackend.h"

#include "core/Clock.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "core/Sounds.h"
#include "station/ZMRAcronameManager.h"

#include <QProcess>
#include <QTemporaryDir>

#include <memory>

namespace bench {

// A tarvel-sim of seven hubs with a Mac on each of ports 1 to 5, for the life of the object,
// and a manager over it that works on the caller's thread and counts its library calls. The
// simulator runs `speed` times faster than life; `clock` is the manager's.
class BenchStation {
  public:
    static constexpr int kHubs = 7;

    BenchStation(double speed, core::Clock& clock);
    ~BenchStation();

    // Rebuilds the hub list; answers the 35 usable ports in hub order.
    AcronamePorts refresh();
    // Refreshes and puts every usable port into standard downstream mode, so that a power-role
    // pass cycles all of them rather than skipping those a previous run left in power delivery.
    AcronamePorts freshPorts();

    core::Settings& settings() { return settings_; }
    std::shared_ptr<CountingBackend> backend;
    std::shared_ptr<ZMRAcronameManager> manager;

  private:
    class NoSounds final : public core::Sounds {
      public:
        void beep() override {}
        void play(const QString&) override {}
    };

    QTemporaryDir folder_;
    QProcess simulator_;
    core::Settings settings_;
    core::NotificationCenter notifications_;
    NoSounds sounds_;
};

}  // namespace bench
