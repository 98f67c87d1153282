#include "support/PrivateBus.h"
#include "support/SubjectPolkit.h"

#include "support/Scripts.h"

#include "core/NotificationCenter.h"
#include "localport/HelperEndpoint.h"
#include "localport/ZMRPrivHelperToolController.h"
#include "support/ProcessRun.h"
#include "support/SimulatedStation.h"

#include <QDBusMessage>
#include <QDBusReply>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <variant>

#include <sys/stat.h>

namespace {

using testing_support::runLoopUntil;

class ConnectedEndpoint final : public HelperEndpoint {
  public:
    explicit ConnectedEndpoint(QDBusConnection bus) : bus_(std::move(bus)) {}
    QDBusConnection bus() const override { return bus_; }
    bool isToolInstalled() const override { return true; }
    bool blessHelperWithLabel(const QString&, localport::HelperError*) override { return false; }

  private:
    QDBusConnection bus_;
};

class Helper : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(bus.isRunning());
        ASSERT_TRUE(polkit.isRunning());
        client = bus.connect("client");
    }
    // tarvel-helper on the private bus, serving it as its system bus; stopped when dropped.
    std::shared_ptr<QProcess> startHelper(const QStringList& arguments) {
        std::shared_ptr<QProcess> helper(new QProcess, [](QProcess* process) {
            process->terminate();
            process->waitForFinished(5000);
            delete process;
        });
        helper->setProcessEnvironment(bus.environment());
        helper->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        helper->start(testing_support::executablePath("tarvel-helper"), arguments);
        EXPECT_TRUE(bus.waitForOwner(localport::helperLabel, true));
        return helper;
    }
    QDBusMessage call(const QString& method, const QDBusConnection& from) {
        return from.call(QDBusMessage::createMethodCall(localport::helperLabel,
                                                        localport::helperObjectPath,
                                                        localport::helperInterface, method));
    }
    QDBusMessage call(const QString& method) { return call(method, client); }
    std::unique_ptr<ZMRPrivHelperToolController> controller(int callTimeout = 25000,
                                                            int promptWait = 25000) {
        return ZMRPrivHelperToolController::initPrivate(
            {std::make_shared<ConnectedEndpoint>(client), &center, callTimeout, promptWait});
    }
    // How a DFU request through the client ended: its status or the kind of its failure.
    using Outcome = std::variant<std::monostate, std::int64_t, HelperFailure::Kind>;
    Outcome requestDFU(ZMRPrivHelperToolController& through) {
        Outcome outcome;
        through.enterDFUMode([&](std::int64_t status) { outcome = status; },
                             [&](const HelperFailure& failure) { outcome = failure.kind; });
        runLoopUntil([&] { return outcome.index() != 0; });
        return outcome;
    }
    QString localMacState() {
        const QJsonArray macs = station.macs();
        return macs.last().toObject().value("state").toString();
    }

    testing_support::PrivateBus bus;
    testing_support::SubjectPolkit polkit{bus};
    testing_support::SimulatedStation station;
    core::NotificationCenter center;
    QDBusConnection client{QString()};
};

TEST_F(Helper, EachCallIsAuthorisedForItsOwnCallerAndNoOneElse) {
    ASSERT_FALSE(station.start().isEmpty());
    const auto helper = startHelper({"--simulate=" + station.socket()});
    polkit.allow(client.baseService());
    const QDBusConnection stranger = bus.connect("stranger");

    const QDBusMessage refused = call(localport::enterDFUModeMethod, stranger);
    EXPECT_EQ(refused.errorName(), localport::notAuthorizedError);
    EXPECT_EQ(localMacState(), "booted");

    EXPECT_EQ(QDBusReply<qint64>(call(localport::getVersionMethod)).value(), 100);
    EXPECT_EQ(requestDFU(*controller()), Outcome(std::int64_t{0}));
    EXPECT_TRUE(runLoopUntil([&] { return localMacState() == "dfu"; }));
    // Asked about each caller in turn, never about the helper's own name.
    EXPECT_EQ(polkit.asked(),
              QStringList({stranger.baseService(), client.baseService(), client.baseService()}));
}

TEST_F(Helper, ARefusedAndADismissedPromptReachTheCallerAsSuch) {
    const auto helper = startHelper({});
    auto through = controller();
    EXPECT_EQ(requestDFU(*through), Outcome(HelperFailure::Kind::notAuthorized));

    polkit.setDismissed(true);
    EXPECT_EQ(requestDFU(*through), Outcome(HelperFailure::Kind::dismissed));
    EXPECT_EQ(call(localport::rebootMethod).errorName(), localport::dismissedError);
}

// The administrator types for longer than the client would wait for the helper alone; the
// client's wait includes the time the helper gives the prompt, so the answer still arrives.
TEST_F(Helper, AnAnswerSlowerThanTheHelperItselfStillReachesTheCaller) {
    const auto defaults = ZMRPrivHelperToolController::Collaborators{};
    EXPECT_GT(defaults.callTimeoutMilliseconds + defaults.promptWaitMilliseconds,
              localport::promptWaitMilliseconds);

    const auto helper = startHelper({});
    polkit.allow(client.baseService());
    polkit.setDelay(1500);
    EXPECT_EQ(requestDFU(*controller(300, 5000)), Outcome(localport::status::unsupportedHost));

    // A client that did not wait for the prompt gives up and says so.
    EXPECT_EQ(requestDFU(*controller(300, 0)), Outcome(HelperFailure::Kind::unreachable));
}

