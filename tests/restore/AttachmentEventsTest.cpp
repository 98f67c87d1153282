#include "restore/AttachmentEvents.h"
#include "restore/DeviceRoster.h"

#include "configurator/AC2Device.h"
#include "core/NotificationCenter.h"
#include "core/SettingsKeys.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"
#include "usb/USBManager.h"

#include <gtest/gtest.h>

#include <ostream>
#include <variant>

namespace {

using restore::AttachmentEvents;
using restore::DeviceRoster;

const QString dfuProduct = "Apple Mobile Device (DFU Mode)";
constexpr std::int64_t apple = 1452;

DeviceIOKitInfo usb(std::int64_t ecid, const QString& serial, std::int64_t location,
                    const QString& product, std::int64_t vendor = apple) {
    return {vendor, serial, location, product, ecid};
}

std::shared_ptr<AC2Device> listed(std::uint64_t ecid, const QString& udid, std::int64_t location) {
    auto device = std::make_shared<AC2Device>();
    device->setEcid(ecid);
    device->setUdid(udid);
    device->setProductID("0x1227");
    device->setDeviceType("Macmini9,1");
    device->setLocationID(location);
    device->setInDFU(true);
    return device;
}

struct Arrival {
    DeviceIOKitInfo info;
};
struct Removal {
    DeviceIOKitInfo info;
};
struct Listing {
    configurator::DeviceList devices;
};
using Step = std::variant<Arrival, Removal, Listing>;

struct Event {
    QString name;
    QVariantMap info;
    bool operator==(const Event&) const = default;
};

void PrintTo(const Event& event, std::ostream* out) {
    *out << event.name.toStdString();
    for (auto it = event.info.begin(); it != event.info.end(); ++it)
        *out << ' ' << it.key().toStdString() << '=' << it.value().toString().toStdString();
}

// A Mac's information dictionary as the event script receives it.
QVariantMap payload(const QString& ecid, const QString& serial, const QString& location,
                    const QString& name, const QString& deviceType = {}, const QString& udid = {},
                    const QString& productID = {}) {
    return {{"ecid", ecid},          {"serialNumber", serial},   {"locationID", location},
            {"name", name},          {"deviceType", deviceType}, {"udid", udid},
            {"productID", productID}};
}

struct Case {
    const char* what;
    QList<Step> steps;
    QList<Event> events;
};

// A roster with the events wired to it, recording what would go to the script runner.
struct Bench {
    Bench(core::Settings& settings, core::Clock& clock)
        : roster(clock),
          attachments(roster, settings,
                      [this](const QString& event, bool status, const QVariantMap& info,
                             const std::optional<QString>& scriptPath) {
                          EXPECT_TRUE(status) << "a Mac coming or going is always a success";
                          EXPECT_EQ(scriptPath, "/opt/bench/on-event");
                          posted.append({event, info});
                      }) {}

    void run(const Step& step) {
        if (const auto* arrival = std::get_if<Arrival>(&step))
            roster.usbDevicesAdded({arrival->info});
        else if (const auto* removal = std::get_if<Removal>(&step))
            roster.usbDevicesRemoved({removal->info});
        else
            roster.applyListing(std::get<Listing>(step).devices);
    }

    DeviceRoster roster;
    QList<Event> posted;
    AttachmentEvents attachments;
};

class Attachments : public ::testing::Test {
  protected:
    Attachments() {
        settings.settings().setValue(core::keys::eventScriptPath, "/opt/bench/on-event");
        settings.settings().setValue(core::keys::shouldUseEventScript, true);
    }

