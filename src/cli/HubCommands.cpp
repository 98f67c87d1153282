#include "cli/HubCommands.h"

#include "cli/HubListOutput.h"
#include "cli/ModeVerification.h"

#include "core/HubPortName.h"

#include "hubs/AcronameHub.h"
#include "hubs/AcronamePort.h"
#include "hubs/BrainStemWrapper.h"
#include "hubs/stem/Backend.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace cli {
namespace {

constexpr std::int64_t kLastPort = BrainStemWrapper::kProbedPortCount - 1;

struct HubOptions {
    bool json = false;
};

struct MessageOptions {
    bool json = false;
    bool force = false;
    bool noVerify = false;
};

void printJson(const QJsonObject& object) {
    std::printf("%s\n", QJsonDocument(object).toJson(QJsonDocument::Compact).constData());
}

// The hubs the station shows: the simulator when one is asked for, otherwise the hardware.
std::optional<std::shared_ptr<stem::Backend>> openBackend(const CliContext& context, int& status) {
    if (const auto problem = context.hubLibraryProblem()) {
        status = fail(exitFailure, *problem);
        return std::nullopt;
    }
    if (const auto problem = context.simulatorProblem()) {
        status = fail(exitFailure, *problem);
        return std::nullopt;
    }
    return stem::makeBackend(context.simulatorSocket());
}

std::vector<std::shared_ptr<AcronameHub>> discover(const CliContext& context,
                                                   const std::shared_ptr<stem::Backend>& backend) {
    return BrainStemWrapper::hubs(backend, core::Clock::system(), context.driverConsole());
}

bool connectHub(const std::shared_ptr<AcronameHub>& hub) {
    hub->connect();
    const auto wrapper = hub->brainStemWrapper();
    return wrapper && wrapper->connectedHub() != nullptr;
}

int listHubs(const CliContext& context, const HubOptions& options) {
    int status = exitSuccess;
    const auto backend = openBackend(context, status);
    if (!backend)
        return status;
    QJsonArray hubsJson;
    QString table;
    for (const auto& hub : discover(context, *backend)) {
        const bool connected = connectHub(hub);
        if (!connected)
            status = exitFailure;
        hubsJson.append(hubJson(*hub, connected));
        if (!table.isEmpty())
            table += '\n';
        table += hubTable(*hub, connected);
        hub->disconnect();
    }
    if (options.json)
        printJson(QJsonObject{{"hubs", hubsJson}});
    else
        std::fputs(table.isEmpty() ? "No hubs found.\n" : qPrintable(table), stdout);
    if (status != exitSuccess)
        std::fprintf(stderr, "tarvel-cli: some hubs could not be connected\n");
    return status;
}

struct PortAddress {
    QString hub;
    std::int64_t port = -1;
};

std::optional<PortAddress> parsePortAddress(const std::string& text) {
    const QString address = QString::fromStdString(text);
    const qsizetype colon = address.lastIndexOf(':');
    if (colon <= 0)
        return std::nullopt;
    bool ok = false;
    const std::int64_t port = address.mid(colon + 1).toLongLong(&ok);
    if (!ok)
        return std::nullopt;
    return PortAddress{address.left(colon), port};
}

// Finds and connects the hub a technician named by its printed serial, runs `command` on it and
// disconnects again. `command` answers whether the hub did what was asked.
int withHub(const CliContext& context, const QString& serial,
            const std::function<bool(AcronameHub&)>& command) {
    int status = exitSuccess;
    const auto backend = openBackend(context, status);
    if (!backend)
        return status;
    std::shared_ptr<AcronameHub> found;
    for (const auto& hub : discover(context, *backend)) {
        if (hub->modelName().compare(serial, Qt::CaseInsensitive) == 0)
            found = hub;
    }
    if (!found)
        return fail(exitFailure, QStringLiteral("no hub %1 on this station (`hub list` shows the "
                                                "hubs found)")
                                     .arg(serial));
    if (!connectHub(found)) {
        found->disconnect();
        return fail(exitFailure, QStringLiteral("cannot connect to hub %1").arg(serial));
    }
    const bool done = command(*found);
    found->disconnect();
    return done ? exitSuccess : exitFailure;
}

void report(const HubOptions& options, const QJsonObject& json, const QString& text, bool done) {
    if (options.json)
        printJson(json);
    else if (done)
        std::printf("%s\n", qPrintable(text));
    else
        std::fprintf(stderr, "tarvel-cli: %s\n", qPrintable(text));
}

// One port command: `run` performs it on the hub; `what` names it for the human report.
int portCommand(const CliContext& context, const HubOptions& options, const std::string& target,
                const QString& action, const std::function<bool(AcronameHub&, std::int64_t)>& run) {
    const auto address = parsePortAddress(target);
    if (!address || !isHubName(address->hub))
        return fail(exitUsage,
                    QStringLiteral(
                        "%1 is not HUB:PORT with the hub in hexadecimal (for example 1234ABCD:3)")
                        .arg(QString::fromStdString(target)));
    if (address->port < 0 || address->port > kLastPort)
        return fail(exitFailure, QStringLiteral("hub %1 has no port %2 (ports are 0 to %3)")
                                     .arg(address->hub)
                                     .arg(address->port)
                                     .arg(kLastPort));
    return withHub(context, address->hub, [&](AcronameHub& hub) {
        const bool done = run(hub, address->port);
        report(options,
               QJsonObject{{"hub", hub.modelName()},
                           {"port", static_cast<qint64>(address->port)},
                           {"action", action},
                           {"ok", done}},
               QStringLiteral("%1 %2:%3: %4")
                   .arg(action, hub.modelName())
                   .arg(address->port)
                   .arg(done ? QStringLiteral("done") : QStringLiteral("failed")),
               done);
        return done;
    });
}

// Why a vendor message to the port would go nowhere, if it would: the message travels only
// over a power-delivery contract with a powered Mac.
// The port as the hub's connect probed it, if it did.
std::shared_ptr<AcronamePort> probedPort(const AcronameHub& hub, std::int64_t port) {
    for (const auto& probed : hub.ports())
        if (probed->portID() == port)
            return probed;
    return nullptr;
}

std::optional<QString> messageRefusal(AcronameHub& hub, std::int64_t port) {
    const auto probed = probedPort(hub, port);
    if (!probed)
        return QStringLiteral("the port could not be read");
    if (!probed->isEnabled())
        return QStringLiteral("the port is disabled (`port enable` first)");
    if (!probed->isConnected())
        return QStringLiteral("nothing is connected to the port");
    if (!hub.inPDModeForPort(port))
        return QStringLiteral(
                   "the port is not in power-delivery mode (`port power-mode %1:%2 pd` "
                   "first)")
            .arg(hub.modelName())
            .arg(port);
    return std::nullopt;
}

// Waits for the Mac on a port that was sent the DFU message to show DFU mode on USB, as `dfu`
// checks its ports; answers the verdict's word and what to say.
std::pair<bool, QString> verifyDfu(const CliContext& context, const AcronamePort& port, bool json) {
    station::PortVerdict verdict({port.name()});
    verdict.record({.kind = PortProgress::Kind::PortResult,
                    .step = PortProgress::Step::DfuMessage,
                    .port = &port,
                    .succeeded = true});
    verdict.recordCompletion(true);
    ProgressDisplay display = ProgressDisplay::forStandardOutput(json);
    verifyModes(context, verdict, station::MacMode::Dfu, display);
    if (verdict.succeeded())
        return {true, QStringLiteral("the Mac is in DFU mode")};
    return {false, verdict.unverifiedDescriptions().join("; ")};
}

// `port dfu` and `port reboot`: the port is read first and a message that could not reach the
// Mac is refused unless forced; a DFU message is then checked on USB as `dfu` checks it.
int messageCommand(const CliContext& context, const MessageOptions& options,
                   const std::string& target, bool dfu) {
    const QString action = dfu ? QStringLiteral("dfu") : QStringLiteral("reboot");
    const auto address = parsePortAddress(target);
    if (!address || !isHubName(address->hub) || address->port < 0 || address->port > kLastPort)
        return fail(exitUsage, QStringLiteral("%1 is not HUB:PORT with the hub in hexadecimal and "
                                              "a port from 0 to %2 (for example 1234ABCD:3)")
                                   .arg(QString::fromStdString(target))
                                   .arg(kLastPort));
    return withHub(context, address->hub, [&](AcronameHub& hub) {
        const QString name = core::hubPortName(hub.modelName(), address->port);
        QJsonObject json{{"hub", hub.modelName()},
                         {"port", static_cast<qint64>(address->port)},
                         {"action", action}};
        const auto refusal = messageRefusal(hub, address->port);
        if (refusal && !options.force) {
            json.insert("ok", false);
            json.insert("refused", *refusal);
            report({options.json}, json,
                   QStringLiteral("%1 %2: not sent: %3; --force sends it anyway")
                       .arg(action, name, *refusal),
                   false);
            return false;
        }
        const bool sent = dfu ? hub.dfuPort(address->port) : hub.rebootPort(address->port);
        json.insert("sent", sent);
        if (!sent) {
            json.insert("ok", false);
            report({options.json}, json,
                   QStringLiteral("%1 %2: failed (%3)")
                       .arg(action, name, portResultText(hub.lastPortResult(), hub.modelName())),
                   false);
            return false;
        }
        const auto probed = probedPort(hub, address->port);
        if (!dfu || options.noVerify || !probed) {
            json.insert("ok", true);
            report({options.json}, json, QStringLiteral("%1 %2: sent").arg(action, name), true);
            return true;
        }
        if (!options.json)
            std::printf("%s\n", qPrintable(QStringLiteral("%1 %2: sent").arg(action, name)));
        const auto [verified, outcome] = verifyDfu(context, *probed, options.json);
        json.insert("ok", verified);
        json.insert("verified", verified);
        report({options.json}, json, QStringLiteral("dfu %1: %2").arg(name, outcome), verified);
        return verified;
    });
}

int hubCommand(const CliContext& context, const HubOptions& options, const std::string& serial,
               const QString& action, const std::function<void(AcronameHub&)>& run) {
    if (!isHubName(QString::fromStdString(serial)))
        return fail(
            exitUsage,
            QStringLiteral("%1 is not a hub serial in hexadecimal (as `hub list` prints it)")
                .arg(QString::fromStdString(serial)));
    return withHub(context, QString::fromStdString(serial), [&](AcronameHub& hub) {
        // The hub answers these without a result; sending them is all that can be reported.
        run(hub);
        report(options, QJsonObject{{"hub", hub.modelName()}, {"action", action}, {"ok", true}},
               QStringLiteral("%1 %2: sent").arg(action, hub.modelName()), true);
        return true;
    });
}

CLI::App* addJsonFlag(CLI::App* command, const std::shared_ptr<HubOptions>& options) {
    command->add_flag("--json", options->json, "print the result as JSON");
    return command;
}

void addPortCommands(CLI::App& app, CliContext& context) {
    CLI::App* port =
        app.add_subcommand("port", "Command one port of a hub (HUB:PORT, e.g. 1234ABCD:3)");
    port->require_subcommand(1);

    using PortRun = std::function<bool(AcronameHub&, std::int64_t)>;
    const auto simple = [&](const char* name, const char* help, const QString& action,
                            PortRun run) {
        auto options = std::make_shared<HubOptions>();
        auto target = std::make_shared<std::string>();
        CLI::App* command = addJsonFlag(port->add_subcommand(name, help), options);
        command->add_option("HUB:PORT", *target, "hub serial and port number")->required();
        command->callback([&context, options, target, action, run] {
            context.action = [&context, options, target, action, run] {
                return portCommand(context, *options, *target, action, run);
            };
        });
    };
    simple("enable", "Enable the port", "enable",
           [](AcronameHub& hub, std::int64_t p) { return hub.enablePort(p); });
    simple("disable", "Disable the port (the device on it loses power)", "disable",
           [](AcronameHub& hub, std::int64_t p) { return hub.disablePort(p); });
    const auto message = [&](const char* name, const char* help, bool dfu) {
        auto options = std::make_shared<MessageOptions>();
        auto target = std::make_shared<std::string>();
        CLI::App* command = port->add_subcommand(name, help);
        command->add_flag("--json", options->json, "print the result as JSON");
        command->add_flag("--force", options->force,
                          "send even when the port shows the Mac cannot hear it");
        if (dfu)
            command->add_flag("--no-verify", options->noVerify,
                              "do not wait for the Mac to show DFU mode on USB afterwards");
        command->add_option("HUB:PORT", *target, "hub serial and port number")->required();
        command->callback([&context, options, target, dfu] {
            context.action = [&context, options, target, dfu] {
                return messageCommand(context, *options, *target, dfu);
            };
        });
    };
    message("dfu", "Send the Mac on the port the DFU message and check it arrives in DFU mode",
            true);
    message("reboot", "Send the Mac on the port the reboot message", false);

    auto options = std::make_shared<HubOptions>();
    auto target = std::make_shared<std::string>();
    auto mode = std::make_shared<std::string>();
    CLI::App* powerMode = addJsonFlag(
        port->add_subcommand("power-mode", "Set the port's power mode: sdp, cdp or pd"), options);
    powerMode->add_option("HUB:PORT", *target, "hub serial and port number")->required();
    powerMode->add_option("MODE", *mode, "sdp (standard), cdp (charging) or pd (power delivery)")
        ->required()
        ->check(CLI::IsMember({"sdp", "cdp", "pd"}));
    powerMode->callback([&context, options, target, mode] {
        context.action = [&context, options, target, mode] {
            const QString action =
                QStringLiteral("power-mode %1").arg(QString::fromStdString(*mode));
            return portCommand(context, *options, *target, action,
                               [mode](AcronameHub& hub, std::int64_t p) {
                                   if (*mode == "sdp")
                                       return hub.setPowerModeStandardDownstreamForPort(p);
                                   if (*mode == "cdp")
                                       return hub.setPowerModeChargingDownstreamForPort(p);
                                   return hub.setPowerModePowerDeliveryForPort(p);
                               });
        };
    });
}

}  // namespace

