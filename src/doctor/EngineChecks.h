#pragma once

#include "doctor/DoctorReport.h"

#include "configurator/ProcessEngine.h"

#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

namespace core {
class Settings;
}

namespace restore {
class RestoreEngine;
}

namespace doctor {

// Where the restore engine's checks look. The defaults are this machine's; tests point them at a
// folder of their own.
struct EnginePlaces {
    // The folders of PATH, searched for usbmuxd before its usual place.
    QStringList executableFolders;
    QStringList usbmuxdCandidates;
    // In udev's order of precedence: a rule file hides one of the same name in a later folder.
    QStringList udevRuleFolders;
    // Restores keep their logs there and idevicerestore extracts the filesystem there.
    QString stateFolder;
    // The idevicerestore engine a restore of this process would be given.
    std::function<std::unique_ptr<restore::RestoreEngine>(core::Settings&)> makeEngine;

    static EnginePlaces system();
};

// What idevicerestore's version line tells of the Macs it knows.
enum class MacSupport { Known, TooOld, Unreadable };
MacSupport macSupport(const QString& versionLine);

// The restore-mode product ids of Apple-silicon Macs ("0x1901"…) that no usbmuxd rule of this
// text matches.
QStringList restoreModeIdsUnknownTo(const QString& ruleText);

// The engine this process restores with, as doctor is told the settings and the places.
configurator::EngineKind chosenEngine(core::Settings& settings, const QString& cfgutilPath,
                                      bool simulated);

// Which engine restores in this process and why, and for idevicerestore whatever it needs: the
// tool, a version that knows Macs, usbmuxd and its rule (on hardware), firmware and room.
std::vector<Check> engineChecks(const EnginePlaces& places, core::Settings& settings,
                                const QString& cfgutilPath, bool simulated);

}  // namespace doctor
