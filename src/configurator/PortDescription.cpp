#include "configurator/PortDescription.h"

#if __has_include("hubs/AcronamePort.h")
#include "hubs/AcronamePort.h"

namespace configurator {
QString portDescription(const AcronamePort& port) { return port.description(); }
}  // namespace configurator

#else
// Without the hub classes in this build no port object can exist.
namespace configurator {
QString portDescription(const AcronamePort&) { return {}; }
}  // namespace configurator
#endif
