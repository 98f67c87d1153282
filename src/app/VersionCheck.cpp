#include "app/VersionCheck.h"

#include "core/Alerts.h"
#include "core/Log.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
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
    QNetworkReply* reply = network_->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply] { handleReply(reply); });
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
    QString newerVersion;
    const Outcome outcome = evaluate(reply, newerVersion);
    ZMRLogDebug(QStringLiteral("Version check: %1")
                    .arg(QString::fromLatin1(
                        QMetaEnum::fromType<Outcome>().valueToKey(static_cast<int>(outcome)))));
    if (outcome == Outcome::Newer)
        offerUpdate(newerVersion);
    emit finished(outcome);
}

VersionCheck::Outcome VersionCheck::evaluate(QNetworkReply* reply, QString& newerVersion) const {
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid())
        return Outcome::NetworkError;
    if (status.toInt() < 200 || status.toInt() > 299)
        return Outcome::BadStatus;
    const QByteArray body = reply->readAll();
    if (reply->error() != QNetworkReply::NoError || body.isEmpty())
        return Outcome::NetworkError;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return Outcome::BadDocument;
    const QJsonValue entry = document.object().value(environment_.appIdentifier);
    if (!entry.isObject())
        return Outcome::NoEntry;
    const QJsonValue version = entry.toObject().value(QStringLiteral("version"));
    if (!version.isString())
        return Outcome::BadDocument;
    if (!isNewer(version.toString(), environment_.appVersion))
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
