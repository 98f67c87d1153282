#include "cli/RestoreCommands.h"

#include "cli/ConfiguratorCommands.h"
#include "cli/Interrupts.h"
#include "cli/RestoreBatchDisplay.h"
#include "cli/SimulatorLoss.h"

#include "app/AppState.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/Dispatch.h"
#include "restore/RestoreSession.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cstdio>
#include <memory>
#include <optional>

namespace cli {
namespace {

constexpr int exitCancelled = 130;

struct Options {
    bool allInDFU = false;
    bool json = false;
    std::vector<std::string> ecids;
    std::string historyJSON;
    std::optional<QString> simulator;
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

QJsonArray historyRecords(const QList<restore::History>& history) {
    QJsonArray records;
    for (const restore::History& record : history)
        records.append(QJsonObject{{"device", record.device},
                                   {"serialNumber", record.serialNumber},
                                   {"date", record.date.toString(Qt::ISODate)},
                                   {"message", record.message},
                                   {"identifier", record.identifier.toString(QUuid::WithoutBraces)}});
    return records;
}

bool writeHistory(const QString& path, const QList<restore::History>& history) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(QJsonDocument(historyRecords(history)).toJson(QJsonDocument::Indented));
    return file.commit();
}

void printHistory(const QList<restore::History>& history) {
    std::printf("\nHistory:\n");
    for (const restore::History& record : history)
        std::printf("  %s  %-18s %-12s %s\n", qPrintable(restore::History::dateFormatter(record.date)),
                    qPrintable(record.device), qPrintable(record.serialNumber),
                    qPrintable(record.message));
}

// The output callback's status ("ECID:step:progress") is shown from the progress signal instead.
bool isProgressStatus(const restore::DevicePtr& device, const QString& status) {
    return status.startsWith(QString::number(device->ecid()) + ':');
}

int runBatch(const restore::DeviceList& devices, const Options& options) {
    app::AppState appState;
    restore::RestoreSession session(restore::RestoreSession::defaultCollaborators(&appState));
    QList<RestoreBatchDisplay::Device> rows;
    for (const auto& device : devices) rows.append({device->ecid(), device->serialNumber()});
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
    QObject::connect(&appState, &app::AppState::progressMessageChanged,
                     [&](const QString& message) { display.setMessage(message); });
    QObject::connect(&session, &restore::RestoreSession::restoreTimeChanged,
                     [&](const QString& text) { display.setRestoreTime(text); });

    int status = exitFailure;
    QObject::connect(&session, &restore::RestoreSession::batchFinished,
                     [&](bool failed, bool cancelled) {
                         status = cancelled ? exitCancelled : failed ? exitFailure : exitSuccess;
                         // After the event scripts the batch's end has queued.
                         dispatch::main([] { QCoreApplication::exit(0); });
                     });

    QElapsedTimer sinceCancel;
    Interrupts interrupts([&] {
        // A second Ctrl-C within two seconds leaves at once.
        if (sinceCancel.isValid() && sinceCancel.elapsed() < 2000)
            std::_Exit(exitCancelled);
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
    ZMRConfigurator2Utility& utility = ZMRConfigurator2Utility::sharedManager();
    utility.setUnreadableProgressObserver([&](const auto&, const QString& warning) {
        display.note(QStringLiteral("warning: ") + warning);
    });
    const bool started = session.restore(devices);
    if (started)
        QCoreApplication::exec();
    utility.setUnreadableProgressObserver(nullptr);
    if (!started)
        return exitFailure;
    display.finish();
    if (simulatorLost) {
        reportSimulatorLost("restore", QStringLiteral("the batch was abandoned"));
        return exitFailure;
    }

    // The history keeps only the status; the tool's own reason is what a technician acts on.
    for (const auto& device : devices)
        for (const QString& line :
             ZMRConfigurator2Utility::sharedManager().restoreErrorLines(device->ecid()))
            std::fprintf(stderr, "cfgutil (0x%s): %s\n",
                         qPrintable(QString::number(device->ecid(), 16).toUpper()),
                         qPrintable(line));
    if (!options.historyJSON.empty() &&
        !writeHistory(QString::fromStdString(options.historyJSON), session.history()))
        status = fail(exitFailure, QStringLiteral("could not write the history to %1")
                                       .arg(QString::fromStdString(options.historyJSON)));
    if (options.json)
        display.end(historyRecords(session.history()), status);
    else
        printHistory(session.history());
    return status;
}

int restoreBatch(const Options& options) {
    if (options.allInDFU == !options.ecids.empty())
        return fail(exitUsage, QStringLiteral("name the devices' ECIDs or give --all-dfu"));
    configurator::DeviceList listed;
    if (const auto refused =
            listAttachedDevices(ZMRConfigurator2Utility::sharedManager(), &listed))
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
            return restoreBatch(*options);
        };
    });
}

}  // namespace cli
