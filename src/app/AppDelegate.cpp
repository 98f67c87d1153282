#include "app/AppDelegate.h"

#include "app/StayInFront.h"

#include "core/Alerts.h"
#include "core/Clock.h"
#include "core/Dispatch.h"
#include "core/Log.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "localport/ZMRPrivHelperToolController.h"

#include <QPointer>

#include <QStringList>

namespace app {
namespace {

// Technicians copy these lines into a terminal, so they name the command exactly.
QStringList verbosityHint(bool showDebug) {
    if (showDebug)
        return {
            QStringLiteral("To disable verbose logging:"),
            QStringLiteral("defaults delete ~/Library/Preferences/com.kestrune.Tarvel showDebug")};
    return {QStringLiteral("Log showing only basic info and errors."),
            QStringLiteral("Set debugLogging to true to show verbose logging with"),
            QStringLiteral(
                "defaults write ~/Library/Preferences/com.kestrune.Tarvel showDebug -bool true")};
}

}  // namespace

AppDelegate::AppDelegate(AppDelegateEnvironment environment, QObject* parent)
    : QObject(parent), environment_(std::move(environment)) {}

AppDelegate::~AppDelegate() {
    for (const auto token : observers_) environment_.notifications->removeObserver(token);
}

void AppDelegate::applicationDidFinishLaunching() {
    environment_.log(
        core::sourceLocatedMessage(QString(), core::sourceFile(__FILE__), __LINE__,
                                   QStringLiteral("applicationDidFinishLaunching(_:)")));
    if (observers_.isEmpty()) {
        observeStayInFrontRequests();
        observeHelperInstallation();
    }
    environment_.takeDisplaySleepAssertion();
    logBanner();
    if (environment_.settings->boolForKey(core::keys::checkForUpdates))
        environment_.startVersionCheck();
}

void AppDelegate::observeStayInFrontRequests() {
    observers_ << environment_.notifications->addObserver(
        lastRequestedStayInFrontNotification, [this](const QString&, const QVariantMap&) {
            setLastRequestedStayInFront(environment_.clock->now());
        });
    observers_ << environment_.notifications->addObserver(
        cancelStayInFrontNotification,
        [this](const QString&, const QVariantMap&) { setLastRequestedStayInFront({}); });
}

void AppDelegate::observeHelperInstallation() {
    observers_ << environment_.notifications->addObserver(
        ZMRPrivHelperToolController::helperNotification,
        [this](const QString&, const QVariantMap& userInfo) {
            const auto error = userInfo.value(ZMRPrivHelperToolController::underlyingErrorKey)
                                   .value<localport::HelperError>();
            QPointer<AppDelegate> self(this);
            dispatch::main([self, error] {
                if (self)
                    self->environment_.alerts->show(
                        {helperNotInstalledTitle,
                         helperNotInstalledText + error.localizedDescription,
                         {}});
            });
        });
}

void AppDelegate::logBanner() {
    if (environment_.bundleVersion.isEmpty())
        return;
    const QString rule(66, QLatin1Char('-'));
    environment_.log(rule);
    const QString buildNumber =
        QStringLiteral("Tarvel Login Build Number: ") + environment_.bundleVersion;
    environment_.log(buildNumber);
    environment_.standardOutput(buildNumber + QLatin1Char('\n'));
    for (const QString& line :
         verbosityHint(environment_.settings->boolForKey(core::keys::showDebug)))
        environment_.log(line);
    environment_.log(rule);
}

void AppDelegate::appMovedToBackground() {
    const qint64 seconds =
        stay_in_front::seconds(environment_.settings->object(core::keys::stayInFrontAfterDFUSecs));
    if (stay_in_front::pullsBack(lastRequestedStayInFront(), environment_.clock->now(), seconds))
        environment_.bringToFront();
}

bool AppDelegate::applicationShouldTerminate() {
    if (!preventTermination_)
        return true;
    environment_.alerts->show(
        {QStringLiteral("Application Cannot Quit"),
         QStringLiteral("Tarvel cannot quit while an operation is in progress. Please cancel the "
                        "operation before quitting."),
         {}});
    return false;
}

void AppDelegate::applicationWillTerminate() {
    environment_.disconnectAllHubs();
}

void AppDelegate::windowWillClose(const QString& identifier) {
    if (identifier == hubWindowIdentifier)
        environment_.disconnectAllHubs();
}

void AppDelegate::setPreventTermination(bool prevent) {
    if (prevent == preventTermination_)
        return;
    preventTermination_ = prevent;
    emit preventTerminationChanged(prevent);
}

QDateTime AppDelegate::lastRequestedStayInFront() const {
    std::lock_guard lock(stayInFrontMutex_);
    return lastRequestedStayInFront_;
}

void AppDelegate::setLastRequestedStayInFront(const QDateTime& moment) {
    std::lock_guard lock(stayInFrontMutex_);
    lastRequestedStayInFront_ = moment;
}

}  // namespace app
