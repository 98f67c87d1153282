#include "hubs/stem/HubLibrary.h"

#include "core/ZMRUnifiedLogger.h"
#include "support/Scripts.h"

#include <gtest/gtest.h>

namespace {

using stem::HubLibrary;

QString moduleFile(const char* folder) {
    return qEnvironmentVariable("TARVEL_BUILD_DIR") + QStringLiteral("/tests/hub-modules/") +
           QString::fromLatin1(folder) + QStringLiteral("/tarvel-brainstem.so");
}

TEST(HubLibraryTest, LoadsTheFirstModuleThatExistsAndItsBackendWorks) {
    const HubLibrary library(
        {QStringLiteral("/nonexistent/tarvel-brainstem.so"), moduleFile("good")});

    ASSERT_EQ(library.state(), HubLibrary::State::Loaded) << library.problem().toStdString();
    EXPECT_EQ(library.path(), moduleFile("good"));
    EXPECT_EQ(library.description(), "test module, one hub");
    EXPECT_TRUE(library.problem().isEmpty());

    const auto backend = library.createBackend();
    ASSERT_NE(backend, nullptr);
    std::uint32_t serial = 0;
    const auto found = backend->aDiscovery_EnumerateModules(
        stem::LinkType::USB,
        [&](const stem::LinkSpec& spec, bool&) {
            serial = spec.serial_num;
            return true;
        },
        stem::LOCALHOST_IP_ADDRESS);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(serial, 0x1C3B4A01u);
    // The module logs through Tarvel's logger, not on its own.
    EXPECT_EQ(ZMRUnifiedLogger::sharedLogger().lastLine(), "test hub module: discovery");
}

TEST(HubLibraryTest, WithoutAModuleSaysWhereItLookedAndHowToBuildOne) {
    const HubLibrary library({QStringLiteral("/nonexistent/a/tarvel-brainstem.so"),
                              QStringLiteral("/nonexistent/b/tarvel-brainstem.so")});

    EXPECT_EQ(library.state(), HubLibrary::State::Absent);
    EXPECT_TRUE(library.path().isEmpty());
    EXPECT_EQ(library.createBackend(), nullptr);
    EXPECT_TRUE(library.problem().contains("/nonexistent/a/tarvel-brainstem.so, /nonexistent/b/"));
    EXPECT_TRUE(library.problem().contains("/usr/share/tarvel/hub-module"));
}

TEST(HubLibraryTest, RefusesAModuleBuiltForAnotherInterface) {
    const HubLibrary library({moduleFile("other-interface")});

    EXPECT_EQ(library.state(), HubLibrary::State::WrongVersion);
    EXPECT_EQ(library.createBackend(), nullptr);
    EXPECT_TRUE(
        library.problem().contains(QStringLiteral("module interface %1, this Tarvel needs %2")
                                       .arg(stem::kModuleInterfaceVersion + 1)
                                       .arg(stem::kModuleInterfaceVersion)))
        << library.problem().toStdString();
}

TEST(HubLibraryTest, ReportsAFileThatIsNotAModule) {
    testing_support::Scripts folder;
    const QString garbage = folder.write("tarvel-brainstem.so", "not a shared library");

    const HubLibrary notElf({garbage});
    EXPECT_EQ(notElf.state(), HubLibrary::State::LoadFailed);
    EXPECT_EQ(notElf.path(), garbage);
    EXPECT_TRUE(notElf.problem().contains("does not load")) << notElf.problem().toStdString();
    EXPECT_EQ(notElf.createBackend(), nullptr);

    // A real library, but not one of ours: the first module found is used, so no fallback.
    const HubLibrary notOurs({moduleFile("no-entry-points"), moduleFile("good")});
    EXPECT_EQ(notOurs.state(), HubLibrary::State::LoadFailed);
    EXPECT_TRUE(notOurs.problem().contains("is not a Tarvel hub library module"));
}

TEST(HubLibraryTest, TheModuleBuiltFromTheAdapterLoadsAndDescribesItsSdk) {
    const HubLibrary older({moduleFile("standin-2.9")});
    ASSERT_EQ(older.state(), HubLibrary::State::Loaded) << older.problem().toStdString();
    EXPECT_TRUE(older.description().contains("cannot send reboot and DFU messages"));

    const HubLibrary current({moduleFile("standin-2.10")});
    ASSERT_EQ(current.state(), HubLibrary::State::Loaded) << current.problem().toStdString();
    EXPECT_EQ(current.description(),
              QStringLiteral("BrainStem2 SDK adapter, module interface %1, sends reboot and DFU "
                             "messages")
                  .arg(stem::kModuleInterfaceVersion));
    // The adapter's own discovery runs through the module and finds no hub on the stand-in.
    const auto backend = current.createBackend();
    ASSERT_NE(backend, nullptr);
    EXPECT_EQ(backend->aDiscovery_EnumerateModules(
                  stem::LinkType::USB, [](const stem::LinkSpec&, bool&) { return true; },
                  stem::LOCALHOST_IP_ADDRESS),
              0);
}

TEST(HubLibraryTest, TheEnvironmentNamesTheOnlyPlaceToLook) {
    qputenv(HubLibrary::kPathVariable, "/opt/hubs/mine.so");
    EXPECT_EQ(HubLibrary::searchPaths(), QStringList{"/opt/hubs/mine.so"});
    qunsetenv(HubLibrary::kPathVariable);

    const QStringList usual = HubLibrary::searchPaths();
    ASSERT_EQ(usual.size(), 2);
    // Beside the executable's folder (bin/), as in the build tree and an installation.
    EXPECT_TRUE(usual[0].endsWith("/lib/tarvel/tarvel-brainstem.so"));
    EXPECT_EQ(usual[1], "/usr/local/lib/tarvel/tarvel-brainstem.so");
}

}  // namespace
