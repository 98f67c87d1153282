#include "localport/FakeHelper.h"
#include "support/PrivateBus.h"

#include "support/Scripts.h"

#include "core/NotificationCenter.h"
#include "localport/HelperEndpoint.h"
#include "localport/SystemHelperEndpoint.h"
#include "localport/ZMRPrivHelperToolController.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using testing_support::runLoopUntil;

static_assert(!std::is_default_constructible_v<ZMRPrivHelperToolController>,
              "the shared instance must be used");
static_assert(!std::is_copy_constructible_v<ZMRPrivHelperToolController>);

// The private bus as the place the helper lives; installing it means starting the fake helper
// with the expected version.
class TestEndpoint final : public HelperEndpoint {
  public:
    TestEndpoint(QDBusConnection bus, testing_support::FakeHelper& helper)
        : bus_(std::move(bus)), helper_(helper) {}

    QDBusConnection bus() const override { return bus_; }
    bool isToolInstalled() const override { return installed; }
    bool blessHelperWithLabel(const QString& label, localport::HelperError* error) override {
        labels << label;
        if (failWith) {
            *error = *failWith;
            return false;
        }
        helper_.version = localport::helperVersion;
        return true;
    }

    bool installed = true;
    std::optional<localport::HelperError> failWith;
    QStringList labels;

  private:
    QDBusConnection bus_;
    testing_support::FakeHelper& helper_;
};

class HelperClient : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(bus.isRunning());
        helper = std::make_unique<testing_support::FakeHelper>(bus.connect("helper"));
        ASSERT_TRUE(helper->start());
        endpoint = std::make_shared<TestEndpoint>(bus.connect("client"), *helper);
    }
    std::unique_ptr<ZMRPrivHelperToolController> controller(int timeoutMilliseconds = 25000) {
        return ZMRPrivHelperToolController::initPrivate(
            {endpoint, &center, timeoutMilliseconds, 0});
    }
    // The status the call answered, or nullopt when no reply came in time.
    std::optional<std::int64_t> ask(
        ZMRPrivHelperToolController& client,
        void (ZMRPrivHelperToolController::*call)(LocalPortHelper::Reply, LocalPortHelper::Failure),
        int milliseconds = 5000) {
        std::optional<std::int64_t> answer;
        (client.*call)([&](std::int64_t value) { answer = value; }, {});
        runLoopUntil([&] { return answer.has_value(); }, milliseconds);
        return answer;
    }

    testing_support::PrivateBus bus;
    core::NotificationCenter center;
    std::unique_ptr<testing_support::FakeHelper> helper;
    std::shared_ptr<TestEndpoint> endpoint;
};

TEST_F(HelperClient, AnyVersionButTheExpectedOneReinstallsAndReconnects) {
    auto client = controller();
    client->installToolIfNecessary();
    // Replies come in order: the version check has been answered once this one is.
    ASSERT_EQ(ask(*client, &ZMRPrivHelperToolController::getVersionCallback), 100);
    QCoreApplication::processEvents();
    EXPECT_TRUE(endpoint->labels.isEmpty());

    for (const qint64 version : {99, 101}) {
        helper->version = version;
        client->installToolIfNecessary();
        ASSERT_TRUE(runLoopUntil([&] { return helper->version == localport::helperVersion; }))
            << version;
        EXPECT_TRUE(client->isConnected());
    }
    EXPECT_EQ(endpoint->labels, QStringList(2, localport::helperLabel));
    EXPECT_EQ(ask(*client, &ZMRPrivHelperToolController::getVersionCallback), 100);
}

TEST_F(HelperClient, AMissingHelperIsInstalledAtCreationAndAFailedInstallIsAnnounced) {
    endpoint->installed = false;
    auto installed = ZMRPrivHelperToolController::initInstalling({endpoint, &center, 25000, 0});
    EXPECT_EQ(endpoint->labels.size(), 1);
    ASSERT_TRUE(runLoopUntil([&] { return installed->isConnected(); }));

    QVariantMap announced;
    center.addObserver(ZMRPrivHelperToolController::helperNotification,
                       [&](const QString&, const QVariantMap& info) { announced = info; });
    endpoint->failWith = localport::HelperError{"pkexec", 126, "dismissed"};
    auto refused = ZMRPrivHelperToolController::initInstalling({endpoint, &center, 25000, 0});
    const auto error = announced.value(ZMRPrivHelperToolController::underlyingErrorKey)
                           .value<localport::HelperError>();
    EXPECT_EQ(std::pair(error.domain, error.code), std::pair(QString("pkexec"), std::int64_t{126}));
    EXPECT_FALSE(ZMRPrivHelperToolController::installTool({endpoint, &center, 25000, 0}));
}

