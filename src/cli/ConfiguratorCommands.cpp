#include "cli/ConfiguratorCommands.h"

#include "cli/Interrupts.h"
#include "cli/RestoreProgressBar.h"
#include "configurator/ZMRConfigurator2Utility.h"
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
    if (const auto refused = listAttachedDevices(ZMRConfigurator2Utility::sharedManager(), &listed))
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

int restoreDevice(const std::string& ecidText, const std::string& ipsw) {
    const std::optional<std::uint64_t> ecid = parseEcid(QString::fromStdString(ecidText));
    if (!ecid)
        return fail(exitUsage,
                    QStringLiteral("\"%1\" is not an ECID (hexadecimal, as `devices` prints it)")
                        .arg(QString::fromStdString(ecidText)));
    QTemporaryDir scratch;
    ZMRConfigurator2Utility::Collaborators collaborators =
        ZMRConfigurator2Utility::defaultCollaborators();
    std::unique_ptr<core::Settings> firmwareSettings;
    if (!ipsw.empty()) {
        firmwareSettings = settingsForFirmware(scratch, QString::fromStdString(ipsw));
        collaborators.settings = firmwareSettings.get();
    }
    ZMRConfigurator2Utility utility(collaborators);
    if (const auto refused = refuseWithoutTool(utility))
        return *refused;
    if (collaborators.platform == configurator::RestorePlatform::Linux &&
        !QFileInfo(collaborators.ptyPath).isExecutable())
        return fail(exitFailure,
                    QStringLiteral("tarvel-pty is missing at %1").arg(collaborators.ptyPath));
    // A missing firmware file stops the restore with a dialog and no callback at all.
    if (collaborators.settings->boolForKey(core::keys::useCustomIPSW) &&
        !utility.customIPSWExists()) {
        utility.showIPSWError();
        return exitFailure;
    }

    auto device = std::make_shared<AC2Device>();
    device->setEcid(*ecid);
    RestoreProgressBar bar(formatEcid(*ecid));
    ZMRConfigurator2Utility::Runner cancelled;
    int status = exitFailure;

    Interrupts interrupts([&] {
        // A second Ctrl-C while the tool winds down leaves at once.
        if (cancelled) {
            records::RestoreRecorder::shared().abandonUnfinished();
            std::_Exit(exitInterrupted);
        }
        cancelled = utility.task(*ecid);
        bar.note(QStringLiteral("cancelling…"));
        utility.cancelRestore(device);
    });

    utility.setUnreadableProgressObserver([&](const auto&, const QString& warning) {
        bar.note(QStringLiteral("warning: ") + warning);
    });
    records::RestoreRecorder& recorder = records::RestoreRecorder::shared();
    const QString batchId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    recorder.batchSubmitted(batchId, {device});
    recorder.deviceStarted(batchId, *device,
                           records::FirmwareUsed::fromSettings(*collaborators.settings));
    utility.restoreWithAC2ForDevice(
        device,
        [&](const auto&, const QVariant& step, float progress) {
            bar.update(step.toString(), progress);
        },
        [&](const auto&, const QString& chunk) { bar.note(chunk.trimmed()); },
        [&](const auto&, bool failed, const QString& message) {
            const QStringList errors = utility.restoreErrorLines(*ecid);
            recorder.deviceEnded(*device,
                                 device->didCancel() ? records::Outcome::cancelled
                                 : failed            ? records::Outcome::failed
                                                     : records::Outcome::restored,
                                 utility.restoreExitStatus(*ecid),
                                 failed && !device->didCancel() ? message
                                 : errors.isEmpty()             ? QString()
                                                                : errors.last());
            bar.finish();
            if (!failed) {
                std::printf("Restore of %s completed.\n", qPrintable(formatEcid(*ecid)));
                status = exitSuccess;
            } else if (device->didCancel()) {
                std::printf("Restore of %s was cancelled (the tool ended with status %d).\n",
                            qPrintable(formatEcid(*ecid)),
                            cancelled ? cancelled->terminationStatus() : -1);
                status = exitInterrupted;
            } else {
                status = fail(exitFailure, message);
                for (const QString& line : utility.restoreErrorLines(*ecid))
                    std::fprintf(stderr, "cfgutil: %s\n", qPrintable(line));
            }
            QCoreApplication::exit(0);
        });
    QCoreApplication::exec();
    utility.setUnreadableProgressObserver(nullptr);
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

std::optional<int> listAttachedDevices(ZMRConfigurator2Utility& utility,
                                       configurator::DeviceList* listed) {
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
    CLI::App* list = app.add_subcommand("devices", "List the devices Apple Configurator sees");
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
