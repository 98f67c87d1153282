#include "unattended/ManagerPortDriver.h"

#include "station/PortVerdict.h"

#include "configurator/AC2Device.h"

#include "core/Dispatch.h"

#include <QSet>

namespace unattended {
namespace {

constexpr int maxSequencesAtOnce = 64;

// What the verdict says of the one port, as the bench's reason.
SequenceOutcome outcomeOf(const station::PortVerdict& verdict) {
    SequenceOutcome outcome;
    outcome.ok = verdict.succeeded();
    outcome.nothingConnected = !verdict.nothingConnectedPorts().isEmpty();
    if (outcome.ok)
        return outcome;
    if (const auto failures = verdict.failures(); !failures.isEmpty()) {
        outcome.reason = QStringLiteral("%1, %2").arg(portStepName(failures.first().step),
                                                      failures.first().reason);
    } else if (!verdict.leftDisabledPorts().isEmpty()) {
        outcome.reason = QStringLiteral("port left disabled");
    } else if (!verdict.partlyDonePorts().isEmpty()) {
        outcome.reason = QStringLiteral("power-cycled, message not sent");
    } else {
        outcome.reason = verdict.summary();
    }
    return outcome;
}

// Each usable port once, in the listing's order.
AcronamePorts usablePorts(const AC2Devices& entries) {
    AcronamePorts ports;
    QSet<QString> seen;
    for (const auto& entry : entries) {
        const auto port = entry->port();
        if (!port || !port->hub() || seen.contains(port->name()))
            continue;
        seen.insert(port->name());
        ports.push_back(port);
    }
    return ports;
}

}  // namespace

ManagerPortDriver::ManagerPortDriver(ZMRAcronameManagerEnvironment environment, QObject* parent)
    : PortDriver(parent), environment_(std::move(environment)) {
    qRegisterMetaType<unattended::SequenceOutcome>();
    pool_.setMaxThreadCount(maxSequencesAtOnce);
    environment_.parallelHubs = false;
    environment_.refreshAfterFailure = false;
    std::weak_ptr<std::atomic<bool>> stop = stopRequested_;
    environment_.stopRequested = [stop] {
        const auto flag = stop.lock();
        return flag && flag->load();
    };
    manager_ = std::make_shared<ZMRAcronameManager>(environment_);
}

ManagerPortDriver::~ManagerPortDriver() {
    stopRequested_->store(true);
    pool_.waitForDone();
    manager_->disconnectAllHubs();
}

void ManagerPortDriver::refresh() {
    std::weak_ptr<int> alive = lifetime_;
    // The listing may answer on any thread; the driver's state is the main thread's.
    manager_->refreshAcronameDevices([alive, this](AC2Devices entries) {
        dispatch::main([alive, this, entries] {
            if (alive.expired())
                return;
            // Enabling ports is a round trip to each hub and a pause after it: never on the main
            // loop. The destructor waits for the pool, so the driver outlives this task.
            dispatch::on(pool_, [alive, this, ports = usablePorts(entries)] {
                station::PortRun::enableDisabledPorts(ports, *environment_.clock);
                dispatch::main([alive, this, ports] {
                    if (!alive.expired())
                        refreshed(ports);
                });
            });
        });
    });
}

// A refresh reconnects every hub: the ports of the last one belong to links that are gone.
void ManagerPortDriver::refreshed(const AcronamePorts& ports) {
    ports_.clear();
    names_.clear();
    for (const auto& port : ports) {
        ports_.insert(port->name(), port);
        names_ << port->name();
    }
    emit ready();
}

void ManagerPortDriver::dfu(const QString& port) {
    run(port, station::PortRun::Sequence::Dfu);
}

void ManagerPortDriver::recovery(const QString& port) {
    run(port, station::PortRun::Sequence::Recovery);
}

void ManagerPortDriver::run(const QString& name, station::PortRun::Sequence sequence) {
    const std::shared_ptr<AcronamePort> port = ports_.value(name);
    std::weak_ptr<int> alive = lifetime_;
    auto report = [alive, this, name](const SequenceOutcome& outcome) {
        dispatch::main([alive, this, name, outcome] {
            if (!alive.expired())
                emit sequenceEnded(name, outcome);
        });
    };
    if (!port) {
        report({false, false, QStringLiteral("no such port")});
        return;
    }
    dispatch::on(pool_, [this, port, sequence, report] {
        // A manager of its own per run, whose background work is this worker's: the sequence
        // has ended when it has started.
        auto environment = environment_;
        environment.runInBackground = [](dispatch::Task task) { task(); };
        auto manager = std::make_shared<ZMRAcronameManager>(environment);
        manager->setHubs(manager_->hubs());
        // The snapshot of the refresh says whether a cable was there when the bench started; a
        // sequence runs only once USB has shown a Mac on the port, which says more.
        auto current = std::make_shared<AcronamePort>(*port);
        current->setIsConnected(true);
        station::PortRun run(sequence, {current});
        run.start(*manager);
        report(outcomeOf(run.finish(manager->hubs())));
    });
}

}  // namespace unattended
