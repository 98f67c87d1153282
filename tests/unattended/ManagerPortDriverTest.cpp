#include "StationFixture.h"

#include "unattended/ManagerPortDriver.h"

#include <QSignalSpy>

#include <memory>
#include <tuple>

namespace {

using unattended::ManagerPortDriver;
using unattended::SequenceOutcome;

// The bench's hubs: one fake hub, 1000, with a Mac on each of its five ports. The driver's
// sequences run on threads of their own, and their ends come back on the main loop.
class BenchDriver : public testing_support::StationFixture {
  protected:
    void refresh() {
        QSignalSpy ready(driver.get(), &unattended::PortDriver::ready);
        driver->refresh();
        ASSERT_TRUE(ready.wait(5000));
    }
    SequenceOutcome dfu(const QString& port) {
        QSignalSpy ended(driver.get(), &unattended::PortDriver::sequenceEnded);
        driver->dfu(port);
        EXPECT_TRUE(ended.wait(5000));
        return ended.isEmpty() ? SequenceOutcome{} : ended.first().at(1).value<SequenceOutcome>();
    }
    std::uint8_t enabled(int port) { return backend->hub(0x1000).ports[port].enabled; }

    std::unique_ptr<ManagerPortDriver> driver = std::make_unique<ManagerPortDriver>(environment());
};

// A port that reads disabled hides its Mac from USB, and so from the bench: the refresh gives it
// power back before the bench looks.
TEST_F(BenchDriver, TheRefreshEnablesPortsThatReadDisabled) {
    backend->hub(0x1000).ports[2].enabled = 0;
    refresh();
    EXPECT_EQ(driver->ports(), QStringList({"1000:1", "1000:2", "1000:3", "1000:4", "1000:5"}));
    EXPECT_EQ(enabled(2), 1);
}

// The bench reads why a port's sequence failed from the port's verdict: the step and the hub's
// answer. A failure on one port leaves the next port's sequence alone.
TEST_F(BenchDriver, ASequenceEndsWithTheFailedStepAndTheHubsAnswer) {
    refresh();
    backend->script("pd[3].setUEIBytes", {stem::aErrIO});
    const SequenceOutcome failed = dfu("1000:3");
    EXPECT_EQ(std::tuple(failed.ok, failed.nothingConnected, failed.reason),
              std::tuple(false, false, "DFU message, result 6"));

    const SequenceOutcome sent = dfu("1000:4");
    EXPECT_EQ(std::tuple(sent.ok, sent.reason), std::tuple(true, ""));
}

// A port whose enable failed in the middle of its power cycle is read again after the sequence
// and enabled once more: its Mac is never left without power by the bench.
TEST_F(BenchDriver, APortLeftDisabledByItsSequenceGetsPowerBack) {
    refresh();
    backend->script("port[2].setEnabled", {stem::aErrNone, stem::aErrIO});
    const SequenceOutcome outcome = dfu("1000:2");
    EXPECT_EQ(std::tuple(outcome.ok, outcome.reason), std::tuple(false, "enable, result 6"));
    EXPECT_EQ(enabled(2), 1);
    EXPECT_EQ(backend->count("port[2].setEnabled"), 3);
}

// Every step went out, but the port reads disabled afterwards and cannot be enabled: its Mac has
// no power, which the bench must say.
TEST_F(BenchDriver, APortThatStaysDisabledAfterItsSequenceFails) {
    refresh();
    backend->observer = [this](const std::string& call) {
        if (call == "pd[1].setUEIBytes")
            backend->hub(0x1000).ports[1].enabled = 0;
    };
    backend->script("port[1].setEnabled", {stem::aErrNone, stem::aErrNone, stem::aErrIO});
    const SequenceOutcome outcome = dfu("1000:1");
    EXPECT_EQ(std::tuple(outcome.ok, outcome.reason), std::tuple(false, "port left disabled"));
}

}  // namespace
