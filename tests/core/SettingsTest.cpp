#include "core/BundledDefaults.h"
#include "core/SettingsKeys.h"
#include "support/TestSettings.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using core::Settings;
using testing_support::TestSettings;

TEST(Settings, ShippedDefaultsAgreeWithTheOptionsSheet) {
    TestSettings fixture;
    for (const core::OptionsSheetDefault& option : core::optionsSheetDefaults()) {
        const QVariant shipped = fixture.settings().object(option.key);
        ASSERT_TRUE(shipped.isValid()) << option.key;
        EXPECT_EQ(shipped.toString(), option.value.toString()) << option.key;
        EXPECT_NE(core::findSettingKey(option.key), nullptr) << option.key;
    }
    // The reboot count must land in the range the recovery sequence honours.
    const qint64 reboots = fixture.settings().integerForKey(core::keys::acronameRecoveryRebootTimes);
    EXPECT_GE(reboots, 1);
    EXPECT_LE(reboots, 10);
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

TEST(Settings, APauseOrBoundOutsideItsRangeFallsBackToTheShippedValue) {
    TestSettings fixture;
    Settings& settings = fixture.settings();
    const char* key = core::keys::verifyTimeoutSeconds;
    for (const QVariant& bad :
         {QVariant(1e30), QVariant(-5), QVariant("abc"), QVariant("nan"), QVariant("1e999"),
          QVariant(" 10"), QVariant("10 "), QVariant(true), QVariant(600.5)}) {
        settings.setValue(key, bad);
        EXPECT_EQ(settings.boundedNumber(key), 30) << bad.toString().toStdString();
    }
    for (const auto& [good, read] : {std::pair{QVariant(0), 0.0}, std::pair{QVariant(600), 600.0},
                                     std::pair{QVariant("45.5"), 45.5}}) {
        settings.setValue(key, good);
        EXPECT_EQ(settings.boundedNumber(key), read);
    }
    settings.setValue(core::keys::acronameDelayAfterSettingPowerMode, "-1");
    EXPECT_EQ(settings.boundedNumber(core::keys::acronameDelayAfterSettingPowerMode), 3);

    // Without a usable shipped value the range's own fallback holds.
    TestSettings bare(false);
    bare.settings().registerDefaults({{key, "forever"}});
    EXPECT_EQ(bare.settings().boundedNumber(key), 30);
}

TEST(Settings, IntegerReadsOfHugeRealsSaturateInsteadOfOverflowing) {
    EXPECT_EQ(core::variantAsInteger(1e30), std::numeric_limits<qint64>::max());
    EXPECT_EQ(core::variantAsInteger(-1e30), std::numeric_limits<qint64>::min());
    EXPECT_EQ(core::variantAsInteger(std::nan("")), 0);
    EXPECT_EQ(core::variantAsInteger(-7.9), -7);
}

TEST(Settings, BooleanReadsFollowThePlatformTextRules) {
    for (const char* yes : {"YES", "yes", "true", "T", "1", "007", "  y"}) EXPECT_TRUE(core::textAsBool(yes)) << yes;
    for (const char* no : {"NO", "false", "0", "", "abc", "000"}) EXPECT_FALSE(core::textAsBool(no)) << no;
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

static QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& content) {
    QFile file(dir.filePath(name));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
    return file.fileName();
}

TEST(BundledDefaults, ResourceStates) {
    using State = core::DefaultsResource::State;
    EXPECT_EQ(core::readDefaultsResource(":/defaults.plist").state, State::Dictionary);
    EXPECT_EQ(core::readDefaultsResource("/nonexistent/defaults.plist").state, State::Absent);
    QTemporaryDir dir;
    const QString array = writeFile(
        dir, "array.plist",
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><true/></array></plist>");
    EXPECT_EQ(core::readDefaultsResource(array).state, State::Unreadable);
    EXPECT_EQ(core::readDefaultsResource(writeFile(dir, "garbage.plist", "not a plist")).state,
              State::Unreadable);
}

TEST(BundledDefaultsDeathTest, UnreadableResourceStopsTheProgram) {
    QTemporaryDir dir;
    const QString garbage = writeFile(dir, "defaults.plist", "<plist><dict><key>x</key>");
    TestSettings fixture(false);
    EXPECT_DEATH(core::registerBundledDefaults(fixture.settings(), garbage),
                 "cannot be read as a dictionary");
}
