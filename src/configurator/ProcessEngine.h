#pragma once

#include "configurator/DeviceListing.h"

#include <QString>

#include <functional>

namespace configurator {

enum class EngineKind { cfgutil, idevicerestore };

// What restoreEngine asks for: "cfgutil" and "idevicerestore" name one; "auto" (or anything else)
// takes cfgutil where it exists, idevicerestore otherwise. A simulated station on Linux stands in
// for a Linux bench, so "auto" restores it through the idevicerestore stand-in.
EngineKind chooseEngine(const QString& setting, bool cfgutilExists, bool simulatedOnLinux);

// Whether this process works a simulated station on Linux (TARVEL_SIM names one).
bool simulatedOnLinux();

// The engine this process restores with, from the shared settings.
EngineKind processEngine();
QString engineName(EngineKind kind);

// The Macs as the process's engine sees them: Apple Configurator's listing, or the USB
// registry's Macs in DFU and recovery mode for idevicerestore, which has no listing of its own.
// The callback comes on the main thread, or at once with nothing when the engine cannot list.
void listMacs(std::function<void(const DeviceList& devices)> callback);

}  // namespace configurator
