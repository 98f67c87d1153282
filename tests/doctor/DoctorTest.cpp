#include "doctor/Doctor.h"

#include "core/SettingRanges.h"
#include "localport/HelperProtocol.h"
#include "support/SimulatedStation.h"
#include "support/TestSettings.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using doctor::Check;

QString buildDir() {
    return qEnvironmentVariable("TARVEL_BUILD_DIR");
}

// A machine of its own in a temporary folder: nothing is in place until a test puts it there.
class Doctor : public ::testing::Test {
protected:
    void SetUp() override {
        places_.hubLibraryCandidates = {path("lib/tarvel-brainstem.so")};
        places_.sysfsUsbDevices = path("sys");
        places_.usbDeviceNodes = path("dev");
        places_.helperExecutables = {path("libexec/helper")};
        places_.activationFiles = {path("dbus/activation.service")};
        places_.busPolicies = {path("dbus/policy.conf")};
        places_.polkitActions = {path("polkit/action.policy")};
        places_.systemdUnits = {path("systemd/unit.service")};
        places_.cfgutilPath = path("bin/cfgutil");
        places_.helperTimeoutMilliseconds = 500;
    }

    QString path(const QString& relative) const { return root_.filePath(relative); }

    void write(const QString& relative, const QByteArray& content,
               QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner) {
        QDir().mkpath(QFileInfo(path(relative)).absolutePath());
        QFile file(path(relative));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.setPermissions(permissions);
    }

    void addHubDevice(const QString& entry, const QString& bus, const QString& device) {
        write("sys/" + entry + "/idVendor", "24ff\n");
        write("sys/" + entry + "/busnum", bus.toUtf8() + "\n");
        write("sys/" + entry + "/devnum", device.toUtf8() + "\n");
        write("sys/" + entry + "/serial", "1C3B4A01\n");
    }

    doctor::DoctorReport examine(const std::optional<QString>& socket = std::nullopt) {
        return doctor::examine(places_, settings_.settings(), socket);
    }

    QTemporaryDir root_;
    doctor::Places places_;
    testing_support::TestSettings settings_;
};

const Check& find(const doctor::DoctorReport& report, const QString& name) {
    for (const Check& check : report.checks())
        if (check.name == name) return check;
    throw std::runtime_error("no check named " + name.toStdString());
}

TEST_F(Doctor, OnABareMachineHardwareNamesEveryMissingPieceWithItsFix) {
    const doctor::DoctorReport report = examine();

    EXPECT_EQ(report.mode(), "hardware");
    EXPECT_FALSE(report.passed());
    for (const char* name : {"hub library", "hubs on USB", "helper installed", "polkit action",
                             "helper answers", "Apple Configurator's tool"}) {
        const Check& check = find(report, QString::fromLatin1(name));
        EXPECT_EQ(check.status, Check::Status::Failed) << name;
        EXPECT_FALSE(check.fix.isEmpty()) << name;
    }
    const Check& helper = find(report, "helper installed");
    for (const char* piece : {"executable", "D-Bus activation file", "D-Bus policy", "polkit action",
                              "systemd unit"})
        EXPECT_TRUE(helper.detail.contains(QString::fromLatin1(piece))) << piece;
    EXPECT_EQ(find(report, "simulator").status, Check::Status::NotNeeded);
    EXPECT_TRUE(report.text().contains("FAIL hub library: no hub library module"));
    EXPECT_TRUE(report.text().endsWith("Something the hardware mode needs is missing.\n"));
}

