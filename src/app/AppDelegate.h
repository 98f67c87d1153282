#pragma once

#include "core/NotificationCenter.h"

#include <QDateTime>
#include <QObject>
#include <QString>

#include <functional>
#include <mutex>

namespace core {
class Alerts;
class Clock;
class Settings;
}  // namespace core

namespace app {

// What the delegate reaches outside itself; the application wires the real ones, tests record.
struct AppDelegateEnvironment {
    core::Settings* settings = nullptr;
    core::Clock* clock = nullptr;
    core::NotificationCenter* notifications = nullptr;
    core::Alerts* alerts = nullptr;
    // Empty when the information dictionary has none: then there is no banner.
    QString bundleVersion;
    std::function<void(const QString&)> log;
    std::function<void(const QString&)> standardOutput;
    std::function<void()> takeDisplaySleepAssertion;
    std::function<void()> bringToFront;
    std::function<void()> disconnectAllHubs;
    std::function<void()> startVersionCheck;
};

// What is global to one run of the application: the launch banner, the display kept awake, the
// pull back to the front after a DFU request, the quit guard while a batch runs, and the hubs let
// go at the end, and the alert when installing the helper failed. All of it runs on the main
// thread; the stay-in-front notifications may arrive from a hub sequence's worker, and the
// helper's from whichever thread first used it.
class AppDelegate : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool preventTermination READ preventTermination WRITE setPreventTermination NOTIFY
                   preventTerminationChanged)

  public:
    static inline const QString lastRequestedStayInFrontNotification =
        QStringLiteral("LastRequestedStayInFrontNotification");
    static inline const QString cancelStayInFrontNotification =
        QStringLiteral("CancelStayInFrontNotification");
    static inline const QString helperNotInstalledTitle =
        QStringLiteral("The Helper Could Not Be Installed");
    // Followed by the reason installing the helper gave.
    static inline const QString helperNotInstalledText = QStringLiteral(
        "Tarvel could not install its helper for the DFU port on this Mac, so the device on that "
        "port cannot be put into DFU mode or restarted. ");
    // The hub window's identifier: closing it lets go of the hubs.
    static inline const QString hubWindowIdentifier = QStringLiteral("acroname");

    explicit AppDelegate(AppDelegateEnvironment environment, QObject* parent = nullptr);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    // Each time the application loses the focus.
    void appMovedToBackground();
    // Answers whether the application may quit now; refuses with an alert while a batch runs.
    bool applicationShouldTerminate();
    void applicationWillTerminate();
    void windowWillClose(const QString& identifier);

    bool preventTermination() const { return preventTermination_; }
    void setPreventTermination(bool prevent);

    QDateTime lastRequestedStayInFront() const;

  signals:
    void preventTerminationChanged(bool prevent);

  private:
    void observeStayInFrontRequests();
    void observeHelperInstallation();
    void setLastRequestedStayInFront(const QDateTime& moment);
    void logBanner();

    AppDelegateEnvironment environment_;
    bool preventTermination_ = false;
    mutable std::mutex stayInFrontMutex_;
    QDateTime lastRequestedStayInFront_;  // invalid stands for the distant past
    QList<core::NotificationCenter::Token> observers_;
};

}  // namespace app
