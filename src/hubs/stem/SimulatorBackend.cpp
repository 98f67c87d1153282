#include "hubs/stem/SimulatorBackend.h"

#include "hubs/stem/SimulatorModule.h"

#include "core/Log.h"
#include "core/SimulatorConnection.h"

#include <QJsonArray>

namespace stem {

SimulatorBackend::SimulatorBackend(QString socketPath)
    : SimulatorBackend(std::make_shared<core::SimulatorConnection>(std::move(socketPath))) {}

SimulatorBackend::SimulatorBackend(std::shared_ptr<core::SimulatorConnection> connection)
    : connection_(std::move(connection)) {}

SimulatorBackend::~SimulatorBackend() = default;

std::uint8_t SimulatorBackend::aDiscovery_EnumerateModules(LinkType type,
                                                           const ModuleFoundProc& callback,
                                                           std::uint32_t networkInterface) {
    const auto reply = connection_->request(
        QStringLiteral("stem.discover"),
        {{QStringLiteral("linkType"), static_cast<int>(type)},
         {QStringLiteral("networkInterface"), static_cast<qint64>(networkInterface)}});
    if (!reply) {
        // Refreshes rediscover often; one line explains every empty list that follows.
        if (!toldUnreachable_.exchange(true))
            ZMRLogLevel1(QStringLiteral("Cannot reach the station simulator: %1")
                             .arg(connection_->lastError()));
        return 0;
    }
    toldUnreachable_ = false;
    std::uint8_t count = 0;
    for (const QJsonValue& item : reply->value(QLatin1String("specs")).toArray()) {
        const QJsonObject object = item.toObject();
        auto field = [&object](const char* key) {
            return static_cast<std::uint32_t>(object.value(QLatin1String(key)).toInteger());
        };
        LinkSpec spec;
        spec.type = static_cast<LinkType>(field("type"));
        spec.serial_num = field("serial_num");
        spec.module = field("module");
        spec.router = field("router");
        spec.router_serial_num = field("router_serial_num");
        spec.model = field("model");
        spec.usb_id = field("usb_id");
        ++count;
        bool success = true;
        if (!callback || !callback(spec, success))
            break;
    }
    return count;
}

std::unique_ptr<Module> SimulatorBackend::createUSBHub3c(std::uint8_t, bool, std::uint8_t) {
    return std::make_unique<SimulatorModule>(connection_);
}

}  // namespace stem
