#pragma once

#include "doctor/DoctorReport.h"
#include "doctor/EngineChecks.h"

#include <QStringList>

#include <optional>

namespace core {
class Settings;
}

namespace doctor {

// Where the doctor looks. The defaults are this machine's places; tests point them elsewhere.
struct Places {
    QStringList hubLibraryCandidates;
    // The kernel's USB devices (idVendor, busnum, devnum, serial) and their device nodes.
    QString sysfsUsbDevices = QStringLiteral("/sys/bus/usb/devices");
    QString usbDeviceNodes = QStringLiteral("/dev/bus/usb");
    // Each helper file is in place when one of its candidates exists: a package puts them in
    // the distribution's places, `tarvel-helper --install` in the local administrator's.
    QStringList helperExecutables;
    QStringList activationFiles;
    QStringList busPolicies;
    QStringList polkitActions;
    QStringList systemdUnits;
    QString cfgutilPath;
    // How long the helper may take to start and answer its version.
    int helperTimeoutMilliseconds = 5000;
    EnginePlaces engine;

    static Places system();
};

// Everything `tarvel-cli doctor` and the desktop's Help > Diagnostics report: for the hardware
// mode, or the simulator's when a socket is given.
DoctorReport examine(const Places& places, core::Settings& settings,
                     const std::optional<QString>& simulatorSocket);

}  // namespace doctor
