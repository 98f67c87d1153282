#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

namespace core {
class Alerts;
class Settings;
}  // namespace core

namespace app {

// Asks the version service whether a newer release exists and, when one does, offers to open the
// release notes. It never blocks and never bothers the user with its own failures.
class VersionCheck : public QObject {
    Q_OBJECT

  public:
    struct Environment {
        core::Settings* settings = nullptr;
        core::Alerts* alerts = nullptr;
        QString appIdentifier;  // also the key of this application's entry in the document
        QString appVersion;     // the short version, as the service writes versions
        std::function<void(const QUrl&)> openURL;
    };

    // How a check ended, for the log and for tests.
    enum class Outcome { NoURL, NetworkError, BadStatus, BadDocument, NoEntry, NotNewer, Newer };
    Q_ENUM(Outcome)

    explicit VersionCheck(Environment environment, QObject* parent = nullptr);
    ~VersionCheck() override;

    // Starts the request; the answer and any alert come later on this object's thread.
    void start();

    // Dot-separated versions compared number by number; a missing component counts as 0.
    static bool isNewer(const QString& candidate, const QString& installed);

  signals:
    void finished(app::VersionCheck::Outcome outcome);

  private:
    QString uniqueID();
    void handleReply(QNetworkReply* reply);
    Outcome evaluate(QNetworkReply* reply, QString& newerVersion) const;
    void offerUpdate(const QString& newerVersion);

    Environment environment_;
    QNetworkAccessManager* network_;
};

}  // namespace app
