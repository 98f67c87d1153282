#include "core/LogLocation.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

class LogLocationTest : public ::testing::Test {
protected:
    core::LogLocationInputs inputs(uid_t uid) {
        core::LogLocationInputs in;
        in.realUserId = uid;
        in.realHomeFolder = [this] { return home; };
        in.touchMarker = [this] { ++touches; };
        in.rootFolder = tmp.filePath("vandor");
        in.uniqueFolderTemplate = tmp.filePath("vandor-XXXXXX");
        return in;
    }

    QTemporaryDir tmp;
    QString home = tmp.filePath("home");
    int touches = 0;
};

TEST_F(LogLocationTest, PreferredFolderWinsWhenItExistsEvenAsAFileElseTheUserFolder) {
    QDir().mkpath(home + "/logs");
    auto in = inputs(501);
    in.logFolderPathPreference = "~/logs";
    EXPECT_EQ(core::chooseLogLocation(in).filePath(), home + "/logs/generic.log");
    QFile file(tmp.filePath("plain-file"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    in.logFolderPathPreference = file.fileName();
    EXPECT_EQ(core::chooseLogLocation(in).folder, file.fileName());
    EXPECT_EQ(touches, 0);

    in.logFolderPathPreference = tmp.filePath("missing");
    const core::LogLocation location = core::chooseLogLocation(in);
    EXPECT_EQ(location.folder, core::userLogFolder(home));
    EXPECT_TRUE(QFileInfo(location.folder).isDir());
    EXPECT_EQ(touches, 1);
}

TEST_F(LogLocationTest, RootAndTheSecurityAgentUseTheFixedPrivateFolder) {
    for (uid_t uid : {uid_t(0), uid_t(92)}) {
        const core::LogLocation location = core::chooseLogLocation(inputs(uid));
        EXPECT_EQ(location.filePath(), tmp.filePath("vandor/generic.log"));
        EXPECT_TRUE(location.ownerOnly);
    }
    EXPECT_EQ(touches, 0);
    EXPECT_EQ(QFileInfo(tmp.filePath("vandor")).permissions() & 0x0077, 0);
}

TEST_F(LogLocationTest, APlantedLinkInPlaceOfTheFixedFolderIsNotFollowed) {
    QDir().mkpath(tmp.filePath("elsewhere"));
    ASSERT_EQ(::symlink(qPrintable(tmp.filePath("elsewhere")), qPrintable(tmp.filePath("vandor"))), 0);
    const core::LogLocation location = core::chooseLogLocation(inputs(0));
    EXPECT_TRUE(location.folder.startsWith(tmp.filePath("vandor-"))) << location.folder.toStdString();
    EXPECT_TRUE(QFileInfo(location.folder).isDir());
}

TEST_F(LogLocationTest, UncreatableUserFolderFallsBackToAUniqueTemporaryFolder) {
    QFile blocker(tmp.filePath("home"));  // a file where the home folder should be
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    const core::LogLocation location = core::chooseLogLocation(inputs(501));
    EXPECT_TRUE(location.folder.startsWith(tmp.filePath("vandor-"))) << location.folder.toStdString();
    EXPECT_EQ(QFileInfo(location.folder).permissions() & 0x0077, 0);
}

TEST_F(LogLocationTest, FileNamePreferenceThenBundleThenGeneric) {
    auto in = inputs(501);
    EXPECT_EQ(core::chooseLogLocation(in).fileName, "generic.log");
    in.bundleLogFileName = "bundle.log";
    EXPECT_EQ(core::chooseLogLocation(in).fileName, "bundle.log");
    in.logFileNamePreference = "bench-3.log";
    EXPECT_EQ(core::chooseLogLocation(in).fileName, "bench-3.log");
}

}  // namespace
