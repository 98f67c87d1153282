#include "records/ChainVerifier.h"
#include "records/RecordOutbox.h"
#include "records/RecordStore.h"
#include "records/RestoreRecorder.h"

#include "configurator/AC2Device.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <tuple>

namespace {

using records::EngineReport;
using records::Outcome;
using records::RestoreRecorder;

std::shared_ptr<AC2Device> mac(std::uint64_t ecid, std::int64_t location) {
    auto device = std::make_shared<AC2Device>();
    device->setEcid(ecid);
    device->setLocationID(location);
    device->setDeviceType("Mac14,3");
    return device;
}

class RestoreRecorderTest : public ::testing::Test {
  protected:
    RestoreRecorderTest() {
        RestoreRecorder::Collaborators c;
        c.store = std::make_unique<records::RecordStore>(dir_.filePath("records.sqlite"));
        c.station = "bench-7";
        c.operatorName = "dana";
        c.tarvelVersion = "9.9 (99)";
        c.locate = [](std::int64_t location) {
            return records::DeviceLocation{
                "1C3B4A01", static_cast<int>(location >> 16 & 0xF),
                QStringLiteral("hub 1C3B4A01 port %1").arg(location >> 16 & 0xF)};
        };
        c.now = [this] { return clock_; };
        c.engine = [] { return QStringLiteral("idevicerestore"); };
        recorder_ = std::make_unique<RestoreRecorder>(std::move(c));
    }

