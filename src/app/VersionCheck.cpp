#include "app/VersionCheck.h"

#include "core/Alerts.h"
#include "core/Dispatch.h"
#include "core/Log.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QRegularExpression>
#include <QUuid>

namespace app {
namespace {

constexpr int kTimeoutMilliseconds = 60 * 1000;

QList<qint64> versionComponents(const QString& version) {
    QList<qint64> components;
    for (const QString& piece : version.split(QLatin1Char('.')))
        components << piece.trimmed().toLongLong();
    return components;
}

}  // namespace

VersionCheck::VersionCheck(Environment environment, QObject* parent)
    : QObject(parent),
      environment_(std::move(environment)),
      network_(new QNetworkAccessManager(this)) {}

VersionCheck::~VersionCheck() = default;

void VersionCheck::start() {
    const QUrl url(environment_.settings->stringForKey(core::keys::versionCheckURL),
                   QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty() || url.host().isEmpty()) {
        emit finished(Outcome::NoURL);
        return;
    }
    QNetworkRequest request(url);
    request.setTransferTimeout(kTimeoutMilliseconds);
    request.setRawHeader("Accept", "application/json");
    request.setRawHeader("ZMR-INFO-UNIQUE-ID", uniqueID().toUtf8());
    request.setRawHeader("ZMR-APP-IDENTIFIER", environment_.appIdentifier.toUtf8());
    request.setRawHeader("ZMR-APP-VERSION", environment_.appVersion.toUtf8());
    body_.clear();
    tooLarge_ = false;
    QNetworkReply* reply = network_->get(request);
    connect(reply, &QNetworkReply::readyRead, this, [this, reply] { readBody(reply); });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { handleReply(reply); });
}

// A service that sends without end must not fill the memory: past the limit the reply is
// dropped.
void VersionCheck::readBody(QNetworkReply* reply) {
    if (tooLarge_)
        return;
    body_ += reply->read(maxBodyBytes + 1 - body_.size());
    if (body_.size() > maxBodyBytes) {
        tooLarge_ = true;
        body_.clear();
        reply->abort();
    }
}

// The installation's identifier is made once and kept, so the service counts installations,
// not launches.
QString VersionCheck::uniqueID() {
    QString identifier = environment_.settings->stringForKey(core::keys::uniqueID);
    if (identifier.isEmpty()) {
        identifier = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        environment_.settings->setValue(core::keys::uniqueID, identifier);
    }
    return identifier;
}

void VersionCheck::handleReply(QNetworkReply* reply) {
    reply->deleteLater();
    if (const auto ended = transportOutcome(reply)) {
        conclude(*ended, QString());
        return;
    }
    readBody(reply);
    if (tooLarge_) {
        conclude(Outcome::TooLarge, QString());
        return;
    }
    decodeAway(std::exchange(body_, QByteArray()));
}

std::optional<VersionCheck::Outcome> VersionCheck::transportOutcome(QNetworkReply* reply) const {
    if (tooLarge_)
        return Outcome::TooLarge;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid())
        return Outcome::NetworkError;
    if (status.toInt() < 200 || status.toInt() > 299)
        return Outcome::BadStatus;
    if (reply->error() != QNetworkReply::NoError)
        return Outcome::NetworkError;
    return std::nullopt;
}

// Parsing a document from outside is no work for the thread that draws the windows.
void VersionCheck::decodeAway(const QByteArray& body) {
    QPointer<VersionCheck> self(this);
    dispatch::global(
        [self, body, identifier = environment_.appIdentifier, installed = environment_.appVersion] {
            QString newer;
            const Outcome outcome = decode(body, identifier, installed, newer);
            dispatch::main([self, outcome, newer] {
                if (self)
                    self->conclude(outcome, newer);
            });
        });
}

void VersionCheck::conclude(Outcome outcome, const QString& newerVersion) {
    if (outcome == Outcome::BadVersion)
        ZMRLogLevel1(
            QStringLiteral("Version check: the reply's version is not digits and dots; "
                           "the reply is ignored"));
    ZMRLogDebug(QStringLiteral("Version check: %1")
                    .arg(QString::fromLatin1(
                        QMetaEnum::fromType<Outcome>().valueToKey(static_cast<int>(outcome)))));
    if (outcome == Outcome::Newer)
        offerUpdate(newerVersion);
    emit finished(outcome);
}

VersionCheck::Outcome VersionCheck::decode(const QByteArray& body, const QString& appIdentifier,
                                           const QString& appVersion, QString& newerVersion) {
    if (body.isEmpty())
        return Outcome::NetworkError;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return Outcome::BadDocument;
    const QJsonValue entry = document.object().value(appIdentifier);
    if (!entry.isObject())
        return Outcome::NoEntry;
    const QJsonValue version = entry.toObject().value(QStringLiteral("version"));
    if (!version.isString())
        return Outcome::BadDocument;
    if (!isVersionText(version.toString()))
        return Outcome::BadVersion;
    if (!isNewer(version.toString(), appVersion))
        return Outcome::NotNewer;
    newerVersion = version.toString();
    return Outcome::Newer;
}

void VersionCheck::offerUpdate(const QString& newerVersion) {
    core::Alert alert{
        QStringLiteral("New Version Available"),
        QStringLiteral("A new version of Tarvel is available. The currently installed version is "
                       "%1 and the new version is %2.")
            .arg(environment_.appVersion, newerVersion),
        {QStringLiteral("Open Update Page"), QStringLiteral("Cancel")}};
    alert.style = core::Alert::Style::Informational;
    if (environment_.alerts->show(alert) != 0)
        return;
    environment_.openURL(QUrl(environment_.settings->stringForKey(core::keys::versionHistoryURL)));
}

bool VersionCheck::isVersionText(const QString& text) {
    // Components short enough to compare as numbers; a real version has a handful of them.
    static const QRegularExpression pattern(QStringLiteral("^[0-9]{1,9}(\\.[0-9]{1,9}){0,7}$"));
    return pattern.match(text).hasMatch();
}

bool VersionCheck::isNewer(const QString& candidate, const QString& installed) {
    const QList<qint64> mine = versionComponents(installed);
    const QList<qint64> theirs = versionComponents(candidate);
    for (qsizetype i = 0; i < std::max(mine.size(), theirs.size()); ++i) {
        const qint64 a = i < theirs.size() ? theirs[i] : 0;
        const qint64 b = i < mine.size() ? mine[i] : 0;
        if (a != b)
            return a > b;
    }
    return false;
}

}  // namespace app
