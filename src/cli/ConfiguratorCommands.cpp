#include "cli/ConfiguratorCommands.h"

#include "cli/Interrupts.h"
#include "cli/RestoreProgressBar.h"
#include "configurator/ProcessEngine.h"
#include "configurator/RegistryListing.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "engines/CfgutilEngine.h"
#include "engines/EngineChoice.h"
#include "usb/MacModelNames.h"
#include "usb/UsbRegistry.h"
#include "core/SettingsKeys.h"
#include "records/RestoreRecorder.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>
#include <QUuid>

#include <cstdio>
#include <memory>
#include <optional>

namespace cli {
namespace {

constexpr int listingTimeoutSeconds = 120;

QJsonObject describe(const AC2Device& device) {
    const QVariantMap info = device.deviceinfo();
    return {{"ecid", info.value("ecid").toString()},
            {"udid", device.udid()},
            {"deviceType", device.deviceType()},
            {"locationID", info.value("locationID").toString()},
            {"name", device.name()},
            {"serialNumber", device.serialNumber()},
            {"productID", device.productID()},
            {"inDFU", device.inDFU()}};
}

int devices(bool json) {
    configurator::DeviceList listed;
    if (const auto refused = listAttachedDevices(&listed))
        return *refused;

    QJsonArray described;
    for (const auto& device : listed) described.append(describe(*device));
    if (json) {
        std::printf("%s", QJsonDocument(described).toJson(QJsonDocument::Indented).constData());
        return exitSuccess;
    }
    std::printf("%-18s %-26s %-16s %-10s %-7s %-4s %-14s %s\n", "ECID", "UDID", "TYPE", "LOCATION",
                "PRODUCT", "DFU", "SERIAL", "NAME");
    for (const QJsonValue value : described) {
        const QJsonObject d = value.toObject();
        std::printf("%-18s %-26s %-16s %-10s %-7s %-4s %-14s %s\n",
                    qPrintable(d["ecid"].toString()), qPrintable(d["udid"].toString()),
                    qPrintable(d["deviceType"].toString()), qPrintable(d["locationID"].toString()),
                    qPrintable(d["productID"].toString()), d["inDFU"].toBool() ? "yes" : "no",
                    qPrintable(d["serialNumber"].toString()), qPrintable(d["name"].toString()));
    }
    return exitSuccess;
}

// --ipsw applies to this restore only, so it lives in a store of its own instead of the user's.
std::unique_ptr<core::Settings> settingsForFirmware(const QTemporaryDir& dir, const QString& ipsw) {
    auto settings = std::make_unique<core::Settings>(
        std::make_unique<QSettings>(dir.filePath("restore.conf"), QSettings::IniFormat));
    settings->setValue(core::keys::useCustomIPSW, true);
    settings->setValue(core::keys::customIPSWPath, ipsw);
    return settings;
}

// What the engine needs before anything starts: its tool (and cfgutil's pseudo-terminal), and
// the firmware; a restore that cannot start has no callback at all.
std::optional<int> refuseToStart(restore::RestoreEngine& engine) {
    if (auto* cfgutil = dynamic_cast<engines::CfgutilEngine*>(&engine)) {
        if (const auto refused = refuseWithoutTool(cfgutil->utility()))
            return refused;
        const QString pty = cfgutil->utility().ptyPath();
        if (cfgutil->utility().platform() == configurator::RestorePlatform::Linux &&
            !QFileInfo(pty).isExecutable())
            return fail(exitFailure, QStringLiteral("tarvel-pty is missing at %1").arg(pty));
    } else if (!engine.isInstalled()) {
        return fail(exitFailure, engine.notInstalledAlert().message);
    }
    if (engine.refusesFirmware())
        return exitFailure;
    return std::nullopt;
}

int restoreDevice(const std::string& ecidText, const std::string& ipsw) {
    const std::optional<std::uint64_t> ecid = parseEcid(QString::fromStdString(ecidText));
    if (!ecid)
        return fail(exitUsage,
                    QStringLiteral("\"%1\" is not an ECID (hexadecimal, as `devices` prints it)")
                        .arg(QString::fromStdString(ecidText)));
    QTemporaryDir scratch;
    const std::unique_ptr<core::Settings> firmwareSettings =
        ipsw.empty() ? nullptr : settingsForFirmware(scratch, QString::fromStdString(ipsw));
    const std::unique_ptr<restore::RestoreEngine> engine =
        engines::makeEngine(firmwareSettings ? *firmwareSettings : core::Settings::shared());
    if (const auto refused = refuseToStart(*engine))
        return *refused;

    auto device = std::make_shared<AC2Device>();
    device->setEcid(*ecid);
    RestoreProgressBar bar(formatEcid(*ecid));
    bool cancelling = false;
    int status = exitFailure;

    Interrupts interrupts([&] {
        // A second Ctrl-C while the tool winds down leaves at once.
        if (cancelling) {
            records::RestoreRecorder::shared().abandonUnfinished();
            std::_Exit(exitInterrupted);
        }
        cancelling = true;
        bar.note(QStringLiteral("cancelling…"));
        engine->cancel(device);
    });

    auto* cfgutil = dynamic_cast<engines::CfgutilEngine*>(engine.get());
    if (cfgutil)
        cfgutil->utility().setUnreadableProgressObserver([&](const auto&, const QString& warning) {
            bar.note(QStringLiteral("warning: ") + warning);
        });
    records::RestoreRecorder& recorder = records::RestoreRecorder::shared();
    const QString batchId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    recorder.batchSubmitted(batchId, {device});
    const QString firmware = engine->firmwarePath();
    recorder.deviceStarted(batchId, *device,
                           firmware.isEmpty() ? records::FirmwareUsed{}
                                              : records::FirmwareUsed::ofFile(firmware));
    engine->restore(
        device,
        [&](const auto&, const QVariant& step, float progress) {
            bar.update(step.toString(), progress);
        },
        [&](const auto&, const QString& chunk) { bar.note(chunk.trimmed()); },
        [&](const auto&, bool failed, const QString& message) {
            const QStringList errors = engine->errorLines(*ecid);
            recorder.deviceEnded(
                *device,
                device->didCancel() ? records::Outcome::cancelled
                : failed            ? records::Outcome::failed
                                    : records::Outcome::restored,
                engine->exitStatus(*ecid),
                failed && !device->didCancel() ? message
                : errors.isEmpty()             ? QString()
                                               : errors.last(),
                {records::EngineReport::engineText(engine->name(), engine->version()),
                 engine->firmwareVersion(*ecid), errors});
            bar.finish();
            if (!failed) {
                std::printf("Restore of %s completed.\n", qPrintable(formatEcid(*ecid)));
                status = exitSuccess;
            } else if (device->didCancel()) {
                std::printf("Restore of %s was cancelled (the tool ended with status %d).\n",
                            qPrintable(formatEcid(*ecid)), engine->exitStatus(*ecid).value_or(-1));
                status = exitInterrupted;
            } else {
                status = fail(exitFailure, message);
                for (const QString& line : errors)
                    std::fprintf(stderr, "%s: %s\n", qPrintable(engine->name()), qPrintable(line));
            }
            QCoreApplication::exit(0);
        });
    QCoreApplication::exec();
    if (cfgutil)
        cfgutil->utility().setUnreadableProgressObserver(nullptr);
    return status;
}

int clearCache() {
    int status = exitFailure;
    ZMRConfigurator2Utility::sharedManager().clearAC2CacheWithCompletedBlock(
        [&status](bool success, const QString& message) {
            if (success) {
                std::printf("Apple Configurator's temporary files were removed.\n");
                status = exitSuccess;
            } else {
                status = fail(exitFailure, message);
            }
        });
    return status;
}

}  // namespace

std::optional<int> refuseWithoutTool(const ZMRConfigurator2Utility& utility) {
    if (!utility.isAC2Installed() || !QFileInfo(utility.toolPath()).isExecutable())
        return fail(exitFailure,
                    QStringLiteral("Apple Configurator's cfgutil is not installed at %1")
                        .arg(utility.toolPath()));
    return std::nullopt;
}

namespace {

// idevicerestore has no listing of its own: the Macs are the registry's in DFU and recovery mode.
std::optional<int> listInRegistry(configurator::DeviceList* listed) {
    usb::UsbRegistry& registry = usb::UsbRegistry::shared();
    const auto devices = registry.devices();
    if (!devices)
        return fail(exitFailure,
                    QStringLiteral("the USB registry cannot be read: %1").arg(registry.lastError()));
    *listed = configurator::listMacsInRegistry(*devices, usb::MacModelNames::shipped());
    return std::nullopt;
}

}  // namespace

std::optional<int> listAttachedDevices(configurator::DeviceList* listed) {
    if (configurator::processEngine() == configurator::EngineKind::idevicerestore)
        return listInRegistry(listed);
    ZMRConfigurator2Utility& utility = ZMRConfigurator2Utility::sharedManager();
    if (const auto refused = refuseWithoutTool(utility))
        return refused;
    // A tool that never finishes its listing must not hold the terminal for ever; a listing
    // takes seconds even on a full bench.
    bool timedOut = false;
    QTimer deadline;
    deadline.setSingleShot(true);
    QObject::connect(&deadline, &QTimer::timeout, [&timedOut] {
        timedOut = true;
        QCoreApplication::exit(1);
    });
    deadline.start(listingTimeoutSeconds * 1000);
    utility.attachedDevicesWithCallback([listed](const configurator::DeviceList& devices) {
        *listed = devices;
        QCoreApplication::exit(0);
    });
    QCoreApplication::exec();
    if (timedOut) {
        utility.attachedDevicesWrapper()->stopProcess();
        return fail(exitFailure, QStringLiteral("%1 did not finish listing the devices within %2 s")
                                     .arg(utility.toolPath())
                                     .arg(listingTimeoutSeconds));
    }
    // The listing itself ignores how the tool ended; a technician must not mistake a tool that
    // failed (no simulator, no permission) for an empty bench.
    const int status = utility.attachedDevicesWrapper()->terminationStatus();
    if (status != 0)
        return fail(exitFailure, QStringLiteral("%1 ended with status %2; the log has its messages")
                                     .arg(utility.toolPath())
                                     .arg(status));
    if (const auto unreadable = utility.unreadableListingOutput())
        return fail(exitFailure,
                    QStringLiteral("%1 printed a device list that could not be read; it began:\n%2")
                        .arg(utility.toolPath(), *unreadable));
    return std::nullopt;
}

std::optional<std::uint64_t> parseEcid(QString text) {
    if (text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        text = text.mid(2);
    bool ok = false;
    const std::uint64_t ecid = text.toULongLong(&ok, 16);
    if (!ok || ecid == 0)
        return std::nullopt;
    return ecid;
}

void addConfiguratorCommands(CLI::App& app, CliContext& context) {
    CLI::App* list = app.add_subcommand("devices", "List the devices the restore engine sees");
    auto json = std::make_shared<bool>(false);
    list->add_flag("--json", *json, "print JSON instead of a table");
    list->callback([&context, json] { context.action = [json] { return devices(*json); }; });

    CLI::App* restore = app.add_subcommand("restore-device", "Restore one device (Ctrl-C cancels)");
    auto ecid = std::make_shared<std::string>();
    auto ipsw = std::make_shared<std::string>();
    restore->add_option("ECID", *ecid, "the device's ECID, hexadecimal as `devices` prints it")
        ->required();
    restore->add_option("--ipsw", *ipsw,
                        "restore this firmware file instead of the one the tool picks");
    restore->callback([&context, ecid, ipsw] {
        context.action = [ecid, ipsw] { return restoreDevice(*ecid, *ipsw); };
    });

    CLI::App* cache = app.add_subcommand("cache", "Apple Configurator's temporary files");
    cache->require_subcommand(1);
    cache->add_subcommand("clear", "Remove the temporary files Apple Configurator left behind")
        ->callback([&context] { context.action = [] { return clearCache(); }; });
}

}  // namespace cli
