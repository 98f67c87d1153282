#include "core/BundleInfo.h"
#include "core/BundledDefaults.h"
#include "core/SettingsKeys.h"
#include "support/TestSettings.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using core::Settings;
using testing_support::TestSettings;

TEST(Settings, FreshUserGetsTheShippedDefaults) {
    TestSettings fixture;
    Settings& settings = fixture.settings();
    EXPECT_EQ(settings.stringForKey(core::keys::timeBetweenProcesses), "3");
    EXPECT_EQ(settings.stringForKey(core::keys::stayInFrontAfterDFUSecs), "15");
    EXPECT_TRUE(settings.boolForKey(core::keys::shouldPlaySound));
    EXPECT_TRUE(settings.boolForKey(core::keys::removeACCache));
    EXPECT_TRUE(settings.boolForKey(core::keys::acronameSkipDFUSDPMode));
    EXPECT_FALSE(settings.boolForKey(core::keys::shouldUseEventScript));
    EXPECT_FALSE(settings.boolForKey(core::keys::showDebug));
    EXPECT_FALSE(settings.boolForKey(core::keys::checkForUpdates));
    // The reboot count must land in the range the recovery sequence honours.
    const qint64 reboots = settings.integerForKey(core::keys::acronameRecoveryRebootTimes);
    EXPECT_GE(reboots, 1);
    EXPECT_LE(reboots, 10);
    for (const char* key : {core::keys::acronameDelayAfterRebootAllPorts,
                            core::keys::acronameDelayAfterSettingPowerMode,
                            core::keys::acronameRecoveryRebootDelay,
                            core::keys::acronameDelayAfterSendingDFUCommand,
                            core::keys::acronameDelayAfterPuttingAllPortInDFUMode})
        EXPECT_GT(settings.doubleForKey(key), 0) << key;
    EXPECT_TRUE(settings.userKeys().isEmpty());
}

TEST(Settings, ShippedDefaultsAgreeWithTheOptionsSheet) {
    TestSettings fixture;
    for (const core::OptionsSheetDefault& option : core::optionsSheetDefaults()) {
        const QVariant shipped = fixture.settings().object(option.key);
        ASSERT_TRUE(shipped.isValid()) << option.key;
        EXPECT_EQ(shipped.toString(), option.value.toString()) << option.key;
        EXPECT_NE(core::findSettingKey(option.key), nullptr) << option.key;
    }
}

TEST(Settings, AbsentKeysReadAsZeroAndUserValuesWin) {
    TestSettings fixture(false);
    Settings& settings = fixture.settings();
    EXPECT_FALSE(settings.boolForKey("nothing"));
    EXPECT_EQ(settings.integerForKey("nothing"), 0);
    EXPECT_EQ(settings.doubleForKey("nothing"), 0.0);
    EXPECT_EQ(settings.stringForKey("nothing"), "");

    settings.registerDefaults({{"speed", 2.5}});
    EXPECT_EQ(settings.doubleForKey("speed"), 2.5);
    settings.setValue("speed", 7.25);
    EXPECT_EQ(settings.doubleForKey("speed"), 7.25);
    settings.remove("speed");
    EXPECT_EQ(settings.doubleForKey("speed"), 2.5);
}

TEST(Settings, TextIsKeptAsTypedAndConvertedOnlyWhenRead) {
    TestSettings fixture;
    Settings& settings = fixture.settings();
    settings.setValue(core::keys::timeBetweenProcesses, QStringLiteral("abc"));
    EXPECT_EQ(settings.stringForKey(core::keys::timeBetweenProcesses), "abc");
    EXPECT_EQ(settings.integerForKey(core::keys::timeBetweenProcesses), 0);

    settings.setValue("mixed", QStringLiteral(" 12abc"));
    EXPECT_EQ(settings.integerForKey("mixed"), 12);
    settings.setValue("fraction", QStringLiteral("2.7"));
    EXPECT_EQ(settings.integerForKey("fraction"), 2);
    EXPECT_DOUBLE_EQ(settings.doubleForKey("fraction"), 2.7);
}

TEST(Settings, BooleanReadsFollowThePlatformTextRules) {
    for (const char* yes : {"YES", "yes", "true", "T", "1", "007", "  y"}) EXPECT_TRUE(core::textAsBool(yes)) << yes;
    for (const char* no : {"NO", "false", "0", "", "abc", "000"}) EXPECT_FALSE(core::textAsBool(no)) << no;
    TestSettings fixture(false);
    fixture.settings().setValue("flag", true);
    EXPECT_TRUE(fixture.settings().boolForKey("flag"));
    fixture.settings().setValue("flag", false);
    EXPECT_FALSE(fixture.settings().boolForKey("flag"));
}

TEST(Settings, AnotherProcessWritingTheStoreIsSeenAtTheNextRead) {
    TestSettings fixture(false);
    EXPECT_FALSE(fixture.settings().boolForKey(core::keys::showDebug));
    {
        QSettings other(fixture.path(), QSettings::IniFormat);
        other.setValue(core::keys::showDebug, true);
    }
    EXPECT_TRUE(fixture.settings().boolForKey(core::keys::showDebug));
}

TEST(BundledDefaults, ResourceStates) {
    EXPECT_EQ(core::readDefaultsResource(":/defaults.plist").state,
              core::DefaultsResource::State::Dictionary);
    EXPECT_EQ(core::readDefaultsResource("/nonexistent/defaults.plist").state,
              core::DefaultsResource::State::Absent);

    QTemporaryDir dir;
    QFile array(dir.filePath("array.plist"));
    ASSERT_TRUE(array.open(QIODevice::WriteOnly));
    array.write("<?xml version=\"1.0\"?><plist version=\"1.0\"><array><true/></array></plist>");
    array.close();
    EXPECT_EQ(core::readDefaultsResource(array.fileName()).state,
              core::DefaultsResource::State::Unreadable);

    QFile garbage(dir.filePath("garbage.plist"));
    ASSERT_TRUE(garbage.open(QIODevice::WriteOnly));
    garbage.write("not a property list");
    garbage.close();
    EXPECT_EQ(core::readDefaultsResource(garbage.fileName()).state,
              core::DefaultsResource::State::Unreadable);
}

TEST(BundledDefaultsDeathTest, UnreadableResourceStopsTheProgram) {
    QTemporaryDir dir;
    QFile garbage(dir.filePath("defaults.plist"));
    ASSERT_TRUE(garbage.open(QIODevice::WriteOnly));
    garbage.write("<plist><dict><key>x</key>");
    garbage.close();
    TestSettings fixture(false);
    EXPECT_DEATH(core::registerBundledDefaults(fixture.settings(), garbage.fileName()),
                 "cannot be read as a dictionary");
}

TEST(BundleInfo, IdentifiesTheApplication) {
    const core::BundleInfo& bundle = core::BundleInfo::shared();
    EXPECT_EQ(bundle.identifier(), "com.kestrune.Tarvel");
    EXPECT_FALSE(bundle.bundleVersion().isEmpty());
    EXPECT_FALSE(bundle.shortVersion().isEmpty());
    EXPECT_TRUE(bundle.troubleshootingGuide().startsWith("https://"));
}
