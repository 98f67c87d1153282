#include "app/VersionCheck.h"

#include "LocalHttpServer.h"

#include "core/SettingsKeys.h"
#include "support/RecordingAlerts.h"
#include "support/TestSettings.h"

#include <QSignalSpy>
#include <QUuid>

#include <gtest/gtest.h>

namespace {

using app::VersionCheck;
using Outcome = app::VersionCheck::Outcome;

const QByteArray kNewer = R"({"com.kestrune.Tarvel": {"product": "com.kestrune.Tarvel",
    "version": "1.10.0", "release_date": "2026-11-01"}})";

QByteArray entryWithVersion(const QByteArray& version, qsizetype paddedTo = 0) {
    QByteArray body = R"({"com.kestrune.Tarvel": {"product": "x", "version": ")" + version +
                      R"(", "release_date": ""}, "padding": ")";
    body += QByteArray(std::max<qsizetype>(0, paddedTo - body.size() - 2), 'x') + "\"}";
    return body;
}

class VersionCheckTest : public ::testing::Test {
  protected:
    VersionCheckTest() {
        settings.settings().setValue(core::keys::versionCheckURL, server.url());
        settings.settings().setValue(core::keys::versionHistoryURL,
                                     QStringLiteral("https://example.com/releases"));
    }

    // Runs one check to its end and answers how it ended.
    Outcome check() {
        VersionCheck versionCheck({&settings.settings(), &alerts,
                                   QStringLiteral("com.kestrune.Tarvel"), QStringLiteral("1.9.2"),
                                   [this](const QUrl& url) { opened << url; }});
        QSignalSpy finished(&versionCheck, &VersionCheck::finished);
        versionCheck.start();
        if (finished.isEmpty() && !finished.wait(5000))
            ADD_FAILURE() << "the check never ended";
        return finished.isEmpty() ? Outcome::NoURL : finished.front().front().value<Outcome>();
    }

    testing_support::LocalHttpServer server;
    testing_support::TestSettings settings;
    testing_support::RecordingAlerts alerts;
    QList<QUrl> opened;
};

TEST_F(VersionCheckTest, ANewerVersionIsOfferedWithItsUpdatePage) {
    server.respond(200, kNewer);
    EXPECT_EQ(check(), Outcome::Newer);
    ASSERT_EQ(alerts.shown().size(), 1u);
    EXPECT_EQ(alerts.shown().front().message,
              "A new version of Tarvel is available. The currently installed version "
              "is 1.9.2 and the new version is 1.10.0.");
    EXPECT_EQ(opened, (QList<QUrl>{QUrl("https://example.com/releases")}));

    alerts.answer = 1;
    check();
    EXPECT_EQ(opened.size(), 1) << "Cancel opens nothing";
}

TEST_F(VersionCheckTest, EveryOtherEndingIsSilent) {
    const struct {
        int status;
        QByteArray body;
        Outcome outcome;
    } cases[] = {
        {304, kNewer, Outcome::BadStatus},
        {500, kNewer, Outcome::BadStatus},
        {200, "{\"com.kestrune.Tarvel\": ", Outcome::BadDocument},
        {200, "[1, 2]", Outcome::BadDocument},
        {200, R"({"com.kestrune.Other": {"product": "x", "version": "9.0", "release_date": ""}})",
         Outcome::NoEntry},
        {200, entryWithVersion("1.9.2"), Outcome::NotNewer},
        {200, entryWithVersion("1.9"), Outcome::NotNewer},
        // A version that is not digits and dots could carry markup into the alert.
        {200, entryWithVersion("9.<a href='https://example.invalid/x'>click</a>"),
         Outcome::BadVersion},
        {200, entryWithVersion("9.0 "), Outcome::BadVersion},
        {200, entryWithVersion("<b>9</b>"), Outcome::BadVersion},
        {200, entryWithVersion("9..0"), Outcome::BadVersion},
        {200, entryWithVersion("\u0669.0"), Outcome::BadVersion},
        {200, entryWithVersion(""), Outcome::BadVersion},
        {200, entryWithVersion("9.0", VersionCheck::maxBodyBytes + 1), Outcome::TooLarge},
    };
    for (const auto& c : cases) {
        server.respond(c.status, c.body);
        EXPECT_EQ(check(), c.outcome) << c.status << " " << c.body.toStdString();
    }
    EXPECT_TRUE(alerts.shown().empty());
    EXPECT_TRUE(opened.isEmpty());
}

TEST_F(VersionCheckTest, NoAddressOrNoServerEndsSilently) {
    settings.settings().setValue(core::keys::versionCheckURL, QStringLiteral("not a url"));
    EXPECT_EQ(check(), Outcome::NoURL);
    EXPECT_TRUE(server.requests().isEmpty());

    // Nothing listens on port 1.
    settings.settings().setValue(core::keys::versionCheckURL,
                                 QStringLiteral("http://127.0.0.1:1/version.json"));
    EXPECT_EQ(check(), Outcome::NetworkError);
    EXPECT_TRUE(alerts.shown().empty());
}

TEST_F(VersionCheckTest, RequestCarriesTheFourHeadersAndOneInstallationIdentifier) {
    ASSERT_FALSE(settings.settings().userValue(core::keys::uniqueID).isValid());
    server.respond(200, kNewer);
    check();
    check();
    ASSERT_EQ(server.requests().size(), 2);
    const auto& first = server.requests().front();
    EXPECT_EQ(first.value("accept"), "application/json");
    EXPECT_EQ(first.value("zmr-app-identifier"), "com.kestrune.Tarvel");
    EXPECT_EQ(first.value("zmr-app-version"), "1.9.2");

    const QString stored = settings.settings().stringForKey(core::keys::uniqueID);
    EXPECT_FALSE(QUuid::fromString(stored).isNull()) << stored.toStdString();
    EXPECT_EQ(first.value("zmr-info-unique-id"), stored.toUtf8());
    EXPECT_EQ(server.requests().back().value("zmr-info-unique-id"), stored.toUtf8());
}

TEST_F(VersionCheckTest, ABodyAtTheLimitIsRead) {
    server.respond(200, entryWithVersion("9.0", VersionCheck::maxBodyBytes));
    EXPECT_EQ(check(), Outcome::Newer);
    ASSERT_EQ(alerts.shown().size(), 1u);
    EXPECT_TRUE(alerts.shown().front().message.endsWith("the new version is 9.0."));
}

TEST(VersionComparison, NumericComponentByComponent) {
    EXPECT_TRUE(VersionCheck::isNewer("1.10", "1.9"));
    EXPECT_TRUE(VersionCheck::isNewer("2.0", "1.99.99"));
    EXPECT_TRUE(VersionCheck::isNewer("1.0.1", "1.0"));
    EXPECT_FALSE(VersionCheck::isNewer("1.0", "1.0.0"));
    EXPECT_FALSE(VersionCheck::isNewer("1.9", "1.10"));
    EXPECT_FALSE(VersionCheck::isNewer("0.1.0", "0.1.0"));
}

}  // namespace
