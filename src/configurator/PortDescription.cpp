#include "configurator/PortDescription.h"

#include "hubs/AcronamePort.h"

namespace configurator {

QString portDescription(const AcronamePort& port) {
    return port.description();
}

}  // namespace configurator
