#include "restore/AttachmentEvents.h"

#include "restore/DeviceRoster.h"
#include "restore/EventNotification.h"

#include "configurator/AC2Device.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"

namespace restore {

AttachmentEvents::AttachmentEvents(const DeviceRoster& roster, const core::Settings& settings,
                                   Post post, QObject* parent)
    : QObject(parent), settings_(settings), post_(std::move(post)) {
    connect(&roster, &DeviceRoster::attached, this,
            [this](const auto& device) { this->post(QStringLiteral("deviceAttached"), device); });
    connect(&roster, &DeviceRoster::detached, this,
            [this](const auto& device) { this->post(QStringLiteral("deviceRemoved"), device); });
}

AttachmentEvents::Post AttachmentEvents::to(EventNotification& events) {
    return [&events](const QString& event, bool status, const QVariantMap& info,
                     const std::optional<QString>& scriptPath) {
        events.postEvent(event, status, info, scriptPath);
    };
}

// The switch is read at each event, so turning it on or off takes effect with the next Mac.
void AttachmentEvents::post(const QString& event, const std::shared_ptr<AC2Device>& device) const {
    if (!settings_.boolForKey(core::keys::shouldUseEventScript))
        return;
    post_(event, true, device->deviceinfo(), settings_.stringForKey(core::keys::eventScriptPath));
}

}  // namespace restore
