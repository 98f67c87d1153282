#include "support/CollaboratorBuilder.h"
#include "support/Scripts.h"

#include "configurator/RestoreCommand.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/BundleInfo.h"
#include "core/Dispatch.h"
#include "core/SettingsKeys.h"
#include "support/ProcessRun.h"
#include "support/RecordingAlerts.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"

#include <QFile>

#include <gtest/gtest.h>

namespace {

using configurator::parseRestoreProgress;
using configurator::restoreStatusText;
using testing_support::runLoopUntil;

const QString preparing = "Preparing image for restore...";

TEST(RestoreProgress, OnlyTheFirstNonEmptyLineOfAChunkCountsAndOneTenthMeansRestoring) {
    const auto three = parseRestoreProgress(
        "\n{\"Step\":\"A\",\"Progress\":0.25}\n{\"Step\":\"B\"}\n{\"Step\":\"C\"}\n");
    ASSERT_TRUE(three);
    EXPECT_EQ(three->step, "A");
    EXPECT_FLOAT_EQ(three->progress, 0.25f);

    // Lines from a pseudo-terminal end in "\r\n".
    const auto noProgress = parseRestoreProgress("{\"Step\":\"Verifying\"}\r\n");
    ASSERT_TRUE(noProgress);
    EXPECT_EQ(noProgress->progress, -1.0f);
    EXPECT_EQ(restoreStatusText(noProgress->progress), preparing);

    EXPECT_FALSE(parseRestoreProgress("{\"Progress\":0.5}\n{\"Step\":\"later\"}\n"));
    EXPECT_FALSE(parseRestoreProgress("Restoring 50%\n"));
    EXPECT_FALSE(parseRestoreProgress("\n\n"));

    EXPECT_EQ(restoreStatusText(0.09f), preparing);
    EXPECT_EQ(
        restoreStatusText(parseRestoreProgress("{\"Step\":\"s\",\"Progress\":0.1}")->progress),
        "Restoring");
}

TEST(RestoreProgress, LinesThatCannotBeReadAreNamedButErrorsAndBlankLinesAreNot) {
    using configurator::ProgressLineProblem;
    using configurator::unreadableProgressLines;
    const auto lines = unreadableProgressLines(
        "{\"Step\":\"A\",\"Progress\":0.25}\r\n\r\n  \n\x1b[2K\rrestore: 50%\r\n"
        "{\"Progress\":0.5}\n{\"Type\":\"Error\",\"Message\":\"no device\"}\n[1,2]\n");
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(lines[0].problem, ProgressLineProblem::NotJson);
    EXPECT_EQ(lines[0].line, "\x1b[2K\rrestore: 50%");
    EXPECT_EQ(lines[1].problem, ProgressLineProblem::NoStep);
    EXPECT_EQ(lines[2].problem, ProgressLineProblem::NotJson) << "JSON, but not an object";

    const auto notText = unreadableProgressLines(QString());
    ASSERT_EQ(notText.size(), 1);
    EXPECT_EQ(notText[0].problem, ProgressLineProblem::NotText);
    EXPECT_TRUE(unreadableProgressLines("\r\n").isEmpty());

    // The terminal must see the control characters, not act on them; long lines are cut.
    EXPECT_EQ(configurator::unreadableProgressWarning(0x16594A1492801E, lines[0]),
              "restore of 0x16594A1492801E: a line of the tool's progress is not JSON: "
              "\\x1b[2K\\x0drestore: 50%");
    const QString warning = configurator::unreadableProgressWarning(
        0xAB, {ProgressLineProblem::NoStep, "{\"x\":\"" + QString(300, 'y') + "\"}"});
    EXPECT_LT(warning.size(), 180);
    EXPECT_TRUE(warning.endsWith(QStringLiteral("…")));
}

TEST(RestoreProgress, FailureReasonsComeFromErrorDocumentsAndFromEveryLineOfStandardError) {
    const QString chunk =
        "{\"Step\":\"A\",\"Progress\":0.5}\r\n"
        "  {\"Type\":\"Error\",\"FailureReason\":\"locked\",\"Message\":\"ignored\"}\r\r\n"
        "{\"Type\":\"Error\",\"Message\":\"no device\"}\n"
        "plain text\n \t \n";
    EXPECT_EQ(configurator::errorLinesOf(chunk, false), QStringList({"locked", "no device"}));
    EXPECT_EQ(
        configurator::errorLinesOf(chunk, true),
        QStringList({"{\"Step\":\"A\",\"Progress\":0.5}", "locked", "no device", "plain text"}))
        << "on standard error every non-blank line is a reason, trimmed";
    EXPECT_TRUE(configurator::errorLinesOf(QString(), true).isEmpty());
}

TEST(RestoreCommand, SameToolArgumentsBehindEitherPseudoTerminal) {
    const quint64 large = (1ull << 63) + 5;
    const QStringList mac = configurator::deviceRestoreCommand(configurator::RestorePlatform::MacOS,
                                                               configurator::appleToolPath,
                                                               "/ignored", large, std::nullopt);
    EXPECT_EQ(mac,
              QStringList({"/usr/bin/script", "-q", "/dev/null",
                           "/Applications/Apple Configurator.app/Contents/MacOS/cfgutil", "-e",
                           "-9223372036854775803", "--progress", "--format", "json", "restore"}));
    const QStringList linux =
        configurator::deviceRestoreCommand(configurator::RestorePlatform::Linux, "/opt/cfgutil",
                                           "/bin/tarvel-pty", 0x1234, QString("/f.ipsw"));
    EXPECT_EQ(linux,
              QStringList({"/bin/tarvel-pty", "-q", "/dev/null", "/opt/cfgutil", "-e", "4660",
                           "--progress", "--format", "json", "restore", "-I", "/f.ipsw"}));
    EXPECT_EQ(configurator::singleRestoreCommand("/t", std::nullopt),
              QStringList({"/t", "--progress", "restore"}));
}

struct Completion {
    std::shared_ptr<AC2Device> device;
    bool failed;
    QString message;
};

class Restore : public ::testing::Test {
  protected:
    // The real tarvel-pty, or a stand-in that just runs the command.
    std::unique_ptr<ZMRConfigurator2Utility> utility(const QString& tool, bool realPty = false) {
        auto c = testing_support::CollaboratorBuilder(settings.settings(), clock, &alerts)
                     .configurator(scripts, tool);
        if (realPty)
            c.ptyPath = testing_support::executablePath("tarvel-pty");
        c.openURL = [this](const QUrl& url) { opened << url; };
        return std::make_unique<ZMRConfigurator2Utility>(c);
    }