    testing_support::TestSettings settings;
    testing_support::VirtualClock clock;
    Bench bench{settings.settings(), clock};
};

TEST_F(Attachments, EachMacComingOrGoingIsOneEventWithWhatTheRosterKnowsOfIt) {
    const Case cases[] = {
        {"a Mac in DFU mode comes and goes; its boot ROM names its model",
         {Arrival{{apple, "", 0x1110000, dfuProduct, 0xA1, 0x8103, 0x26}},
          Removal{usb(0xA1, "", 0x1110000, dfuProduct)}},
         {{"deviceAttached", payload("0xA1", "", "0x1110000", dfuProduct, "MacBookAir10,1")},
          {"deviceRemoved", payload("0xA1", "", "0x1110000", dfuProduct, "MacBookAir10,1")}}},
        {"keyboards and other vendors' devices are no Macs",
         {Arrival{usb(0, "F0T123", 0x3110000, "Magic Keyboard")},
          Arrival{usb(0xB2, "", 0x2000000, dfuProduct, apple + 1)},
          Removal{usb(0, "F0T123", 0x3110000, "Magic Keyboard")}},
         {}},
        {"a removal of a Mac never seen says nothing",
         {Removal{usb(0xC3, "", 0x1130000, dfuProduct)}},
         {}},
        {"a booted Mac coming back in DFU mode at its port keeps its serial number",
         {Arrival{usb(0, "H4WGJ2Q7PX", 0x1120000, "Mac")},
          Removal{usb(0, "H4WGJ2Q7PX", 0x1120000, "Mac")},
          Arrival{usb(0x16594A1492801E, "", 0x1120000, dfuProduct)}},
         {{"deviceAttached", payload("0x0", "H4WGJ2Q7PX", "0x1120000", "Mac")},
          {"deviceRemoved", payload("0x0", "H4WGJ2Q7PX", "0x1120000", "Mac")},
          {"deviceAttached", payload("0x16594A1492801E", "H4WGJ2Q7PX", "0x1120000", "Mac")}}},
        {"a Mac Apple Configurator listed carries the listing's identity; the listing says nothing",
         {Listing{{listed(0xA4, "00008103-00000000000000A4", 0x1140000)}},
          Arrival{usb(0xA4, "", 0x1140000, dfuProduct)}},
         {{"deviceAttached", payload("0xA4", "", "0x1140000", dfuProduct, "Macmini9,1",
                                     "00008103-00000000000000A4", "0x1227")}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Bench fresh(settings.settings(), clock);
        for (const Step& step : c.steps) fresh.run(step);
        EXPECT_EQ(fresh.posted, c.events);
    }
}

TEST_F(Attachments, TheSwitchIsReadAtEveryEvent) {
    settings.settings().setValue(core::keys::shouldUseEventScript, false);
    bench.roster.usbDevicesAdded({usb(0xA1, "", 0x1110000, dfuProduct)});
    settings.settings().setValue(core::keys::shouldUseEventScript, true);
    bench.roster.usbDevicesRemoved({usb(0xA1, "", 0x1110000, dfuProduct)});
    ASSERT_EQ(bench.posted.size(), 1);
    EXPECT_EQ(bench.posted[0].name, "deviceRemoved");
}

// Front ends without a device table of their own follow the USB manager's broadcasts.
TEST_F(Attachments, TheRosterFollowsTheUsbManagersBroadcasts) {
    core::NotificationCenter center;
    Bench watching(settings.settings(), clock);
    watching.roster.observe(center);
    const QList<DeviceIOKitInfo> both{usb(0xA1, "", 0x1110000, dfuProduct),
                                      usb(0xA2, "", 0x1120000, dfuProduct)};
    center.post(USBManager::deviceAddedNotification,
                {{USBManager::devicesKey, QVariant::fromValue(both)}});
    center.post(USBManager::deviceRemovedNotification,
                {{USBManager::devicesKey, QVariant::fromValue(both.mid(1))}});
    QStringList seen;
    for (const Event& event : watching.posted)
        seen << event.name + ' ' + event.info.value("ecid").toString();
    EXPECT_EQ(seen,
              QStringList({"deviceAttached 0xA1", "deviceAttached 0xA2", "deviceRemoved 0xA2"}));
}

}  // namespace