    QTemporaryDir dir_;
    QDateTime clock_{QDate(2026, 11, 23), QTime(9, 0), Qt::UTC};
    std::unique_ptr<RestoreRecorder> recorder_;
};

TEST_F(RestoreRecorderTest, RecordsEachOutcomeOfABatchWithWhereWhenAndWhichFirmware) {
    const auto restored = mac(0x1A2B, 0x01120000);
    const auto failed = mac(0x3C4D, 0x01130000);
    const auto unstarted = mac(0x5E6F, 0x01140000);
    recorder_->batchSubmitted("batch-9", {restored, failed, unstarted});
    const records::FirmwareUsed custom{"/srv/UniversalMac.ipsw", QString(64, 'f')};
    recorder_->deviceStarted("batch-9", *restored, custom);
    clock_ = clock_.addSecs(5);
    recorder_->deviceStarted("batch-9", *failed, {});
    clock_ = clock_.addSecs(300);
    const auto first = recorder_->deviceEnded(*restored, Outcome::restored, 0, {});
    const auto second = recorder_->deviceEnded(*failed, Outcome::failed, 21, "error:21");
    const auto third = recorder_->deviceEnded(*unstarted, Outcome::cancelled, std::nullopt, {});
    ASSERT_TRUE(first && second && third);

    EXPECT_EQ(std::tuple(first->ecid, first->batchId, first->hubPort, first->location),
              std::tuple("1A2B", "batch-9", 2, "hub 1C3B4A01 port 2"));
    EXPECT_EQ(std::tuple(first->station, first->operatorName, first->modelIdentifier),
              std::tuple("bench-7", "dana", "Mac14,3"));
    EXPECT_EQ(std::tuple(first->durationMs, first->exitStatus, first->firmware),
              std::tuple(305000, 0, "/srv/UniversalMac.ipsw"));
    EXPECT_EQ(first->firmwareSha256, QString(64, 'f'));
    EXPECT_EQ(std::tuple(second->firmware, second->lastError, second->durationMs),
              std::tuple("latest", "error:21", 300000));
    // Cancelled before its turn: no time spent, no firmware put on it.
    EXPECT_EQ(std::tuple(third->durationMs, third->firmware, third->location),
              std::tuple(0, "", "hub 1C3B4A01 port 4"));
    EXPECT_EQ(recorder_->store()->find({.batchId = "batch-9"}).size(), 3);
    EXPECT_EQ(recorder_->waitingToSync(), 0);  // no facility: nothing waits for one
}

// What the engine said goes into the record: its name and version, the macOS, and on a failure
// every error line it left, with the workflow's own reason after them when they lack it.
TEST_F(RestoreRecorderTest, RecordsTheEngineTheMacOSAndAFailuresWholeErrorLines) {
    const QString version =
        "idevicerestore 1.0.0-270-g405fcd1 (libirecovery 1.3.0, libtatsu 1.0.5)";
    EXPECT_EQ(EngineReport::engineText("idevicerestore", version), version);
    EXPECT_EQ(EngineReport::engineText("idevicerestore", "1.0.0"), "idevicerestore 1.0.0");
    EXPECT_EQ(EngineReport::engineText("cfgutil", ""), "cfgutil");

    const auto restored = mac(0xB1, 0x01310000);
    const auto failed = mac(0xB2, 0x01320000);
    const auto retried = mac(0xB3, 0x01330000);
    const auto cancelled = mac(0xB4, 0x01340000);
    recorder_->batchSubmitted("b", {restored, failed, retried, cancelled});
    const QStringList lines{"ERROR: Unable to send iBEC", "ERROR: Unable to restore device"};
    const auto ok = recorder_->deviceEnded(*restored, Outcome::restored, 0, {},
                                           {version, "15.3.1 (24D70)", {"warning only"}});
    const auto bad = recorder_->deviceEnded(*failed, Outcome::failed, 255, lines.last(),
                                            {version, "15.3.1 (24D70)", lines});
    const auto again = recorder_->deviceEnded(*retried, Outcome::failed, 21,
                                              "There was an error (retried after: No device found)",
                                              {"cfgutil", {}, {"libusbrestore error:21"}});
    const auto none = recorder_->deviceEnded(*cancelled, Outcome::cancelled, std::nullopt, {});
    ASSERT_TRUE(ok && bad && again && none);

    EXPECT_EQ(std::tuple(ok->engine, ok->firmwareVersion, ok->lastError),
              std::tuple(version, "15.3.1 (24D70)", ""));
    EXPECT_EQ(bad->lastError, "ERROR: Unable to send iBEC\nERROR: Unable to restore device");
    EXPECT_EQ(std::tuple(again->engine, again->firmwareVersion, again->lastError),
              std::tuple("cfgutil", "",
                         "libusbrestore error:21\nThere was an error (retried after: No device "
                         "found)"));
    // No engine reported on it: the process's own engine, without a version it never asked.
    EXPECT_EQ(std::tuple(none->engine, none->firmwareVersion), std::tuple("idevicerestore", ""));
    const auto stored = recorder_->store()->find({.ecid = "B2"});
    ASSERT_EQ(stored.size(), 1);
    EXPECT_EQ(stored[0].toJson(), bad->toJson());
}

TEST_F(RestoreRecorderTest, AbandonsOnlyTheMacsWhoseOutcomeNeverCame) {
    const auto done = mac(0xA1, 0x01210000);
    const auto running = mac(0xA2, 0x01220000);
    const auto waiting = mac(0xA3, 0x01230000);
    recorder_->batchSubmitted("b", {done, running, waiting});
    recorder_->deviceStarted("b", *done, {});
    recorder_->deviceStarted("b", *running, {});
    recorder_->deviceEnded(*done, Outcome::restored, 0, {});
    const auto abandoned = recorder_->abandonUnfinished();
    QStringList ecids;
    for (const auto& record : abandoned) {
        ecids << record.ecid;
        EXPECT_EQ(record.outcome, Outcome::abandoned);
        EXPECT_EQ(record.modelIdentifier, "Mac14,3");  // known from the batch, not the outcome
        EXPECT_EQ(record.engine, "idevicerestore");
    }
    ecids.sort();
    EXPECT_EQ(ecids, QStringList({"A2", "A3"}));
    EXPECT_TRUE(recorder_->abandonUnfinished().isEmpty());
    EXPECT_TRUE(records::ChainVerifier::verify(recorder_->store()->chainOrder()).intact);
}

}  // namespace
