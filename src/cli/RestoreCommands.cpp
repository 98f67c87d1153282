#include "cli/RestoreCommands.h"

#include "cli/ConfiguratorCommands.h"
#include "cli/Interrupts.h"
#include "cli/RestoreBatchDisplay.h"
#include "cli/RestoreHubRetry.h"
#include "cli/SimulatorLoss.h"

#include "engines/EngineChoice.h"
#include "core/AppState.h"
#include "usb/MacModelNames.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/Dispatch.h"
#include "core/SimulatorAddress.h"
#include "records/RestoreRecorder.h"
#include "restore/RestoreSession.h"
#include "usb/HubPortNames.h"
#include "usb/UsbRegistry.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QSaveFile>
#include <QSet>

#include <cstdio>
#include <memory>
#include <optional>

namespace cli {
namespace {

struct Options {
    bool allInDFU = false;
    bool json = false;
    std::vector<std::string> ecids;
    std::string historyJSON;
    std::optional<QString> simulator;
    const CliContext* context = nullptr;
};

// The devices the batch restores: every one in DFU mode, or the ones named, in the order named.
std::optional<int> selectDevices(const Options& options, const configurator::DeviceList& listed,
                                 restore::DeviceList* selected) {
    if (options.allInDFU) {
        for (const auto& device : listed)
            if (device->inDFU())
                selected->append(device);
        if (selected->isEmpty())
            return fail(exitFailure, QStringLiteral("no device is in DFU mode"));
        return std::nullopt;
    }
    for (const std::string& text : options.ecids) {
        const std::optional<std::uint64_t> ecid = parseEcid(QString::fromStdString(text));
        if (!ecid)
            return fail(exitUsage,
                        QStringLiteral("\"%1\" is not an ECID (hexadecimal, as `devices` prints it)")
                            .arg(QString::fromStdString(text)));
        const auto found = std::find_if(listed.begin(), listed.end(),
                                        [&](const auto& device) { return device->ecid() == *ecid; });
        if (found == listed.end())
            return fail(exitFailure, QStringLiteral("no device with ECID %1 is attached")
                                         .arg(formatEcid(*ecid)));
        selected->append(*found);
    }
    return std::nullopt;
}

// A Mac of the batch whose outcome never came: the run ended under it.
const QString restoreAbandoned = QStringLiteral("Restore Abandoned");

// The batch's history as scripts read it: the records, each with the tool's exit status and its
// last error lines when the restore ended, and one "Restore Abandoned" record for every Mac
// whose outcome never came.
QJsonArray historyRecords(const QList<restore::History>& history,
                          const QList<restore::History>& abandoned) {
    const restore::RestoreEngine& engine = engines::sharedEngine();
    QJsonArray records;
    for (const restore::History& record : history + abandoned) {
        QJsonObject object{{"device", record.device},
                           {"serialNumber", record.serialNumber},
                           {"date", record.date.toString(Qt::ISODate)},
                           {"message", record.message},
                           {"identifier", record.identifier.toString(QUuid::WithoutBraces)}};
        bool hex = false;
        const std::uint64_t ecid = record.device.toULongLong(&hex, 16);
        if (const auto status = hex ? engine.exitStatus(ecid) : std::nullopt;
            status && record.message != restoreAbandoned) {
            object.insert("status", *status);
            if (const QStringList errors = engine.errorLines(ecid); !errors.isEmpty())
                object.insert("error", errors.join('\n'));
        }
        records.append(object);
    }
    return records;
}

bool writeHistory(const QString& path, const QJsonArray& records) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(QJsonDocument(records).toJson(QJsonDocument::Indented));
    return file.commit();
}

void printHistory(const QList<restore::History>& history) {
    std::printf("\nHistory:\n");
    for (const restore::History& record : history)
        std::printf("  %s  %-18s %-12s %s\n", qPrintable(restore::History::dateFormatter(record.date)),
                    qPrintable(record.device), qPrintable(record.serialNumber),
                    qPrintable(record.message));
}

// "restore: 9 of 10 restored; failed: 1A2B" for standard error when the batch did not succeed.
QString batchSummary(const restore::DeviceList& devices, const QList<restore::History>& history) {
    QMap<QString, QString> outcomes;
    for (const restore::History& record : history)
        if (!outcomes.contains(record.device) || record.message == "Restored Successfully")
            outcomes.insert(record.device, record.message);
    QStringList failed, cancelled, abandoned;
    int restored = 0;
    for (const auto& [device, message] : outcomes.asKeyValueRange()) {
        if (message == "Restored Successfully")
            ++restored;
        else if (message == "Restore Cancelled")
            cancelled << device;
        else if (message == restoreAbandoned)
            abandoned << device;
        else
            failed << device;
    }
    QString text = QStringLiteral("restore: %1 of %2 restored").arg(restored).arg(devices.size());
    for (const auto& [word, ecids] :
         {std::pair{"failed", failed}, std::pair{"cancelled", cancelled},
          std::pair{"abandoned", abandoned}})
        if (!ecids.isEmpty())
            text += QStringLiteral("; %1: %2").arg(QLatin1String(word), ecids.join(", "));
    return text;
}

// The output callback's status ("ECID:step:progress") is shown from the progress signal instead.
bool isProgressStatus(const restore::DevicePtr& device, const QString& status) {
    return status.startsWith(QString::number(device->ecid()) + ':');
}

int runBatch(const restore::DeviceList& devices, const Options& options) {
    core::AppState appState;
    RestoreHubRetry hubRetry(*options.context);
    auto collaborators =
        restore::RestoreSession::defaultCollaborators(&appState, engines::sharedEngine());
    collaborators.hubRetry = hubRetry.collaborator();
    restore::RestoreSession session(collaborators);
    QList<RestoreBatchDisplay::Device> rows;
    const auto registry = usb::UsbRegistry::shared().devices();
    const usb::HubPortNames ports(registry.value_or(QList<usb::PropertyMap>()));
    for (const auto& device : devices)
        rows.append({device->ecid(), device->serialNumber(),
                     ports.nameOf(static_cast<std::uint64_t>(device->locationID())),
                     usb::MacModelNames::shipped().displayName(device->deviceType())});
    RestoreBatchDisplay display(rows, options.json);

    QObject::connect(&session, &restore::RestoreSession::deviceProgress,
                     [&](const restore::DevicePtr& device, const QString& step, float progress) {
                         display.setDeviceText(device->ecid(), step, progress);
                     });
    QObject::connect(&session, &restore::RestoreSession::deviceStatusChanged,
                     [&](const restore::DevicePtr& device) {
                         const QString status = device->restoreStatus();
                         if (!isProgressStatus(device, status))
                             display.setDeviceText(device->ecid(), status,
                                                   status == "Successful" ? 1.0f : -1.0f);
                     });
    QObject::connect(&appState, &core::AppState::progressMessageChanged,
                     [&](const QString& message) { display.setMessage(message); });
    QObject::connect(&session, &restore::RestoreSession::restoreTimeChanged,
                     [&](const QString& text) { display.setRestoreTime(text); });

    int status = exitFailure;
    QObject::connect(&session, &restore::RestoreSession::batchFinished,
                     [&](bool failed, bool cancelled) {
                         status = cancelled ? exitInterrupted : failed ? exitFailure : exitSuccess;
                         // After the event scripts the batch's end has queued.
                         dispatch::main([] { QCoreApplication::exit(0); });
                     });
    QSet<std::uint64_t> finished;
    QObject::connect(&session, &restore::RestoreSession::deviceFinished,
                     [&](const restore::DevicePtr& device) { finished.insert(device->ecid()); });
    // Every Mac of the batch is in the history, and in the records, whichever way the run ends.
    const auto abandonedRecords = [&] {
        records::RestoreRecorder::shared().abandonUnfinished();
        QList<restore::History> abandoned;
        for (const auto& device : devices)
            if (!finished.contains(device->ecid()))
                abandoned.append(restore::History::make(device->ecid(), device->serialNumber(),
                                                        QDateTime::currentDateTime(),
                                                        restoreAbandoned));
        return abandoned;
    };
    const auto writeHistoryFile = [&](const QList<restore::History>& abandoned) {
        if (options.historyJSON.empty())
            return true;
        const QString path = QString::fromStdString(options.historyJSON);
        if (writeHistory(path, historyRecords(session.history(), abandoned)))
            return true;
        fail(exitFailure, QStringLiteral("could not write the history to %1").arg(path));
        return false;
    };

    QElapsedTimer sinceCancel;
    Interrupts interrupts([&] {
        // A second Ctrl-C within two seconds leaves at once, with the history as it stands.
        if (sinceCancel.isValid() && sinceCancel.elapsed() < 2000) {
            display.finish();
            const QList<restore::History> abandoned = abandonedRecords();
            writeHistoryFile(abandoned);
            printHistory(session.history() + abandoned);
            std::fflush(stdout);
            std::_Exit(exitInterrupted);
        }
        sinceCancel.start();
        display.note(QStringLiteral("Cancelling the batch (Ctrl-C again within 2 s to leave at once)"));
        session.cancel(devices);
    });

    // The tool's restores stop with the simulator, but the batch would report them one by one
    // as failures of the Macs; the technician needs to hear what really happened.
    bool simulatorLost = false;
    SimulatorLoss loss(options.simulator, [&] {
        simulatorLost = true;
        QCoreApplication::exit(0);
    });
    // Only Apple Configurator's progress can be unreadable JSON; the observer is harmless otherwise.
    ZMRConfigurator2Utility& utility = ZMRConfigurator2Utility::sharedManager();
    utility.setUnreadableProgressObserver([&](const auto&, const QString& warning) {
        display.note(QStringLiteral("warning: ") + warning);
    });
    const bool started = session.restore(devices);
    if (started)
        QCoreApplication::exec();
    utility.setUnreadableProgressObserver(nullptr);
    display.finish();
    if (!started) {
        // The alert above says why; the batch still ends as every batch does.
        status = fail(exitFailure, QStringLiteral("the batch was refused; no Mac was started"));
        writeHistoryFile({});
        if (options.json)
            display.end(historyRecords({}, {}), status);
        return status;
    }
    const QList<restore::History> abandoned = abandonedRecords();
    // The restores may have ended on their own, failed by the simulator's going, before its
    // socket was heard to close.
    if (options.simulator && core::simulatorProblem(*options.simulator))
        simulatorLost = true;
    if (simulatorLost) {
        reportSimulatorLost("restore", QStringLiteral("the batch was abandoned"));
        status = exitFailure;
    }

    // The history keeps only the status; the tool's own reason is what a technician acts on.
    const restore::RestoreEngine& engine = engines::sharedEngine();
    for (const auto& device : devices)
        for (const QString& line : engine.errorLines(device->ecid()))
            std::fprintf(stderr, "%s (0x%s): %s\n", qPrintable(engine.name()),
                         qPrintable(QString::number(device->ecid(), 16).toUpper()),
                         qPrintable(line));
    if (!writeHistoryFile(abandoned))
        status = exitFailure;
    if (status != exitSuccess)
        fail(status, batchSummary(devices, session.history() + abandoned));
    if (options.json)
        display.end(historyRecords(session.history(), abandoned), status);
    else
        printHistory(session.history() + abandoned);
    return status;
}

int restoreBatch(const Options& options) {
    if (options.allInDFU == !options.ecids.empty())
        return fail(exitUsage, QStringLiteral("name the devices' ECIDs or give --all-dfu"));
    configurator::DeviceList listed;
    if (const auto refused = listAttachedDevices(&listed))
        return *refused;
    restore::DeviceList selected;
    if (const auto refused = selectDevices(options, listed, &selected))
        return *refused;
    return runBatch(selected, options);
}

}  // namespace

void addRestoreCommands(CLI::App& app, CliContext& context) {
    auto options = std::make_shared<Options>();
    CLI::App* restore = app.add_subcommand(
        "restore", "Restore devices one start after another (Ctrl-C cancels the batch)");
    restore->add_flag("--all-dfu", options->allInDFU, "every device in DFU mode");
    restore->add_option("ECID", options->ecids, "the devices' ECIDs, hexadecimal as `devices` prints them");
    restore->add_flag("--json", options->json,
                      "progress, notes and the history as JSON lines (one object per event)");
    restore->add_option("--history-json", options->historyJSON,
                        "write the batch's history records to this file as JSON");
    restore->callback([&context, options] {
        context.action = [&context, options] {
            options->simulator = context.simulatorSocket();
            options->context = &context;
            return restoreBatch(*options);
        };
    });
}

}  // namespace cli
