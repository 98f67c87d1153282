#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>

class AC2Device;

namespace core {
class Settings;
}

namespace restore {

class DeviceRoster;
class EventNotification;

// Tells the user's event script of every Mac that comes onto the bus ("deviceAttached") or leaves
// it ("deviceRemoved"), with the Mac's information dictionary as the roster knows it then, while
// the event script is switched on. Any front end that keeps a roster of the bench can have it.
class AttachmentEvents : public QObject {
    Q_OBJECT

  public:
    // Hands one event on: its name, outcome, payload and the script's path.
    using Post = std::function<void(const QString& event, bool status, const QVariantMap& info,
                                    const std::optional<QString>& scriptPath)>;

    AttachmentEvents(const DeviceRoster& roster, const core::Settings& settings, Post post,
                     QObject* parent = nullptr);

    // To the notifier that starts the scripts.
    static Post to(EventNotification& events);

  private:
    void post(const QString& event, const std::shared_ptr<AC2Device>& device) const;

    const core::Settings& settings_;
    Post post_;
};

}  // namespace restore
