#include "configurator/CacheCleanup.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using configurator::CachePlaces;

void touch(const QString& path) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write("x");
}

struct Outcome {
    int calls = 0;
    bool success = false;
    QString message;
};

class CacheCleanup : public ::testing::Test {
  protected:
    CacheCleanup() : places(CachePlaces::under(root.path())) {}

    Outcome clear(const configurator::ItemRemover& remover) {
        Outcome outcome;
        configurator::clearAC2Cache(places, remover, [&](bool success, const QString& message) {
            ++outcome.calls;
            outcome.success = success;
            outcome.message = message;
        });
        return outcome;
    }

    // The real remover, except for the paths a test says cannot go; every attempt is recorded.
    configurator::ItemRemover removerFailingFor(const QStringList& stuck) {
        return [this, stuck](const QString& path) -> std::optional<QString> {
            tried << path;
            if (stuck.contains(QFileInfo(path).fileName()))
                return QStringLiteral("busy");
            return configurator::fileSystemRemover()(path);
        };
    }

    QTemporaryDir root;
    CachePlaces places;
    QStringList tried;
    const QString service = "com.apple.configurator.xpc.DeviceService";
};

TEST_F(CacheCleanup, RemovesWhatConfiguratorLeftAndNothingElse) {
    touch(places.temporaryFolder + "/restore_bundle_1/Firmware/all_flash/x.img4");
    touch(places.temporaryFolder + "/keep.txt");
    touch(places.containerTemporaryItems + "/a/b.dmg");
    touch(places.containerTemporaryItems + "/.hidden");
    touch(places.varFolders + "/zz/abc/T/" + service + "/TemporaryItems/item");
    touch(places.varFolders + "/zz/abc/C/" + service + "/other");           // no TemporaryItems
    touch(places.varFolders + "/yy/def/T/" + service + "/TemporaryItems");  // a file, not a folder
    touch(places.varFolders + "/yy/TemporaryItems/keep");                   // not under the service

    const Outcome outcome = clear(configurator::fileSystemRemover());
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_TRUE(outcome.success);
    EXPECT_EQ(outcome.message, "");
    EXPECT_FALSE(QFileInfo::exists(places.temporaryFolder + "/restore_bundle_1"));
    EXPECT_TRUE(QFileInfo::exists(places.temporaryFolder + "/keep.txt"));
    EXPECT_TRUE(QDir(places.containerTemporaryItems)
                    .isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
    EXPECT_FALSE(QFileInfo::exists(places.varFolders + "/zz/abc/T/" + service + "/TemporaryItems"));
    EXPECT_TRUE(QFileInfo::exists(places.varFolders + "/zz/abc/C/" + service + "/other"));
    EXPECT_TRUE(QFileInfo(places.varFolders + "/yy/def/T/" + service + "/TemporaryItems").isFile());
    EXPECT_TRUE(QFileInfo::exists(places.varFolders + "/yy/TemporaryItems/keep"));
}

TEST_F(CacheCleanup, AStuckContainerEntryStopsTheRunAfterOneRetry) {
    touch(places.temporaryFolder + "/restore_bundle_stuck/x");
    touch(places.containerTemporaryItems + "/only");
    touch(places.varFolders + "/a/" + service + "/TemporaryItems/x");

    const Outcome outcome = clear(removerFailingFor({"only", "restore_bundle_stuck"}));
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_FALSE(outcome.success);
    EXPECT_EQ(outcome.message, "Error removing cache files. Please remove files at " +
                                   places.containerTemporaryItems + " before continuing");
    const QString entry = places.containerTemporaryItems + "/only";
    EXPECT_EQ(tried.count(entry), 2);
    // The stale bundle's failure did not count, and the search below var/folders never began.
    EXPECT_TRUE(tried.contains(places.temporaryFolder + "/restore_bundle_stuck"));
    EXPECT_TRUE(QFileInfo::exists(places.varFolders + "/a/" + service + "/TemporaryItems/x"));
}

TEST_F(CacheCleanup, AStuckTemporaryItemsFolderReportsItsErrorWithoutRetry) {
    touch(places.varFolders + "/a/" + service + "/TemporaryItems/x");
    const Outcome missingContainer = clear(removerFailingFor({"TemporaryItems"}));
    EXPECT_FALSE(missingContainer.success);
    EXPECT_EQ(missingContainer.message, "busy");
    EXPECT_EQ(tried, QStringList{places.varFolders + "/a/" + service + "/TemporaryItems"});

    // Nothing anywhere, not even the folders themselves, is a success.
    QDir(root.path()).removeRecursively();
    EXPECT_TRUE(clear(configurator::fileSystemRemover()).success);
}

TEST_F(CacheCleanup, TheWalkGoesOnPastFoldersThatVanishUnderIt) {
    touch(places.varFolders + "/x1/T/" + service + "/TemporaryItems/a");
    touch(places.varFolders + "/x2/T/" + service + "/TemporaryItems/b");
    // Whichever comes first takes its whole user folder with it, as a logout can mid-walk.
    QString vanished;
    const auto remover = [&](const QString& path) -> std::optional<QString> {
        tried << path;
        if (vanished.isEmpty()) {
            vanished = QFileInfo(path + "/../../..").canonicalFilePath();
            QDir(vanished).removeRecursively();
            return std::nullopt;
        }
        return configurator::fileSystemRemover()(path);
    };
    EXPECT_TRUE(clear(remover).success);
    EXPECT_EQ(tried.size(), 2) << tried.join(' ').toStdString();
    EXPECT_FALSE(QDir(places.varFolders + "/x1/T/" + service + "/TemporaryItems").exists());
    EXPECT_FALSE(QDir(places.varFolders + "/x2/T/" + service + "/TemporaryItems").exists());
}

}  // namespace
