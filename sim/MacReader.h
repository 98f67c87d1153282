#pragma once

#include "StationConfig.h"
#include "StationReader.h"

#include <QJsonObject>
#include <QString>

namespace sim {

// Where a Mac of a station file stands, which decides the fields it may have: a port number on
// a hub, the plug timings in a sequence of Macs plugged one after another.
enum class MacPlace { hubPort, hubPlug, localPort, localSequence };

// One Mac of a station file, every problem noted on `reader`.
MacConfig readMac(StationReader& reader, const QJsonObject& object, const QString& path,
                  MacPlace place);

}  // namespace sim
