#include "unattended/ManagerPortDriver.h"

#include "cli/PortVerdict.h"

#include "configurator/AC2Device.h"
#include "core/Log.h"

#include <QJsonArray>
#include <QPointer>

#include <mutex>

namespace unattended {
namespace {

constexpr int maxSequencesAtOnce = 64;

// What the command line's verdict says of the one port, as the bench's reason.
SequenceOutcome outcomeOf(const cli::PortVerdict& verdict) {
    SequenceOutcome outcome;
    outcome.ok = verdict.succeeded();
    const QJsonObject json = verdict.json();
    outcome.nothingConnected = !json.value("nothingConnected").toArray().isEmpty();
    if (outcome.ok)
        return outcome;
    const QJsonArray failed = json.value("failed").toArray();
    if (!failed.isEmpty()) {
        const QJsonObject first = failed.first().toObject();
        outcome.reason = QStringLiteral("%1, %2").arg(first.value("step").toString(),
                                                      first.value("reason").toString());
    } else if (!json.value("leftDisabled").toArray().isEmpty()) {
        outcome.reason = QStringLiteral("port left disabled");
    } else if (!json.value("partlyDone").toArray().isEmpty()) {
        outcome.reason = QStringLiteral("power-cycled, message not sent");
    } else {
        outcome.reason = verdict.summary();
    }
    return outcome;
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
    QPointer<ManagerPortDriver> alive(this);
    manager_->refreshAcronameDevices([alive, this](AC2Devices entries) {
        // Off the main thread: enabling ports is a round trip to each hub.
        for (const auto& entry : entries) {
            const auto port = entry->port();
            if (!port || !port->hub() || port->isEnabled())
                continue;
            ZMRLogLevel1(QStringLiteral("Port %1 reads disabled; enabling it to reach the Mac "
                                        "behind it")
                             .arg(port->name()));
            port->hub()->enablePort(port->portID());
        }
        if (!alive)
            return;
        QMetaObject::invokeMethod(
            alive.data(),
            [alive, this, entries] {
                if (alive)
                    refreshed(entries);
            },
            Qt::QueuedConnection);
    });
}

// A refresh reconnects every hub: the ports of the last one belong to links that are gone.
void ManagerPortDriver::refreshed(const AC2Devices& entries) {
    ports_.clear();
    names_.clear();
    for (const auto& entry : entries) {
        const auto port = entry->port();
        if (!port || !port->hub() || ports_.contains(port->name()))
            continue;
        ports_.insert(port->name(), port);
        names_ << port->name();
    }
    emit ready();
}

void ManagerPortDriver::dfu(const QString& port) { run(port, Sequence::Dfu); }
void ManagerPortDriver::recovery(const QString& port) { run(port, Sequence::Recovery); }

void ManagerPortDriver::run(const QString& name, Sequence sequence) {
    const std::shared_ptr<AcronamePort> port = ports_.value(name);
    QPointer<ManagerPortDriver> alive(this);
    auto report = [alive, this, name](const SequenceOutcome& outcome) {
        if (!alive)
            return;
        QMetaObject::invokeMethod(
            alive.data(),
            [alive, this, name, outcome] {
                if (alive)
                    emit sequenceEnded(name, outcome);
            },
            Qt::QueuedConnection);
    };
    if (!port) {
        report({false, false, QStringLiteral("no such port")});
        return;
    }
    const auto message = sequence == Sequence::Dfu ? PortProgress::Step::DfuMessage
                                                   : PortProgress::Step::Reboot;
    pool_.start([this, port, name, message, sequence, report] {
        struct Shared {
            Shared(const QString& port, PortProgress::Step step) : verdict({port}, step) {}
            std::mutex mutex;
            cli::PortVerdict verdict;
        };
        auto shared = std::make_shared<Shared>(name, message);
        // A manager of its own per run: its one background task is the sequence, which this
        // worker runs to the end before the verdict is read.
        auto environment = environment_;
        std::vector<dispatch::Task> tasks;
        environment.runInBackground = [&tasks](dispatch::Task task) {
            tasks.push_back(std::move(task));
        };
        auto manager = std::make_shared<ZMRAcronameManager>(environment);
        manager->setHubs(manager_->hubs());
        auto observer = [shared](const PortProgress& event) {
            std::lock_guard lock(shared->mutex);
            shared->verdict.record(event);
        };
        auto completion = [shared](bool value) {
            std::lock_guard lock(shared->mutex);
            shared->verdict.recordCompletion(value);
        };
        // The snapshot of the refresh says whether a cable was there when the bench started; a
        // sequence runs only once USB has shown a Mac on the port, which says more.
        auto current = std::make_shared<AcronamePort>(*port);
        current->setIsConnected(true);
        const AcronamePorts ports{current};
        if (sequence == Sequence::Dfu)
            manager->dfuModeForAcronamePorts(ports, [](const QString&) {}, completion, observer);
        else
            manager->recoveryForAcronamePorts(ports, [](const QString&) {}, completion, observer);
        for (dispatch::Task& task : tasks) task();
        // A port is never left without power unsaid.
        if (port->hub() && !port->hub()->portEnabled(port->portID()).value_or(true) &&
            !port->hub()->enablePort(port->portID()))
            shared->verdict.recordLeftDisabled(name);
        std::lock_guard lock(shared->mutex);
        report(outcomeOf(shared->verdict));
    });
}

}  // namespace unattended
