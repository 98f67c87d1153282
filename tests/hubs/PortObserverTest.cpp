#include "StationFixture.h"

#include <QRegularExpression>

namespace {

using testing_support::StationFixture;

// The observer's events in the same timeline as the hub calls and pauses, so their order against
// the work they describe is checked too.
class PortObserverEvents : public StationFixture {
  protected:
    PortObserver observer() {
        return [this](const PortProgress& event) { timeline.add(describe(event)); };
    }

    static QString describe(const PortProgress& event) {
        const QString where = event.port ? QStringLiteral("%1/%2 %3")
                                               .arg(event.position)
                                               .arg(event.count)
                                               .arg(event.port->name())
                                         : QString();
        switch (event.kind) {
            case PortProgress::Kind::PortStep:
                return QStringLiteral("> %1 %2%3")
                    .arg(where, portStepName(event.step),
                         event.step == PortProgress::Step::Settling
                             ? QStringLiteral(" %1s").arg(event.seconds)
                             : QString());
            case PortProgress::Kind::PassPause:
                return QStringLiteral("> pass pause %1s").arg(event.seconds);
            case PortProgress::Kind::PortResult:
                return event.succeeded ? QStringLiteral("> %1 done").arg(where)
                                       : QStringLiteral("> %1 failed at %2, result %3")
                                             .arg(where, portStepName(event.step))
                                             .arg(event.result);
            case PortProgress::Kind::PortSkipped:
                return QStringLiteral("> %1 skipped").arg(where);
        }
        return {};
    }

    QStringList observed() const { return timeline.events().filter(QRegularExpression("^> ")); }
};

TEST_F(PortObserverEvents, DfuTellsEachStepBeforeItsHubCallAndEachPassPauseWithItsLength) {
    backend->hub(0x1000).ports[2].orientation = 0;  // nothing on port 2
    const AcronamePorts ports = refreshedPorts();
    manager->dfuModeForAcronamePorts({ports[0], ports[1]}, update(), completion(), observer());

    QStringList expected{"update Putting devices into DFU mode (setting power role)",
                         "> 1/2 1000:1 disable",
                         "port[1].setEnabled",
                         "> 1/2 1000:1 power mode",
                         "port[1].setPowerMode",
                         "sleep 1",
                         "> 1/2 1000:1 enable",
                         "port[1].setEnabled",
                         "> 1/2 1000:1 settling 3s",
                         "sleep 3",
                         "> 2/2 1000:2 skipped",
                         "> pass pause 3s",
                         "sleep 3",
                         "update Putting devices into DFU mode (sending DFU command)",
                         "update Putting ports into DFU Mode...",
                         "note LastRequestedStayInFrontNotification",
                         "> 1/2 1000:1 DFU message",
                         "pd[1].setUEIBytes",
                         "> 1/2 1000:1 done",
                         "> 1/2 1000:1 settling 1s",
                         "sleep 1",
                         "> pass pause 8s",
                         "sleep 8",
                         "update Finishing Up...",
                         "done true"};
    EXPECT_EQ(timeline.events(), expected);
}

TEST_F(PortObserverEvents, APassThatCannotDisableAPortNamesItAndTheStep) {
    const AcronamePorts ports = refreshedPorts();
    backend->script("port[2].setEnabled", {stem::aErrTimeout});
    manager->restartForAcronamePorts({ports[0], ports[1], ports[2]}, update(), completion(),
                                     observer());
    const QStringList results = observed().filter(QRegularExpression("done|failed"));
    EXPECT_EQ(results, QStringList({"> 2/3 1000:2 failed at disable, result 18"}))
        << "a pass before the messages reports no success of its own";
}

TEST_F(PortObserverEvents, RestartAndRecoveryReportRebootsPerPort) {
    settings.settings().setValue(core::keys::acronameRecoveryRebootTimes, 2);
    for (int p = 1; p <= 5; ++p) backend->hub(0x1000).ports[p].powerMode = 4;  // no pass
    const AcronamePorts ports = refreshedPorts();
    backend->script("pd[2].setUEIBytes", {stem::aErrIO});
    manager->recoveryForAcronamePorts({ports[0], ports[1]}, update(), completion(), observer());
    EXPECT_EQ(observed(),
              QStringList({"> pass pause 3s", "> 1/2 1000:1 reboot", "> 2/2 1000:2 reboot",
                           "> 2/2 1000:2 failed at reboot, result 6", "> 1/2 1000:1 reboot",
                           "> 1/2 1000:1 done", "> 2/2 1000:2 reboot", "> 2/2 1000:2 done",
                           "> pass pause 5s"}))
        << "a recovery goes on past a failed reboot; the port's failure stays on record";

    timeline.clear();
    backend->script("pd[1].setUEIBytes", {stem::aErrIO});
    manager->restartForAcronamePorts({ports[0], ports[1]}, update(), completion(), observer());
    EXPECT_EQ(observed(),
              QStringList({"> 1/2 1000:1 reboot", "> 1/2 1000:1 failed at reboot, result 6",
                           "> pass pause 5s"}));
}

TEST_F(PortObserverEvents, APowerModePassAloneReportsEveryPortItCycled) {
    backend->hub(0x1000).ports[3].orientation = 0;
    const AcronamePorts ports = refreshedPorts();
    backend->script("port[4].setEnabled", {stem::aErrNone, stem::aErrIO});
    manager->setPowerMode(2, {ports[0], ports[2], ports[3], ports[4]}, completion(), observer());
    EXPECT_EQ(observed().filter(QRegularExpression("done|failed|skipped")),
              QStringList({"> 1/4 1000:1 done", "> 2/4 1000:3 skipped",
                           "> 3/4 1000:4 failed at enable, result 6"}));
    EXPECT_EQ(timeline.events().last(), "done false");
}

}  // namespace
