#pragma once

#include "usb/UsbRegistry.h"

#include <QHash>
#include <QJsonObject>

namespace core {
class SimulatorConnection;
}

namespace usb {

// The USB view of tarvel-sim: "usb.list" for the listing, topic "usb" for arrivals and
// removals. Devices keep the simulator's IOKit names; the ECID, sent as decimal text because
// JSON numbers lose precision, becomes a number as on the other registries.
class SimulatorUsbRegistry final : public UsbRegistry {
    Q_OBJECT
  public:
    explicit SimulatorUsbRegistry(const QString& socketPath, QObject* parent = nullptr);
    ~SimulatorUsbRegistry() override;

    std::optional<QList<PropertyMap>> devices() override;
    QList<PropertyMap> startWatching() override;
    void stopWatching() override;
    bool resumeWatching() override;
    QString lastError() const override;

    static PropertyMap propertiesFromJson(const QJsonObject& device);

  private:
    void handleEvent(const QString& name, const QJsonObject& payload);

    core::SimulatorConnection* connection_;  // a child, so it moves threads with the registry
    int watchers_ = 0;
    bool subscribed_ = false;
    // Attachments already reported, by sessionID: the listing and the first events may overlap,
    // and a resumed watch reports as removed what is no longer there.
    QHash<QString, PropertyMap> attached_;
};

}  // namespace usb
