#include "hubs/AcronamePort.h"

#include "hubs/AcronameHub.h"

QString AcronamePort::description() const {
    return QStringLiteral("portID: %1, hub: %2, isConnected:%3")
        .arg(portID_)
        .arg(hub_ != nullptr ? hub_->description() : QStringLiteral("(null)"))
        .arg(isConnected_ ? 1 : 0);
}

QString AcronamePort::name() const {
    const QString hub = hub_ ? hub_->modelName() : QStringLiteral("?");
    return QStringLiteral("%1:%2").arg(hub).arg(portID_);
}