TEST_F(Helper, AnIdleHelperQuitsAndANewerOneTakesTheNameOver) {
    polkit.allow(client.baseService());
    const auto idle = startHelper({"--idle-seconds", "1"});
    ASSERT_EQ(QDBusReply<qint64>(call(localport::getVersionMethod)).value(), 100);
    EXPECT_TRUE(idle->waitForFinished(10000));
    EXPECT_EQ(idle->exitCode(), 0);
    EXPECT_TRUE(bus.waitForOwner(localport::helperLabel, false));

    const auto older = startHelper({"--session"});
    const auto newer = startHelper({"--session", "--replace"});
    EXPECT_TRUE(older->waitForFinished(10000));
    EXPECT_EQ(QDBusReply<qint64>(call(localport::getVersionMethod)).value(), 100);
}

mode_t modeOf(const QString& path) {
    struct stat status {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// Every folder from below root down to path.
QStringList foldersBelow(const QString& root, const QString& path) {
    QStringList folders;
    for (QString folder = QFileInfo(path).absolutePath(); folder != root;
         folder = QFileInfo(folder).absolutePath())
        folders << folder;
    return folders;
}

TEST(HelperInstall, PutsTheFilesInPlaceWithFixedModesWhateverTheUmaskAndSystemdAcceptsTheUnit) {
    QTemporaryDir root;
    QProcess install;
    install.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    install.start("/bin/sh", {"-c", "umask 077 && exec \"$0\" --install --root \"$1\"",
                              testing_support::executablePath("tarvel-helper"), root.path()});
    ASSERT_TRUE(install.waitForFinished(30000));
    ASSERT_EQ(install.exitCode(), 0);

    const QString tool = root.path() + localport::installedToolPath;
    EXPECT_EQ(modeOf(tool), 0755u);
    for (const QString& path :
         {localport::installedActivationFilePath, localport::installedBusPolicyPath,
          localport::installedPolkitActionPath, localport::installedSystemdUnitPath}) {
        const QString installed = root.path() + path;
        EXPECT_EQ(modeOf(installed), 0644u) << path.toStdString();
        for (const QString& folder : foldersBelow(root.path(), installed))
            EXPECT_EQ(modeOf(folder), 0755u) << folder.toStdString();
    }
    QFile activation(root.path() + localport::installedActivationFilePath);
    ASSERT_TRUE(activation.open(QIODevice::ReadOnly));
    EXPECT_TRUE(activation.readAll().contains("Exec=" + localport::installedToolPath.toUtf8()));
    QFile policy(root.path() + localport::installedPolkitActionPath);
    ASSERT_TRUE(policy.open(QIODevice::ReadOnly));
    EXPECT_TRUE(policy.readAll().contains(localport::polkitAction.toUtf8()));

    const QString analyze = QStandardPaths::findExecutable("systemd-analyze");
    if (analyze.isEmpty())
        GTEST_SKIP() << "systemd-analyze is not installed";
    // The unit names the tool where a real installation puts it; point it at the copy here.
    QFile unit(root.path() + localport::installedSystemdUnitPath);
    ASSERT_TRUE(unit.open(QIODevice::ReadOnly));
    QByteArray text = unit.readAll();
    text.replace(localport::installedToolPath.toUtf8(),
                 (root.path() + localport::installedToolPath).toUtf8());
    QFile checked(root.filePath("com.kestrune.tarvelhelper.service"));
    ASSERT_TRUE(checked.open(QIODevice::WriteOnly));
    checked.write(text);
    checked.close();
    QProcess verify;
    verify.start(analyze, {"verify", checked.fileName()});
    ASSERT_TRUE(verify.waitForFinished(30000));
    EXPECT_EQ(verify.exitCode(), 0);
    EXPECT_EQ(verify.readAllStandardError(), "");
}

TEST_F(Helper, AReinstallStopsTheRunningHelperSoTheNextCallStartsTheNewOne) {
    auto old = startHelper({});
    QTemporaryDir root;
    const auto run = testing_support::runExecutable(
        "tarvel-helper", {"--install", "--root", root.path(), "--replace"}, bus.environment());
    ASSERT_EQ(run.exitCode, 0) << run.standardError.toStdString();
    EXPECT_TRUE(old->waitForFinished(5000));
    EXPECT_TRUE(bus.waitForOwner(localport::helperLabel, false));

    // Without --replace, an installation elsewhere leaves the running helper alone.
    const auto running = startHelper({});
    ASSERT_EQ(testing_support::runExecutable("tarvel-helper", {"--install", "--root", root.path()},
                                             bus.environment())
                  .exitCode,
              0);
    EXPECT_EQ(running->state(), QProcess::Running);
}

}  // namespace
