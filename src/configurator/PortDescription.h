#pragma once

#include <QString>

class AcronamePort;

namespace configurator {

// The port's own one-line description, kept out of AC2Device.h so the record does not pull in
// the hub classes.
QString portDescription(const AcronamePort& port);

}  // namespace configurator
