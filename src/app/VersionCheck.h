#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

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
    enum class Outcome {
        NoURL,
        NetworkError,
        BadStatus,
        TooLarge,
        BadDocument,
        NoEntry,
        BadVersion,
        NotNewer,
        Newer
    };
    Q_ENUM(Outcome)

    explicit VersionCheck(Environment environment, QObject* parent = nullptr);
    ~VersionCheck() override;

    // Starts the request; the answer and any alert come later on this object's thread.
    void start();

    // A reply's body beyond this is not read: a version document is a few hundred bytes.
    static constexpr qint64 maxBodyBytes = 64 * 1024;

    // Dot-separated versions compared number by number; a missing component counts as 0.
    static bool isNewer(const QString& candidate, const QString& installed);
    // Digits and dots, as a version this application could have: anything else is not shown.
    static bool isVersionText(const QString& text);
    // The reply's body judged against this application's entry; `newerVersion` is set for Newer.
    static Outcome decode(const QByteArray& body, const QString& appIdentifier,
                          const QString& appVersion, QString& newerVersion);

  signals:
    void finished(app::VersionCheck::Outcome outcome);

  private:
    QString uniqueID();
    void readBody(QNetworkReply* reply);
    void handleReply(QNetworkReply* reply);
    std::optional<Outcome> transportOutcome(QNetworkReply* reply) const;
    void decodeAway(const QByteArray& body);
    void conclude(Outcome outcome, const QString& newerVersion);
    void offerUpdate(const QString& newerVersion);

    Environment environment_;
    QNetworkAccessManager* network_;
    QByteArray body_;
    bool tooLarge_ = false;
};

}  // namespace app