TEST_F(HelperClient, TheConnectionEndsWhenTheHelperQuitsAndTheNextCallMakesANewOne) {
    auto client = controller();
    ASSERT_EQ(ask(*client, &ZMRPrivHelperToolController::getVersionCallback), 100);
    ASSERT_TRUE(client->isConnected());
    helper->quit();
    ASSERT_TRUE(runLoopUntil([&] { return !client->isConnected(); }));
    ASSERT_TRUE(helper->start());
    EXPECT_EQ(ask(*client, &ZMRPrivHelperToolController::enterDFUMode), 0);
    EXPECT_TRUE(client->isConnected());
}

TEST_F(HelperClient, AHelperThatNeverRepliesEndsTheCallAsUnreachable) {
    helper->silent = true;
    auto client = controller(300);
    bool replied = false;
    std::optional<HelperFailure> failure;
    client->enterDFUMode([&](std::int64_t) { replied = true; },
                         [&](const HelperFailure& why) { failure = why; });
    client->installToolIfNecessary();
    ASSERT_TRUE(runLoopUntil([&] { return failure.has_value(); }));
    EXPECT_EQ(failure->kind, HelperFailure::Kind::unreachable);
    EXPECT_FALSE(replied);
    EXPECT_EQ(helper->calls, 2);
    QCoreApplication::processEvents();
    EXPECT_TRUE(endpoint->labels.isEmpty()) << "no version answer, no reinstall";
    helper->silent = false;
    EXPECT_EQ(ask(*client, &ZMRPrivHelperToolController::reboot), 0);
}

// The call is under way when the helper goes: its connection is dropped, its end is not.
TEST_F(HelperClient, ACallOutlivesTheConnectionItWasSentOn) {
    helper->silent = true;
    auto client = controller(1000);
    std::optional<HelperFailure> failure;
    client->enterDFUMode([](std::int64_t) {}, [&](const HelperFailure& why) { failure = why; });
    ASSERT_TRUE(runLoopUntil([&] { return helper->calls == 1; }));
    helper->quit();
    ASSERT_TRUE(runLoopUntil([&] { return !client->isConnected(); }));
    EXPECT_TRUE(runLoopUntil([&] { return failure.has_value(); }));
}

TEST(SystemEndpoint, InstalledMeansBothFilesAndTheAuthorisationFailureKeepsItsStatus) {
    QTemporaryDir folder;
    SystemHelperEndpoint::Places places;
    places.toolPath = folder.filePath("tool");
    places.activationFilePath = folder.filePath("activation.service");
    places.installCommand = {"/bin/sh", "-c", "exit 126"};
    SystemHelperEndpoint endpoint(places);
    EXPECT_FALSE(endpoint.isToolInstalled());
    QFile(places.toolPath).open(QIODevice::WriteOnly);
    EXPECT_FALSE(endpoint.isToolInstalled()) << "only the executable";
    QFile::remove(places.toolPath);
    QFile(places.activationFilePath).open(QIODevice::WriteOnly);
    EXPECT_FALSE(endpoint.isToolInstalled()) << "only the activation file";
    QFile(places.toolPath).open(QIODevice::WriteOnly);
    EXPECT_TRUE(endpoint.isToolInstalled());

    localport::HelperError error;
    EXPECT_FALSE(endpoint.blessHelperWithLabel(localport::helperLabel, &error));
    EXPECT_EQ(std::tuple(error.domain, error.code, error.localizedDescription),
              std::tuple(QString("pkexec"), std::int64_t{126},
                         QString("The administrator password prompt was dismissed.")));

    SystemHelperEndpoint missing(
        {places.toolPath, places.activationFilePath, {"/nonexistent/pkexec"}});
    EXPECT_FALSE(missing.blessHelperWithLabel(localport::helperLabel, &error));
    EXPECT_EQ(error.domain, "QProcess");
    places.installCommand = {"/bin/true"};
    EXPECT_TRUE(SystemHelperEndpoint(places).blessHelperWithLabel(localport::helperLabel, &error));
}

}  // namespace
