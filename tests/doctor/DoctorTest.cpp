#include "doctor/Doctor.h"

#include "core/SettingRanges.h"
#include "engines/EngineChoice.h"
#include "engines/IdevicerestoreEngine.h"
#include "localport/HelperProtocol.h"
#include "support/SimulatedStation.h"
#include "support/TestSettings.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <map>

namespace {

using doctor::Check;

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
        places_.engine.executableFolders = {path("bin")};
        places_.engine.usbmuxdCandidates = {path("sbin/usbmuxd")};
        places_.engine.udevRuleFolders = {path("etc/rules.d"), path("lib/rules.d")};
        places_.engine.stateFolder = root_.path();
        places_.engine.makeEngine = [this](core::Settings& settings) {
            engines::IdevicerestoreEngine::Collaborators c;
            c.settings = &settings;
            c.toolPath = engines::idevicerestorePath(settings);
            c.stateFolder = root_.path();
            c.fallbackFirmware = fallbackFirmware_;
            return std::make_unique<engines::IdevicerestoreEngine>(std::move(c));
        };
        setting("idevicerestorePath", path("bin/idevicerestore"));
    }

    void setting(const QString& key, const QString& value) {
        settings_.settings().setValue(key, value);
    }

    // The simulator's stand-ins for both engines, and a simulated station's own firmware.
    void useStandIns() {
        places_.cfgutilPath = testing_support::executablePath("tarvel-sim-cfgutil");
        setting("idevicerestorePath", testing_support::executablePath("tarvel-sim-idevicerestore"));
        write("state/simulated.ipsw", "firmware");
        fallbackFirmware_ = path("state/simulated.ipsw");
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
    QString fallbackFirmware_;
    doctor::Places places_;
    testing_support::TestSettings settings_;
};

const Check& find(const doctor::DoctorReport& report, const QString& name) {
    for (const Check& check : report.checks())
        if (check.name == name)
            return check;
    throw std::runtime_error("no check named " + name.toStdString());
}

TEST_F(Doctor, OnABareMachineHardwareNamesEveryMissingPieceWithItsFix) {
    const doctor::DoctorReport report = examine();

    EXPECT_EQ(report.mode(), "hardware");
    EXPECT_FALSE(report.passed());
    for (const char* name :
         {"hub library", "hubs on USB", "helper installed", "polkit action", "helper answers",
          "idevicerestore", "usbmuxd", "usbmuxd udev rule"}) {
        const Check& check = find(report, QString::fromLatin1(name));
        EXPECT_EQ(check.status, Check::Status::Failed) << name;
        EXPECT_FALSE(check.fix.isEmpty()) << name;
    }
    const Check& helper = find(report, "helper installed");
    for (const char* piece :
         {"executable", "D-Bus activation file", "D-Bus policy", "polkit action", "systemd unit"})
        EXPECT_TRUE(helper.detail.contains(QString::fromLatin1(piece))) << piece;
    EXPECT_EQ(find(report, "simulator").status, Check::Status::NotNeeded);
    EXPECT_EQ(find(report, "Apple Configurator's tool").status, Check::Status::NotNeeded)
        << "idevicerestore restores where cfgutil is missing";
    EXPECT_TRUE(report.text().contains("FAIL hub library: no hub library module"));
    EXPECT_TRUE(report.text().endsWith("Something the hardware mode needs is missing.\n"));
}

