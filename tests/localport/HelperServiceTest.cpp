#include "support/PrivateBus.h"

#include "configurator/Scripts.h"

#include "core/NotificationCenter.h"
#include "localport/HelperEndpoint.h"
#include "localport/ZMRPrivHelperToolController.h"
#include "support/ProcessRun.h"
#include "support/SimulatedStation.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using testing_support::runLoopUntil;

// tarvel-helper on the private bus, serving it as its system bus.
class HelperProcess {
  public:
    HelperProcess(const testing_support::PrivateBus& bus, const QStringList& arguments) {
        process_.setProcessEnvironment(bus.environment());
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(testing_support::executablePath("tarvel-helper"), arguments);
    }
    ~HelperProcess() {
        process_.terminate();
        process_.waitForFinished(5000);
    }
    QProcess& process() { return process_; }

  private:
    QProcess process_;
};

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
    std::unique_ptr<HelperProcess> startHelper(const QStringList& arguments) {
        auto helper = std::make_unique<HelperProcess>(bus, arguments);
        EXPECT_TRUE(bus.waitForOwner(localport::helperLabel, true));
        return helper;
    }
    QDBusMessage call(const QString& method) {
        return client.call(QDBusMessage::createMethodCall(localport::helperLabel,
                                                          localport::helperObjectPath,
                                                          localport::helperInterface, method));
    }
    QString localMacState() {
        const QJsonArray macs = station.macs();
        return macs.last().toObject().value("state").toString();
    }

    testing_support::PrivateBus bus;
    testing_support::FakePolkit polkit{bus};
    testing_support::SimulatedStation station;
    QDBusConnection client{QString()};
};

TEST_F(Helper, EveryCallIsAuthorisedAndAnUnauthorisedCallerChangesNothing) {
    ASSERT_FALSE(station.start().isEmpty());
    const auto helper = startHelper({"--simulate=" + station.socket()});

    const QDBusMessage refused = call(localport::enterDFUModeMethod);
    EXPECT_EQ(refused.type(), QDBusMessage::ErrorMessage);
    EXPECT_EQ(refused.errorName(), localport::notAuthorizedError);
    EXPECT_EQ(call(localport::getVersionMethod).errorName(), localport::notAuthorizedError);
    EXPECT_EQ(localMacState(), "booted");

    // Through the client, a refusal is no reply at all.
    core::NotificationCenter center;
    auto controller = ZMRPrivHelperToolController::initPrivate(
        {std::make_shared<ConnectedEndpoint>(client), &center, 25000});
    bool replied = false;
    controller->enterDFUMode([&](std::int64_t) { replied = true; });
    EXPECT_FALSE(runLoopUntil([&] { return replied; }, 500));

    polkit.allow({localport::polkitAction});
    EXPECT_EQ(QDBusReply<qint64>(call(localport::getVersionMethod)).value(), 100);
    std::optional<std::int64_t> status;
    controller->enterDFUMode([&](std::int64_t value) { status = value; });
    ASSERT_TRUE(runLoopUntil([&] { return status.has_value(); }));
    EXPECT_EQ(*status, 0);
    EXPECT_TRUE(runLoopUntil([&] { return localMacState() == "dfu"; }));
}

TEST_F(Helper, WithoutASimulatorTheLinuxHostAnswersThatItCannot) {
    polkit.allow({localport::polkitAction});
    const auto helper = startHelper({});
    EXPECT_EQ(QDBusReply<qint64>(call(localport::enterDFUModeMethod)).value(),
              localport::status::unsupportedHost);
    EXPECT_EQ(QDBusReply<qint64>(call(localport::rebootMethod)).value(),
              localport::status::unsupportedHost);
}

TEST_F(Helper, AnIdleHelperQuitsAndANewerOneTakesTheNameOver) {
    polkit.allow({localport::polkitAction});
    const auto idle = startHelper({"--idle-seconds", "1"});
    ASSERT_EQ(QDBusReply<qint64>(call(localport::getVersionMethod)).value(), 100);
    EXPECT_TRUE(idle->process().waitForFinished(10000));
    EXPECT_EQ(idle->process().exitCode(), 0);
    EXPECT_TRUE(bus.waitForOwner(localport::helperLabel, false));

    const auto older = startHelper({"--session"});
    const auto newer = startHelper({"--session", "--replace"});
    EXPECT_TRUE(older->process().waitForFinished(10000));
    EXPECT_EQ(QDBusReply<qint64>(call(localport::getVersionMethod)).value(), 100);
}

TEST(HelperInstall, PutsTheHelperAndItsFourFilesInPlace) {
    QTemporaryDir root;
    const auto run =
        testing_support::runExecutable("tarvel-helper", {"--install", "--root", root.path()},
                                       QProcessEnvironment::systemEnvironment());
    ASSERT_EQ(run.exitCode, 0) << run.standardError.toStdString();
    const QFileInfo tool(root.path() + localport::installedToolPath);
    EXPECT_TRUE(tool.isExecutable());
    for (const QString& path :
         {localport::installedActivationFilePath, localport::installedBusPolicyPath,
          localport::installedPolkitActionPath, localport::installedSystemdUnitPath})
        EXPECT_TRUE(QFileInfo::exists(root.path() + path)) << path.toStdString();
    QFile activation(root.path() + localport::installedActivationFilePath);
    ASSERT_TRUE(activation.open(QIODevice::ReadOnly));
    EXPECT_TRUE(activation.readAll().contains("Exec=" + localport::installedToolPath.toUtf8()));
    QFile policy(root.path() + localport::installedPolkitActionPath);
    ASSERT_TRUE(policy.open(QIODevice::ReadOnly));
    EXPECT_TRUE(policy.readAll().contains(localport::polkitAction.toUtf8()));
}

}  // namespace
