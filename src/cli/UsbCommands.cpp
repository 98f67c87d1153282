#include "cli/UsbCommands.h"

#include "core/NotificationCenter.h"
#include "restore/BusAttachmentEvents.h"
#include "usb/DeviceIOKit.h"
#include "usb/PropertyValues.h"
#include "usb/USBManager.h"
#include "usb/UsbRegistry.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <optional>

namespace cli {
namespace {

QString hex32(std::uint64_t value) {
    return QStringLiteral("0x") +
           QStringLiteral("%1").arg(value, 8, 16, QLatin1Char('0')).toUpper();
}

QString hex4(std::int64_t value) {
    return QStringLiteral("%1").arg(value, 4, 16, QLatin1Char('0')).toUpper();
}

// ECIDs are shown as everywhere else in Tarvel: upper-case hex without prefix; 0 is none.
QJsonValue ecidValue(std::uint64_t ecid) {
    if (ecid == 0)
        return QJsonValue::Null;
    return QString::number(ecid, 16).toUpper();
}

void printLine(const QString& line) {
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

usb::UsbRegistry& registryFor(const CliContext& context) {
    if (const auto socket = context.simulatorSocket())
        usb::UsbRegistry::selectSimulator(*socket);
    return usb::UsbRegistry::shared();
}

QJsonObject describe(const usb::PropertyMap& device, const DeviceIOKit& io) {
    const std::int64_t vendor = usb::signedProperty(device, usb::keys::vendorID).value_or(0);
    const std::uint64_t location = usb::unsignedProperty(device, usb::keys::locationID).value_or(0);
    return {
        {"vendorID", qint64(vendor)},
        {"productID", qint64(usb::signedProperty(device, usb::keys::productID).value_or(0))},
        {"locationID", hex32(location)},
        {"serialNumber", usb::textProperty(device, usb::keys::serialNumber).value_or(QString())},
        {"productName", usb::textProperty(device, usb::keys::productName).value_or(QString())},
        {"ecid", ecidValue(usb::unsignedProperty(device, usb::keys::ecid).value_or(0))},
        {"inDFU", io.deviceInDFUModeWithDeviceAddress(location, vendor)},
        {"hubAddress", hex32(io.hubAddressWithDeviceAddress(location))},
    };
}

int list(const CliContext& context, bool json) {
    usb::UsbRegistry& registry = registryFor(context);
    const auto devices = registry.devices();
    if (!devices) {
        const QString why = registry.lastError();
        return fail(exitFailure, QStringLiteral("cannot read the USB registry") +
                                     (why.isEmpty() ? QString() : QStringLiteral(": ") + why));
    }
    const DeviceIOKit io(registry);
    QJsonArray described;
    for (const usb::PropertyMap& device : *devices) described.append(describe(device, io));
    if (json) {
        std::printf("%s", QJsonDocument(described).toJson(QJsonDocument::Indented).constData());
        return exitSuccess;
    }
    printLine(QStringLiteral(
        "VENDOR PRODUCT LOCATION   HUB        DFU ECID             PRODUCT NAME / SERIAL"));
    for (const QJsonValue value : described) {
        const QJsonObject d = value.toObject();
        printLine(QStringLiteral("%1   %2    %3 %4 %5 %6 %7 / %8")
                      .arg(hex4(d["vendorID"].toInteger()), hex4(d["productID"].toInteger()),
                           d["locationID"].toString(), d["hubAddress"].toString(),
                           d["inDFU"].toBool() ? QStringLiteral("yes") : QStringLiteral("no "),
                           d["ecid"].toString().leftJustified(16), d["productName"].toString(),
                           d["serialNumber"].toString()));
    }
    return exitSuccess;
}

QJsonObject describe(const DeviceIOKitInfo& info) {
    return {{"vendorID", qint64(info.vendor)},
            {"locationID", hex32(static_cast<std::uint64_t>(info.usbAddress))},
            {"serialNumber", info.serialNumber},
            {"productName", info.productName},
            {"ecid", ecidValue(static_cast<std::uint64_t>(info.ecid))}};
}

void printNotification(const QString& name, const QVariantMap& userInfo, bool json, int batch) {
    const QList<DeviceIOKitInfo> devices = USBManager::devicesInUserInfo(userInfo);
    if (!json)
        printLine(QStringLiteral("%1 (%2)").arg(name).arg(devices.size()));
    for (const DeviceIOKitInfo& info : devices) {
        QJsonObject line = describe(info);
        if (json) {
            line.insert("event", name);
            line.insert("batch", batch);
            printLine(QString::fromUtf8(QJsonDocument(line).toJson(QJsonDocument::Compact)));
        } else {
            printLine(QStringLiteral("  %1 %2 %3 %4 %5")
                          .arg(line["locationID"].toString(), hex4(info.vendor),
                               line["ecid"].toString().leftJustified(16), info.productName,
                               info.serialNumber));
        }
    }
}

int watch(const CliContext& context, bool json, bool follow) {
    usb::UsbRegistry& registry = registryFor(context);
    auto batch = std::make_shared<int>(0);
    core::NotificationCenter& center = core::NotificationCenter::defaultCenter();
    for (const QString& name :
         {USBManager::deviceAddedNotification, USBManager::deviceRemovedNotification}) {
        center.addObserver(name, [json, batch](const QString& posted, const QVariantMap& info) {
            printNotification(posted, info, json, ++*batch);
        });
    }
    // While the simulator is away, it is asked again every second; the first answer resumes the
    // watch, and what changed meanwhile comes as removals and arrivals.
    QTimer retry;
    retry.setInterval(1000);
    QObject::connect(&retry, &QTimer::timeout, [&registry, &retry, &context] {
        if (!registry.resumeWatching())
            return;
        retry.stop();
        std::fprintf(stderr,
                     "tarvel-cli: usb watch: the simulator at %s is back; watching again, from "
                     "the devices attached now (what changed meanwhile is reported as removals "
                     "and arrivals)\n",
                     qPrintable(context.simulatorSocket().value_or(QString())));
        std::fflush(stderr);
    });
    // A watch that can no longer hear anything must not look like a quiet bench.
    QObject::connect(&registry, &usb::UsbRegistry::watchingLost, [follow, &retry](const QString& why) {
        if (!follow) {
            std::fprintf(stderr,
                         "tarvel-cli: usb watch: %s; no more arrivals or removals can be seen\n",
                         qPrintable(why));
            QCoreApplication::exit(exitFailure);
            return;
        }
        std::fprintf(stderr, "tarvel-cli: usb watch: %s; trying again every second\n",
                     qPrintable(why));
        std::fflush(stderr);
        retry.start();
    });
    // Following the bus for good, the watch is one of the bench's front ends.
    std::optional<restore::BusAttachmentEvents> attachments;
    if (follow)
        attachments.emplace();
    USBManager::sharedManager()->startWatching();
    return QCoreApplication::exec();
}

}  // namespace

void addUsbCommands(CLI::App& app, CliContext& context) {
    CLI::App* usbCommand = app.add_subcommand("usb", "List and watch USB devices");
    usbCommand->require_subcommand(1);

    auto listJson = std::make_shared<bool>(false);
    CLI::App* listCommand = usbCommand->add_subcommand(
        "list", "Every USB device: vendor, product, location, hub, DFU flag, ECID, serial");
    listCommand->add_flag("--json", *listJson, "print a JSON array");
    listCommand->callback([&context, listJson] {
        context.action = [&context, listJson] { return list(context, *listJson); };
    });

    auto watchJson = std::make_shared<bool>(false);
    CLI::App* watchCommand = usbCommand->add_subcommand(
        "watch",
        "Print arrivals (in batches) and removals as they are broadcast, until interrupted");
    watchCommand->add_flag("--json", *watchJson, "one JSON object a line per device");
    auto watchFollow = std::make_shared<bool>(false);
    watchCommand->add_flag("--follow", *watchFollow,
                           "when the simulator goes away, wait for it to come back");
    watchCommand->callback([&context, watchJson, watchFollow] {
        context.action = [&context, watchJson, watchFollow] {
            return watch(context, *watchJson, *watchFollow);
        };
    });
}

}  // namespace cli