void addHubCommands(CLI::App& app, CliContext& context) {
    CLI::App* hub = app.add_subcommand("hub", "List the station's hubs and command a whole hub");
    hub->require_subcommand(1);

    auto listOptions = std::make_shared<HubOptions>();
    addJsonFlag(hub->add_subcommand("list", "Discover, connect and probe every hub"), listOptions)
        ->callback([&context, listOptions] {
            context.action = [&context, listOptions] { return listHubs(context, *listOptions); };
        });

    const auto whole = [&](const char* name, const char* help, const QString& action,
                           std::function<void(AcronameHub&)> run) {
        auto options = std::make_shared<HubOptions>();
        auto serial = std::make_shared<std::string>();
        CLI::App* command = addJsonFlag(hub->add_subcommand(name, help), options);
        command->add_option("SERIAL", *serial, "the hub's serial as `hub list` prints it")
            ->required();
        command->callback([&context, options, serial, action, run] {
            context.action = [&context, options, serial, action, run] {
                return hubCommand(context, *options, *serial, action, run);
            };
        });
    };
    whole("led", "Toggle the hub's LED (to find it on the bench)", "led",
          [](AcronameHub& h) { h.toggleLED(); });
    whole("reboot", "Reboot the hub", "reboot", [](AcronameHub& h) { h.rebootHub(); });

    addPortCommands(app, context);
}

}  // namespace cli