    void restore(ZMRConfigurator2Utility& u, const std::shared_ptr<AC2Device>& device,
                 std::function<void()> onOutput = {}) {
        u.restoreWithAC2ForDevice(
            device,
            [this, onOutput](const auto&, const QVariant& step, float progress) {
                steps << QStringLiteral("%1@%2").arg(step.toString()).arg(progress);
                if (onOutput)
                    onOutput();
            },
            [this](const auto&, const QString& chunk) {
                errors << chunk;
                QFile(scripts.path("stderr-seen")).open(QIODevice::WriteOnly);
            },
            [this](const auto& d, bool failed, const QString& message) {
                completions.push_back({d, failed, message});
            });
    }

    // Everything queued on the main thread so far has run.
    void settle() {
        bool done = false;
        dispatch::main([&] { done = true; });
        ASSERT_TRUE(runLoopUntil([&] { return done; }));
    }

    static std::shared_ptr<AC2Device> device(quint64 ecid) {
        auto d = std::make_shared<AC2Device>();
        d->setEcid(ecid);
        return d;
    }

    testing_support::Scripts scripts;
    testing_support::TestSettings settings;
    testing_support::RecordingAlerts alerts;
    testing_support::VirtualClock clock;
    QStringList steps;
    QStringList errors;
    std::vector<Completion> completions;
    QList<QUrl> opened;
};

TEST_F(Restore, ReportsProgressAndSucceedsOnExitZero) {
    // The tool's error text is seen before its output ends, as with a real restore.
    const QString tool = scripts.write(
        "cfgutil",
        "echo warn >&2; while [ ! -e '" + scripts.path("stderr-seen") +
            "' ]; do :; done\n"
            "printf '{\"Step\":\"A\",\"Progress\":0.5}\\n{\"Step\":\"B\"}\\n{\"Step\":\"C\"}\\n'");
    auto u = utility(tool);
    auto mac = device((1ull << 63) + 5);
    restore(*u, mac);
    ASSERT_TRUE(runLoopUntil([&] { return !completions.empty(); }));
    EXPECT_EQ(steps, QStringList{"A@0.5"});
    EXPECT_EQ(errors, QStringList{"warn\n"});
    EXPECT_EQ(completions[0].device, mac);
    EXPECT_FALSE(completions[0].failed);
    EXPECT_EQ(completions[0].message, "");
    EXPECT_EQ(mac->restoreStatus(), "Restoring");
    EXPECT_EQ(u->task(mac->ecid()), nullptr);
}

// Through the real tarvel-pty: the terminal in between must not turn a termination into success.
TEST_F(Restore, ASecondRestoreOfTheSameDeviceStopsTheFirst) {
    const QString marker = scripts.path("started-once");
    auto u = utility(
        scripts.write("cfgutil", "if [ -e '" + marker +
                                     "' ]; then echo '{\"Step\":\"two\"}'; exit 0; fi\n"
                                     "touch '" +
                                     marker + "'; echo '{\"Step\":\"one\"}'; exec sleep 30"),
        true);
    auto mac = device(0x16594A1492801E);
    bool again = false;
    restore(*u, mac, [&] {
        if (!std::exchange(again, true))
            restore(*u, mac);
    });
    ASSERT_TRUE(runLoopUntil([&] { return completions.size() == 2; }));
    EXPECT_EQ(steps, QStringList({"one@-1", "two@-1"}));
    EXPECT_TRUE(completions[0].failed);
    EXPECT_EQ(completions[0].message,
              "There was an error restoring the device with status 15. Please check log for error "
              "message. You can also try restoring with Apple Configurator to help identify "
              "issues.");
    EXPECT_FALSE(completions[1].failed);
    EXPECT_FALSE(mac->didCancel());
}

// Cancelling a running restore is a fault cell of the command line's (Ctrl-C on one Mac).
TEST_F(Restore, CancelWithNoRestoreRunningIsNoOp) {
    auto u = utility(scripts.path("absent"));
    auto idle = device(0x77);
    u->cancelRestore(idle);
    u->cancelRestore(nullptr);
    settle();
    EXPECT_FALSE(idle->didCancel());
    EXPECT_TRUE(completions.empty());
}

TEST_F(Restore, UnreadableOutputIsReportedOncePerRestoreAndKind) {
    auto u = utility(
        scripts.write("cfgutil",
                      "for i in 1 2 3; do echo \"restore: $i%\"; echo '{\"Progress\":0.1}'; done\n"
                      "echo '{\"Step\":\"Restoring\",\"Progress\":0.5}'"));
    QStringList warnings;
    u->setUnreadableProgressObserver([&](const auto& device, const QString& warning) {
        warnings << QStringLiteral("%1 %2").arg(device->ecid(), 0, 16).arg(warning);
    });
    restore(*u, device(0xA1));
    ASSERT_TRUE(runLoopUntil([&] { return completions.size() == 1; }));
    EXPECT_EQ(warnings,
              QStringList({"a1 restore of 0xA1: a line of the tool's progress is not JSON: "
                           "restore: 1%",
                           "a1 restore of 0xA1: a line of the tool's progress has no \"Step\": "
                           "{\"Progress\":0.1}"}));

    // The next restore starts afresh.
    restore(*u, device(0xB2));
    ASSERT_TRUE(runLoopUntil([&] { return completions.size() == 2; }));
    EXPECT_EQ(warnings.size(), 4);
    EXPECT_TRUE(warnings[2].startsWith("b2 restore of 0xB2: "));
}

TEST_F(Restore, InvalidDevicesAndAMissingFirmwareFileStopBeforeAnyChild) {
    auto u = utility(scripts.write("cfgutil", "printf '%s\\n' \"$@\" > \"$0.args\""));
    restore(*u, nullptr);
    restore(*u, device(0));
    settings.settings().setValue(core::keys::useCustomIPSW, true);
    settings.settings().setValue(core::keys::customIPSWPath, "/nowhere/m1.ipsw");
    restore(*u, device(0x99));
    settle();
    ASSERT_EQ(completions.size(), 2u);
    EXPECT_EQ(completions[0].device, nullptr);
    EXPECT_TRUE(completions[0].failed);
    EXPECT_EQ(completions[1].message, "invalid device");
    ASSERT_EQ(alerts.shown().size(), 1u);
    EXPECT_EQ(alerts.shown()[0].message,
              "The specified path for the IPSW does not exist at /nowhere/m1.ipsw. Please check "
              "the path and try again.");
    EXPECT_EQ(u->task(0x99), nullptr);

    const QString firmware = scripts.write("m1.ipsw", "");
    settings.settings().setValue(core::keys::customIPSWPath, firmware);
    restore(*u, device(0x99));
    ASSERT_TRUE(runLoopUntil([&] { return completions.size() == 3; }));
    QFile args(scripts.path("cfgutil.args"));
    ASSERT_TRUE(args.open(QIODevice::ReadOnly));
    EXPECT_TRUE(QString::fromUtf8(args.readAll()).endsWith("restore\n-I\n" + firmware + "\n"));
}

TEST_F(Restore, SingleRestoreFailureOffersTheTroubleshootingGuide) {
    auto u = utility(scripts.write("cfgutil", "exit 2"));
    alerts.answer = 1;
    u->restoreWithAC2();
    ASSERT_TRUE(runLoopUntil([&] { return !alerts.shown().empty(); }));
    EXPECT_EQ(alerts.shown()[0].buttons, QStringList({"OK", "More Info"}));
    ASSERT_EQ(opened.size(), 1);
    EXPECT_EQ(opened[0], QUrl(core::BundleInfo::shared().troubleshootingGuide()));
    EXPECT_TRUE(opened[0].scheme().startsWith("http")) << opened[0].toString().toStdString();
}

// A listing of megabytes is still the bench, whole; one past the bound is refused, not empty.
TEST_F(Restore, ListingsComeOnTheMainLoopWholeUpToTheBoundOrAtOnceWhenTheyCannotRun) {
    int immediate = -1;
    utility(scripts.path("absent"))->attachedDevicesWithCallback([&](const auto& d) {
        immediate = int(d.size());
    });
    EXPECT_EQ(immediate, 0) << "a missing tool answers at once";

    const auto listingWithPadding = [&](const char* name, const char* megabytes) {
        const QString fixture = TARVEL_CONFIGURATOR_FIXTURES "/list-two-macs.plist";
        return scripts.write(name,
                             QStringLiteral("sed -n '1,/<string>Bench Mini 1/p' '%1' | "
                                            "sed '$d'; printf '<string>'; head -c %2 "
                                            "/dev/zero | tr '\\0' m; printf '</string>\\n'; "
                                            "sed -n '/<string>Bench Mini 1/,$p' '%1' | sed 1d")
                                 .arg(fixture, QLatin1String(megabytes)));
    };
    const auto list = [&](const QString& tool) {
        auto u = utility(tool);
        std::optional<configurator::DeviceList> listed;
        u->attachedDevicesWithCallback([&](const auto& d) { listed = d; });
        EXPECT_FALSE(listed);
        EXPECT_TRUE(runLoopUntil([&] { return listed.has_value(); }));
        return std::pair{listed.value_or(configurator::DeviceList{}), u->unreadableListingOutput()};
    };

    const auto [large, largeProblem] = list(listingWithPadding("large", "3000000"));
    ASSERT_EQ(large.size(), 2);
    EXPECT_EQ(large.at(0)->name().size(), 3000000);
    EXPECT_EQ(large.at(1)->name(), "Air 2");
    EXPECT_FALSE(largeProblem);

    const auto [huge, hugeProblem] = list(listingWithPadding("huge", "70000000"));
    EXPECT_TRUE(huge.isEmpty());
    ASSERT_TRUE(hugeProblem);
    EXPECT_TRUE(hugeProblem->endsWith("(64 MiB or more: too large to read)"));
}

}  // namespace
