#include "IdevicerestoreFront.h"

#include <QDateTime>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QTimer>

#include <csignal>

namespace simidevicerestore {
namespace {

const QString noDevice =
    QStringLiteral("Unable to discover device mode. Please make sure a device is attached.");
// The real tool gives a device this long to show up before it gives up, in the station's seconds.
constexpr double discoverySeconds = 10.0;
constexpr double discoveryPollSeconds = 0.5;

std::uint64_t ecidOf(const QJsonObject& mac) {
    return mac.value("ecid").toString().mid(2).toULongLong(nullptr, 16);
}

QString hexEcid(std::uint64_t ecid) {
    return QString::number(ecid, 16).toUpper();
}

bool inDfuOrRecovery(const QJsonObject& mac) {
    const QString state = mac.value("state").toString();
    return mac.value("onBus").toBool() && (state == "dfu" || state == "recovery");
}

// A Mac named by its ECID is found also while another restore has it; the simulator then
// refuses the restore itself.
bool reachableByEcid(const QJsonObject& mac) {
    return inDfuOrRecovery(mac) ||
           (mac.value("onBus").toBool() && mac.value("state").toString() == "restoring");
}

// The board names libirecovery gives the models a station usually holds; any other model reads
// as the first M1 MacBook Air's board, which is all the output needs.
QString boardOf(const QString& deviceType) {
    static const QHash<QString, QString> boards{
        {"Macmini9,1", "j274"},      {"MacBookAir10,1", "j313"}, {"MacBookPro17,1", "j293"},
        {"MacBookPro18,3", "j314s"}, {"Mac13,1", "j375c"},       {"Mac14,2", "j413"},
        {"Mac14,3", "j473"}};
    return boards.value(deviceType, QStringLiteral("j313"));
}

// Stands for the boot ROM's nonce: fixed per Mac, as it is between two reads in one session.
QString apNonce(std::uint64_t ecid) {
    return QStringLiteral("%1").arg(ecid * 0x9E3779B97F4A7C15ull, 16, 16, QLatin1Char('0'));
}

QString defaultLogName(std::uint64_t ecid) {
    return QStringLiteral("restore_%1_%2.log")
        .arg(hexEcid(ecid))
        .arg(QDateTime::currentSecsSinceEpoch());
}

}  // namespace

IdevicerestoreFront::IdevicerestoreFront(core::SimulatorConnection* simulator, Options options,
                                         RestoreOutput& output)
    : QObject(nullptr), simulator_(simulator), options_(std::move(options)), output_(output) {
    output_.setPlainProgress(options_.plainProgress);
    if (simulator_ == nullptr)
        return;
    connect(simulator_, &core::SimulatorConnection::eventReceived, this,
            &IdevicerestoreFront::onEvent);
    connect(simulator_, &core::SimulatorConnection::disconnected, this, [this] {
        // A hanging tool has nothing left to wait for once its station is gone.
        if (running_ || hanging_) {
            running_ = hanging_ = false;
            fail(QStringLiteral("Unable to restore device"));
        }
    });
}

int IdevicerestoreFront::printVersion() {
    loadToolOptions();
    output_.line(
        QStringLiteral("idevicerestore %1 (libirecovery 1.3.0, libtatsu 1.0.5)").arg(version_));
    return 0;
}

void IdevicerestoreFront::loadToolOptions() {
    if (simulator_ == nullptr)
        return;
    const std::optional<QJsonObject> reply = simulator_->request("idevicerestore.options");
    if (!reply || reply->value("result").toInt(-1) != 0)
        return;
    output_.setOldErrorStyle(reply->value("errorStyle").toString() == "old");
    if (const QString version = reply->value("version").toString(); !version.isEmpty())
        version_ = version;
}

void IdevicerestoreFront::start() {
    printVersion();
    if (!options_.logFile.isEmpty())
        output_.openLog(options_.logFile);
    else if (options_.ecid)
        output_.openLog(defaultLogName(*options_.ecid));
    if (!QFileInfo::exists(options_.firmwarePath))
        return fail(QStringLiteral("Firmware file %1 cannot be opened.").arg(options_.firmwarePath),
                    255);
    if (const auto info = simulator_->request("station.info"))
        speed_ = qMax(info->value("speed").toDouble(1.0), 1e-3);
    discoveryDeadline_ = QDeadlineTimer(static_cast<qint64>(discoverySeconds * 1000 / speed_));
    discover();
}

void IdevicerestoreFront::discover() {
    const std::optional<QJsonObject> reply = simulator_->request("macs.list");
    if (!reply)
        return fail(simulator_->lastError());
    for (const QJsonValue& value : reply->value("macs").toArray()) {
        const QJsonObject mac = value.toObject();
        const bool chosen = options_.ecid ? ecidOf(mac) == *options_.ecid && reachableByEcid(mac)
                                          : inDfuOrRecovery(mac);
        if (chosen)
            return identify(mac);
    }
    if (discoveryDeadline_.hasExpired())
        return fail(noDevice);
    QTimer::singleShot(qMax(10, static_cast<int>(discoveryPollSeconds * 1000 / speed_)), this,
                       &IdevicerestoreFront::discover);
}

void IdevicerestoreFront::identify(const QJsonObject& mac) {
    mac_ = mac;
    const std::uint64_t ecid = ecidOf(mac);
    ecidText_ = QStringLiteral("0x") + hexEcid(ecid);
    if (!output_.logOpen() && options_.logFile.isEmpty())
        output_.openLog(defaultLogName(ecid));
    const QString mode = mac.value("state").toString() == "dfu" ? "DFU" : "Recovery";
    const QString fault = mac.value("engineFault").toString();
    // This restore is the one the fault spoils; a station may let a later one through.
    if (!fault.isEmpty())
        simulator_->request("mac.engineFaultUsed", {{"ecid", ecidText_}});
    output_.line(QStringLiteral("Found device in %1 mode").arg(mode));
    output_.line(QStringLiteral("ECID: %1").arg(ecid));
    if (fault == "unknownDeviceType")
        return fail(QStringLiteral("Unable to discover device type"));
    const QString deviceType = mac.value("deviceType").toString();
    output_.line(
        QStringLiteral("Identified device as %1ap, %2").arg(boardOf(deviceType), deviceType));
    for (const char* text : {"Device Product Version: N/A", "Device Product Build: N/A",
                             "Extracting BuildManifest from IPSW", "IPSW Product Version: 15.3.1",
                             "IPSW Product Build: 24D70 Major: 24", "Device supports Image4: true"})
        output_.line(QString::fromLatin1(text));
    if (options_.erase) {
        output_.line(QStringLiteral("Variant: Customer Erase Install (IPSW)"));
        output_.line(QStringLiteral("This restore will erase all device data."));
    } else {
        output_.line(QStringLiteral("Variant: Customer Upgrade Install (IPSW)"));
    }
    output_.line(QStringLiteral("Performing macOS restore"));
    output_.line(QStringLiteral("Checking IPSW for required components..."));
    output_.line(QStringLiteral("All required components found in IPSW"));
    output_.line(QStringLiteral("Using cached filesystem from '%1'").arg(options_.firmwarePath));
    output_.line(QStringLiteral("Getting ApNonce in %1 mode... %2").arg(mode, apNonce(ecid)));
    output_.line(QStringLiteral("Trying to fetch new SHSH blob"));
    if (fault == "signingRefused")
        return fail(QStringLiteral("Unable to get SHSH blobs for this device"));
    output_.line(QStringLiteral("Received SHSH blobs"));
    askRestore();
}

void IdevicerestoreFront::askRestore() {
    // Subscribed before the start, so not one step is missed.
    if (!simulator_->subscribe({"restore"}))
        return fail(simulator_->lastError());
    const std::optional<QJsonObject> reply =
        simulator_->request("mac.restore", {{"ecid", ecidText_}, {"ipsw", options_.firmwarePath}});
    if (!reply)
        return fail(simulator_->lastError());
    const int result = reply->value("result").toInt(-1);
    if (result == 3)
        return fail(noDevice);
    if (result != 0)
        return fail(reply->value("message").toString());
    running_ = true;
    sinceLastEvent_.start();
}

void IdevicerestoreFront::onEvent(const QString& name, const QJsonObject& payload) {
    if (!running_ || payload.value("ecid").toString().compare(ecidText_, Qt::CaseInsensitive) != 0)
        return;
    if (name == "restore.progress") {
        onProgress(payload.value("progress").toDouble());
    } else if (name == "restore.finished") {
        running_ = false;
        onFinished(payload.value("status").toInt(-1), payload.value("message").toString());
    }
}

// The simulator's tenths of a restore, told as the tool's stages: boot stages sent in DFU and
// recovery mode, the wait for restore mode, then the filesystem and the device's own steps.
void IdevicerestoreFront::onProgress(double progress) {
    lastGapMilliseconds_ = sinceLastEvent_.restart();
    const int percent = qRound(progress * 100);
    if (percent == 5 || percent == 10)
        sendBootStages(percent);
    else if (percent == 25)
        waitForRestoreMode();
    else if (percent == 40)
        enterRestoreMode();
    else if (percent > 40 && percent < 100)
        sendFilesystem(percent);
}

void IdevicerestoreFront::sendBootStages(int percent) {
    if (percent == 5) {
        output_.line(QStringLiteral("Sending iBSS (1048576 bytes)..."));
        for (double done : {0.0, 50.0, 100.0}) output_.labelledProgress("Uploading", done);
        return;
    }
    output_.line(QStringLiteral("Sending iBEC (1048576 bytes)..."));
    output_.line(QStringLiteral("Found device in Recovery mode"));
    output_.line(
        QStringLiteral("Recovery serial: SRNM:[%1]").arg(mac_.value("serialNumber").toString()));
}

void IdevicerestoreFront::waitForRestoreMode() {
    output_.line(QStringLiteral("Sending RestoreRamDisk (33554432 bytes)..."));
    output_.line(QStringLiteral("Sending RestoreDeviceTree (262144 bytes)..."));
    output_.line(QStringLiteral("Sending RestoreKernelCache (16777216 bytes)..."));
    output_.line(QStringLiteral("Waiting for device to enter restore mode..."));
    const QString fault = mac_.value("engineFault").toString();
    if (fault == "restoreModeTimeout") {
        cancelRestore();
        // One step of the station's pace, as the wait would have lasted on it.
        QTimer::singleShot(static_cast<int>(lastGapMilliseconds_), this, [this] {
            fail(QStringLiteral("Device failed to enter restore mode."));
        });
    } else if (fault == "ignoresTerm") {
        // The Mac is not left restoring for ever in the simulator while the tool hangs.
        cancelRestore();
        hanging_ = true;
    }
}

void IdevicerestoreFront::enterRestoreMode() {
    for (const QString& text :
         {QStringLiteral("About to restore device... "),
          QStringLiteral("Connected to com.apple.mobile.restored, version 15"),
          QStringLiteral("Device %1 has successfully entered restore mode")
              .arg(mac_.value("udid").toString()),
          QStringLiteral("Creating partition map (11)"), QStringLiteral("Creating filesystem (12)"),
          QStringLiteral("Restoring image (13)"), QStringLiteral("About to send filesystem..."),
          QStringLiteral("Sending filesystem now...")})
        output_.line(text);
    output_.stepProgress(2, QStringLiteral("Sending filesystem"), 0.0);
}

void IdevicerestoreFront::sendFilesystem(int percent) {
    if (percent < 95) {
        output_.stepProgress(2, QStringLiteral("Sending filesystem"), (percent - 40) / 55.0);
        return;
    }
    output_.stepProgress(2, QStringLiteral("Sending filesystem"), 1.0);
    output_.line(QStringLiteral("Done sending filesystem"));
    output_.line(QStringLiteral("Verifying restore (14)"));
    output_.stepProgress(3, QStringLiteral("Verifying filesystem"), 1.0);
    output_.line(QStringLiteral("Flashing firmware (18)"));
    output_.stepProgress(4, QStringLiteral("Flashing firmware"), 1.0);
}

void IdevicerestoreFront::onFinished(int status, const QString& message) {
    if (status != 0)
        return fail(message.isEmpty() ? QStringLiteral("Unable to restore device") : message);
    output_.line(QStringLiteral("Status: Restore Finished"));
    output_.line(QStringLiteral("DONE"));
    output_.stepProgress(7, QString(), 1.0);
    done_ = true;
    emit finished(0);
}

bool IdevicerestoreFront::acceptTermination(int signal) {
    if (hanging_ && (signal == SIGTERM || signal == SIGINT)) {
        // The real tool only raises a quit flag, which its wait for the device never reads.
        if (!told_)
            output_.line(QStringLiteral("Exiting after the current operation..."));
        told_ = true;
        return false;
    }
    cancelRestore();
    return true;
}

void IdevicerestoreFront::cancelRestore() {
    if (!running_)
        return;
    running_ = false;
    simulator_->request("mac.cancelRestore", {{"ecid", ecidText_}});
}

void IdevicerestoreFront::fail(const QString& message, int status) {
    if (done_)
        return;
    done_ = true;
    output_.error(message);
    emit finished(status);
}

}  // namespace simidevicerestore
