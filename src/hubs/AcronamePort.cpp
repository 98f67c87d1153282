#include "hubs/AcronamePort.h"

#include "hubs/AcronameHub.h"

#include "core/HubPortName.h"

QString AcronamePort::description() const {
    return QStringLiteral("portID: %1, hub: %2, isConnected:%3")
        .arg(portID_)
        .arg(hub_ != nullptr ? hub_->description() : QStringLiteral("(null)"))
        .arg(isConnected_ ? 1 : 0);
}

QString AcronamePort::name() const {
    return core::hubPortName(hub_ ? hub_->modelName() : QStringLiteral("?"), portID_);
}