TEST_F(Doctor, PiecesInPlaceAreFoundWhereTheyAre) {
    QDir().mkpath(path("lib"));
    ASSERT_TRUE(QFile::copy(
        testing_support::buildDirectory() + "/tests/hub-modules/good/tarvel-brainstem.so",
        path("lib/tarvel-brainstem.so")));
    for (const char* file :
         {"libexec/helper", "dbus/activation.service", "dbus/policy.conf", "systemd/unit.service"})
        write(QString::fromLatin1(file), "x");
    write("polkit/action.policy", "<action id=\"" + localport::polkitAction.toUtf8() + "\">");
    write("bin/cfgutil", "#!/bin/sh\n", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    addHubDevice("1-2", "1", "7");
    write("dev/001/007", "");

    const doctor::DoctorReport report = examine();

    for (const char* name :
         {"hub library", "hub USB device 1-2 (serial 1C3B4A01)", "helper installed",
          "polkit action", "Apple Configurator's tool", "settings"}) {
        const Check& check = find(report, QString::fromLatin1(name));
        EXPECT_EQ(check.status, Check::Status::Ok) << name << ": " << check.detail.toStdString();
    }
    EXPECT_TRUE(find(report, "hub library").detail.contains("test module, one hub"));
    EXPECT_EQ(find(report, "helper installed").detail, path("libexec/helper"));
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
    useStandIns();

    const doctor::DoctorReport report = examine(station.socket());

    EXPECT_EQ(report.mode(), "simulator");
    EXPECT_TRUE(report.passed()) << report.text().toStdString();
    EXPECT_EQ(find(report, "simulator").status, Check::Status::Ok);
    EXPECT_EQ(find(report, "idevicerestore version").detail,
              "idevicerestore 1.0.0-270-g405fcd1 (libirecovery 1.3.0, libtatsu 1.0.5)");
    EXPECT_EQ(find(report, "firmware").detail, fallbackFirmware_);
    for (const char* name : {"hub library", "hubs on USB", "helper installed", "helper answers",
                             "usbmuxd", "usbmuxd udev rule"})
        EXPECT_EQ(find(report, QString::fromLatin1(name)).status, Check::Status::NotNeeded) << name;

    const QJsonObject json = report.json();
    EXPECT_EQ(json["mode"].toString(), "simulator");
    EXPECT_TRUE(json["passed"].toBool());
    EXPECT_EQ(json["checks"].toArray().size(), static_cast<qsizetype>(report.checks().size()));
}

TEST_F(Doctor, ASimulatorThatIsNotRunningIsTheOneFailure) {
    const QString socket = path("nobody.sock");
    useStandIns();

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

TEST(DoctorVersionLine, OnlyBuildsSinceTheLastReleaseKnowMacs) {
    const std::pair<const char*, doctor::MacSupport> lines[] = {
        {"idevicerestore 1.0.0-270-g405fcd1 (libirecovery 1.3.0, libtatsu 1.0.5)",
         doctor::MacSupport::Known},
        {"idevicerestore 1.0.0-270-g405fcd1-dirty", doctor::MacSupport::Known},
        {"idevicerestore 1.1.0", doctor::MacSupport::Known},
        {"idevicerestore 1.0.10", doctor::MacSupport::Known},
        // Debian 12's, the last release (2020): it knows no Mac.
        {"idevicerestore 1.0.0", doctor::MacSupport::TooOld},
        {"idevicerestore 1.0.0 (libirecovery 1.0.0)", doctor::MacSupport::TooOld},
        {"idevicerestore 1.0.0-dirty", doctor::MacSupport::TooOld},
        {"idevicerestore 0.9.2-41-gd2c0f2b", doctor::MacSupport::TooOld},
        {"idevicerestore 1.0", doctor::MacSupport::TooOld},
        {"idevicerestore version unknown", doctor::MacSupport::Unreadable},
        {"idevicerestore 1.0.0.1", doctor::MacSupport::Unreadable},
        {"Usage: idevicerestore [OPTIONS] PATH", doctor::MacSupport::Unreadable},
        {"", doctor::MacSupport::Unreadable},
    };
    for (const auto& [line, expected] : lines)
        EXPECT_EQ(doctor::macSupport(QString::fromUtf8(line)), expected) << line;
}

TEST(DoctorUdevRule, ARuleKnowsTheRestoreModeIdsItsPatternsMatch) {
    const QStringList all{"0x1901", "0x1902", "0x1903", "0x1904", "0x1905"};
    const std::pair<const char*, QStringList> rules[] = {
        // Debian 12's usbmuxd 1.1.1: iPhones and iPads only.
        {R"(SUBSYSTEM=="usb", ENV{DEVTYPE}=="usb_device", ENV{PRODUCT}=="5ac/12[9a][0-9a-f]/*", ACTION=="add", ENV{USBMUX_SUPPORTED}="1")",
         all},
        {R"(ENV{PRODUCT}=="5ac/12[9a][0-9a-f]/*|5ac/190[1-5]/*|5ac/8600/*", TAG+="systemd")", {}},
        {R"(ENV{PRODUCT}=="5ac/190[0-9a-f]/*")", {}},
        {R"(ENV{PRODUCT}=="5ac/1901/*|5ac/1903/*")", {"0x1902", "0x1904", "0x1905"}},
        {R"(ATTR{idVendor}=="05ac", ATTR{idProduct}=="190[1-3]")", {"0x1904", "0x1905"}},
        {R"(ATTRS{idProduct}=="19*")", {}},
        // Another vendor's 0x1901 is not a Mac.
        {R"(ENV{PRODUCT}=="1d6b/190[1-5]/*")", all},
        {R"(# ENV{PRODUCT}=="5ac/190[1-5]/*" waits for usbmuxd 1.1.2)", all},
        {"190[1-5]", all},
        {"", all},
    };
    for (const auto& [text, unknown] : rules)
        EXPECT_EQ(doctor::restoreModeIdsUnknownTo(QString::fromUtf8(text)), unknown) << text;
}

TEST_F(Doctor, OnAHardwareBenchTheUsbmuxdRuleInForceDecides) {
    write("bin/usbmuxd", "#!/bin/sh\n", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    write("lib/rules.d/39-usbmuxd.rules",
          R"(ENV{PRODUCT}=="5ac/12[9a][0-9a-f]/*", OWNER="usbmux")");
    write("lib/rules.d/60-other.rules", R"(ENV{PRODUCT}=="5ac/190[1-5]/*", MODE="0666")");

    const Check old = find(examine(), "usbmuxd udev rule");
    EXPECT_EQ(old.status, Check::Status::Failed);
    EXPECT_EQ(old.detail, path("lib/rules.d/39-usbmuxd.rules") +
                              " does not know the restore-mode product ids 0x1901, 0x1902, "
                              "0x1903, 0x1904, 0x1905");
    EXPECT_TRUE(old.fix.contains("upstream's current source"));
    EXPECT_EQ(find(examine(), "usbmuxd").detail, path("bin/usbmuxd"));

    // The administrator's copy of the same name hides the distribution's.
    write("etc/rules.d/39-usbmuxd.rules",
          R"(ENV{PRODUCT}=="5ac/12[9a][0-9a-f]/*|5ac/190[1-5]/*", OWNER="usbmux")");
    const Check current = find(examine(), "usbmuxd udev rule");
    EXPECT_EQ(current.status, Check::Status::Ok);
    EXPECT_EQ(current.detail, path("etc/rules.d/39-usbmuxd.rules") +
                                  " knows the restore-mode product ids 0x1901–0x1905");
}

TEST_F(Doctor, TheEngineSaysWhyItWasChosenAndWhatItLacks) {
    setting("restoreEngine", "cfgutil");
    doctor::DoctorReport report = examine();
    EXPECT_EQ(find(report, "restore engine").detail,
              "cfgutil, because the restoreEngine setting names it");
    EXPECT_THROW(find(report, "idevicerestore"), std::runtime_error);

    setting("restoreEngine", "auto");
    write("bin/idevicerestore", "#!/bin/sh\necho 'idevicerestore 1.0.0'\n",
          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    setting("firmwarePath", path("UniversalMac_15.3.1_24D70_Restore.ipsw"));
    report = examine();
    EXPECT_EQ(find(report, "restore engine").detail,
              "idevicerestore, because restoreEngine is \"auto\" and Apple Configurator's tool is "
              "not at " +
                  path("bin/cfgutil"));
    EXPECT_EQ(find(report, "idevicerestore").detail, path("bin/idevicerestore"));
    const Check& version = find(report, "idevicerestore version");
    EXPECT_EQ(version.status, Check::Status::Failed);
    EXPECT_EQ(version.detail, "idevicerestore 1.0.0: cannot restore Macs");
    EXPECT_TRUE(version.fix.contains("libirecovery ≥ 1.3.0"));
    const Check& firmware = find(report, "firmware");
    EXPECT_EQ(firmware.status, Check::Status::Failed);
    EXPECT_EQ(firmware.detail, path("UniversalMac_15.3.1_24D70_Restore.ipsw") + " does not exist");

    setting("firmwarePath", "");
    report = examine();
    EXPECT_EQ(find(report, "firmware").status, Check::Status::Warning);
    EXPECT_EQ(find(report, "firmware").fix, "set firmwarePath or pass --ipsw");
    EXPECT_TRUE(report.text().contains("WARN firmware: none given"));
    EXPECT_TRUE(report.text().contains("     fix: set firmwarePath or pass --ipsw\n"));
    EXPECT_TRUE(find(report, "free space").detail.contains(" GB free for " + root_.path()));
}

TEST(DoctorCommand, OnASimulatedStationItReadsTheStandInAndTheStationsFirmware) {
    testing_support::SimulatedStation station;
    station.setPreference("restoreEngine", "auto");
    ASSERT_EQ(station.start({"--station", station.writeStation(R"({
      "idevicerestore": {"version": "1.0.0"},
      "hubs": [{"serial": "0x1C3B4A01", "macs": []}]})")}),
              station.socket());

    const testing_support::ProcessResult run = station.cli({"doctor", "--json"});

    EXPECT_EQ(run.exitCode, 1) << run.standardError.toStdString();
    std::map<QString, QJsonObject> checks;
    const QJsonDocument json = QJsonDocument::fromJson(run.standardOutput.toUtf8());
    for (const auto& value : json["checks"].toArray())
        checks[value.toObject()["name"].toString()] = value.toObject();
    EXPECT_EQ(checks["restore engine"]["detail"].toString(),
              "idevicerestore, because restoreEngine is \"auto\" and a simulated station on Linux "
              "stands in for a Linux bench");
    EXPECT_TRUE(
        checks["idevicerestore"]["detail"].toString().endsWith("/tarvel-sim-idevicerestore"));
    EXPECT_EQ(checks["idevicerestore version"]["status"].toString(), "failed");
    EXPECT_EQ(checks["idevicerestore version"]["detail"].toString(),
              "idevicerestore 1.0.0 (libirecovery 1.3.0, libtatsu 1.0.5): cannot restore Macs");
    EXPECT_EQ(checks["usbmuxd"]["status"].toString(), "not needed");
    EXPECT_EQ(checks["usbmuxd udev rule"]["status"].toString(), "not needed");
    EXPECT_EQ(checks["firmware"]["status"].toString(), "ok");
    EXPECT_TRUE(checks["firmware"]["detail"].toString().endsWith(
        "/simulated-firmware/UniversalMac_15.3.1_24D70_Restore.ipsw"));
    EXPECT_NE(checks["free space"]["status"].toString(), "failed");
}

}  // namespace
