#pragma once

#include "unattended/UnattendedBench.h"

#include "usb/HubPortNames.h"
#include "usb/MemoryUsbRegistry.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <memory>

// A bench over one hub, 1C3B4A01, with ports 1 and 2, whose sequences and restores end when a
// test says so, on a clock that moves only when a test ticks it.
namespace bench_testing {

using unattended::BenchPort;
using unattended::PortPhase;
using unattended::UnattendedBench;

inline constexpr std::uint64_t hubLocation = 0x01100000;

class FakeDriver final : public unattended::PortDriver {
  public:
    QStringList ports() const override { return portList; }
    void refresh() override { ++refreshes; }
    void dfu(const QString& port) override { dfuRuns << port; }
    void recovery(const QString& port) override { recoveryRuns << port; }
    void stop() override { stopped = true; }
    void end(const QString& port, bool ok, const QString& reason = {}) {
        emit sequenceEnded(port, {ok, false, reason});
    }
    QStringList portList{"1C3B4A01:1", "1C3B4A01:2"};
    QStringList dfuRuns;
    QStringList recoveryRuns;
    int refreshes = 0;
    bool stopped = false;
};

class FakeRestorer final : public unattended::Restorer {
  public:
    void restore(const QString& port, std::uint64_t location) override {
        asked << port;
        locations << location;
    }
    void cancelAll() override { ++cancels; }
    QStringList asked;
    QList<std::uint64_t> locations;
    int cancels = 0;
};

inline usb::PropertyMap hub(std::uint64_t location = hubLocation,
                            const QString& serial = "1C3B4A01") {
    return {{"idVendor", 0x24FF},
            {"idProduct", 0x0014},
            {"locationID", qint64(location)},
            {"kUSBSerialNumberString", serial}};
}

inline std::uint64_t portLocation(int port, std::uint64_t hub = hubLocation) {
    return *usb::HubPortNames::portLocation(hub, port);
}

inline usb::PropertyMap bootedMac(int port, const QString& serial,
                                  std::uint64_t hub = hubLocation) {
    return {{"idVendor", 0x05AC},
            {"idProduct", 0x1905},
            {"locationID", qint64(portLocation(port, hub))},
            {"kUSBSerialNumberString", serial},
            {"kUSBProductString", "Mac"}};
}

inline usb::PropertyMap dfuMac(int port, std::uint64_t ecid) {
    return {{"idVendor", 0x05AC},
            {"idProduct", 0x1227},
            {"locationID", qint64(portLocation(port))},
            {"kUSBSerialNumberString",
             QString("CPID:8103 ECID:%1 SRTG:[iBoot-7459.121.3]").arg(ecid, 16, 16, QChar('0'))},
            {"kUSBProductString", "Apple Mobile Device (DFU Mode)"},
            {"UsbAppleDeviceECID", QString::number(ecid)}};
}

class Bench : public ::testing::Test {
  protected:
    void start(bool restore, int maxRestores = 4) {
        UnattendedBench::Options options;
        options.restore = restore;
        options.maxRestores = maxRestores;
        options.secondsBetweenStarts = 3;
        bench_ = std::make_unique<UnattendedBench>(
            UnattendedBench::Collaborators{&registry_, &driver_, &restorer_,
                                           [this] { return now_; }, 3600000},
            options);
        bench_->start();
        settle();
    }
    void settle() { QCoreApplication::processEvents(); }
    void plug(const usb::PropertyMap& mac) {
        registry_.attach(mac);
        settle();
    }
    void pull(int port) {
        registry_.detach(portLocation(port));
        settle();
    }
    void ticks(int count) {
        for (int i = 0; i < count; ++i) {
            now_ += 1;
            bench_->tick();
        }
    }
    BenchPort port(int number) const {
        for (const BenchPort& shown : bench_->ports())
            if (shown.name == QString("1C3B4A01:%1").arg(number))
                return shown;
        return {};
    }

    usb::MemoryUsbRegistry registry_{QList<usb::PropertyMap>{hub()}};
    FakeDriver driver_;
    FakeRestorer restorer_;
    double now_ = 0;
    std::unique_ptr<UnattendedBench> bench_;
};

}  // namespace bench_testing