TEST_F(Doctor, PiecesInPlaceAreFoundWhereTheyAre) {
    QDir().mkpath(path("lib"));
    ASSERT_TRUE(QFile::copy(buildDir() + "/tests/hub-modules/good/tarvel-brainstem.so",
                            path("lib/tarvel-brainstem.so")));
    for (const char* file : {"libexec/helper", "dbus/activation.service", "dbus/policy.conf",
                             "systemd/unit.service"})
        write(QString::fromLatin1(file), "x");
    write("polkit/action.policy", "<action id=\"" + localport::polkitAction.toUtf8() + "\">");
    write("bin/cfgutil", "#!/bin/sh\n", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    addHubDevice("1-2", "1", "7");
    write("dev/001/007", "");

    const doctor::DoctorReport report = examine();

    EXPECT_EQ(find(report, "hub library").status, Check::Status::Ok);
    EXPECT_TRUE(find(report, "hub library").detail.contains("test module, one hub"));
    const Check& device = find(report, "hub USB device 1-2 (serial 1C3B4A01)");
    EXPECT_EQ(device.status, Check::Status::Ok) << device.detail.toStdString();
    EXPECT_EQ(find(report, "helper installed").status, Check::Status::Ok);
    EXPECT_EQ(find(report, "helper installed").detail, path("libexec/helper"));
    EXPECT_EQ(find(report, "polkit action").status, Check::Status::Ok);
    EXPECT_EQ(find(report, "Apple Configurator's tool").status, Check::Status::Ok);
    EXPECT_EQ(find(report, "settings").status, Check::Status::Ok);
}

TEST_F(Doctor, AHubDeviceThisUserCannotOpenPointsAtTheUdevRule) {
    addHubDevice("3-1", "3", "12");  // no device node: nobody can open it

    const doctor::DoctorReport report = examine();
    const Check& device = find(report, "hub USB device 3-1 (serial 1C3B4A01)");
    EXPECT_EQ(device.status, Check::Status::Failed);
    EXPECT_EQ(device.detail, path("dev/003/012") + " is not readable and writable by this user");
    EXPECT_TRUE(device.fix.contains("udev rule"));
}

TEST_F(Doctor, AnInvalidSettingIsNamedWithHowToCorrectIt) {
    const char* key = core::settingRanges().front().key;
    settings_.settings().setValue(QString::fromLatin1(key), QStringLiteral("soon"));

    const doctor::DoctorReport report = examine();
    const Check& settings = find(report, "settings");
    EXPECT_EQ(settings.status, Check::Status::Failed);
    EXPECT_TRUE(settings.detail.startsWith(QString::fromLatin1(key) + ": "));
    EXPECT_TRUE(settings.fix.contains("tarvel-cli defaults delete KEY"));
}

TEST_F(Doctor, TheSimulatorNeedsOnlyItselfAndTheStandInTool) {
    testing_support::SimulatedStation station;
    ASSERT_FALSE(station.start().isEmpty());
    places_.cfgutilPath = buildDir() + "/bin/tarvel-sim-cfgutil";

    const doctor::DoctorReport report = examine(station.socket());

    EXPECT_EQ(report.mode(), "simulator");
    EXPECT_TRUE(report.passed()) << report.text().toStdString();
    EXPECT_EQ(find(report, "simulator").status, Check::Status::Ok);
    for (const char* name : {"hub library", "hubs on USB", "helper installed", "helper answers"})
        EXPECT_EQ(find(report, QString::fromLatin1(name)).status, Check::Status::NotNeeded) << name;

    const QJsonObject json = report.json();
    EXPECT_EQ(json["mode"].toString(), "simulator");
    EXPECT_TRUE(json["passed"].toBool());
    EXPECT_EQ(json["checks"].toArray().size(), static_cast<qsizetype>(report.checks().size()));
}

TEST_F(Doctor, ASimulatorThatIsNotRunningIsTheOneFailure) {
    const QString socket = path("nobody.sock");
    places_.cfgutilPath = buildDir() + "/bin/tarvel-sim-cfgutil";

    const doctor::DoctorReport report = examine(socket);

    EXPECT_FALSE(report.passed());
    const Check& simulator = find(report, "simulator");
    EXPECT_EQ(simulator.status, Check::Status::Failed);
    EXPECT_EQ(simulator.fix, "start it: tarvel-sim --socket " + socket + " &");
    // Each failure carries its fix in the JSON too; what is in place carries none.
    for (const auto& value : report.json()["checks"].toArray()) {
        const QJsonObject check = value.toObject();
        if (check["status"].toString() == "failed") {
            EXPECT_FALSE(check["fix"].toString().isEmpty());
        } else if (check["status"].toString() == "ok") {
            EXPECT_FALSE(check.contains("fix"));
        }
    }
}

}  // namespace
