#include "Server.h"
#include "StationFixture.h"

#include "core/SimulatorConnection.h"
#include "hubs/stem/SimulatorBackend.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTemporaryDir>

#include <atomic>
#include <thread>

namespace simtest {
namespace {

// The station served on a real socket in this process; blocking clients run on other threads
// while the main thread serves.
class Socket : public StationTest {
  protected:
    void SetUp() override {
        start(sim::defaultStation());
        server_ = std::make_unique<sim::Server>(*protocol_);
        station_->setEventSink(
            [this](const QString& topic, const QString& name, const QJsonObject& payload) {
                server_->broadcast(topic, name, payload);
            });
        path_ = folder_.filePath("sim.sock");
        QString error;
        ASSERT_TRUE(server_->listen(path_, &error)) << error.toStdString();
    }

    template <typename Work>
    void offMainThread(Work work) {
        std::atomic<bool> done{false};
        std::thread worker([&] {
            work();
            done = true;
        });
        const QDeadlineTimer deadline(20000);
        while (!done && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        worker.join();
    }

    QTemporaryDir folder_;
    QString path_;
    std::unique_ptr<sim::Server> server_;
};

TEST_F(Socket, RequestsFromSeveralThreadsEachGetTheirOwnReply) {
    core::SimulatorConnection connection(path_);
    std::atomic<int> wrong{0};
    qint64 link = 0;
    offMainThread([&] {
        link = connection.request("stem.connect", {{"linkType", 1}, {"serial", hubA}})
                   ->value("link")
                   .toInteger();
    });
    offMainThread([&] {
        std::vector<std::thread> clients;
        for (int port = 0; port < 4; ++port)
            clients.emplace_back([&, port] {
                for (int i = 0; i < 25; ++i) {
                    const auto reply =
                        connection.request("stem.pd.getCableOrientation",
                                           {{"serial", hubA}, {"index", port}, {"link", link}});
                    // Port 0 is the input, odd ports read CC1, even ports with a Mac CC2.
                    const int expected = port == 0 ? 1 : (port % 2 == 1 ? 1 : 2);
                    if (!reply || reply->value("value").toInt() != expected)
                        ++wrong;
                }
            });
        for (auto& client : clients) client.join();
    });
    EXPECT_EQ(wrong, 0);

    std::optional<QJsonObject> unknown;
    offMainThread([&] { unknown = connection.request("no.such.call"); });
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->value("result").toInt(), 21);
    EXPECT_FALSE(unknown->value("message").toString().isEmpty());
}

TEST(SocketClient, UnreachableSimulatorIsReportedNotAwaited) {
    QTemporaryDir folder;
    core::SimulatorConnection connection(folder.filePath("nobody.sock"));
    EXPECT_FALSE(connection.request("usb.list").has_value());
    EXPECT_TRUE(connection.lastError().contains("cannot reach the simulator"))
        << connection.lastError().toStdString();
    EXPECT_FALSE(connection.subscribe({"usb"}));

    stem::SimulatorBackend backend(folder.filePath("nobody.sock"));
    EXPECT_EQ(backend.aDiscovery_EnumerateModules(stem::LinkType::USB, {}, 0), 0);
    EXPECT_EQ(backend.createUSBHub3c(6, true, 24)->discoverAndConnect(stem::LinkType::USB, 0), 25u);
}

}  // namespace
}  // namespace simtest
