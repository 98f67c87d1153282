#pragma once

#include "configurator/ZMRConfigurator2Utility.h"
#include "localport/AutoDFU.h"
#include "localport/FirmwareUpdater.h"
#include "restore/RestoreSession.h"
#include "station/ZMRAcronameManager.h"

namespace testing_support {

class Scripts;

// The collaborator sets of the workflow objects, filled from one test's fakes, so a test names
// only what it does differently.
class CollaboratorBuilder {
  public:
    CollaboratorBuilder(core::Settings& settings, core::Clock& clock, core::Alerts* alerts,
                        core::NotificationCenter* center = nullptr)
        : settings_(settings), clock_(clock), alerts_(alerts), center_(center) {}

    // The Configurator utility with `tool` as its tool, run without a pseudo-terminal (a script
    // of `scripts` runs it directly) and without a USB registry.
    ZMRConfigurator2Utility::Collaborators configurator(Scripts& scripts,
                                                        const QString& tool) const;
    // The host port's automatic cycle, asking `helper` and ticking on main-loop timers.
    AutoDFU::Collaborators autoDFU(LocalPortHelper& helper) const;
    // The host port's actions, through `helper` and beside `cycle`.
    FirmwareUpdater::Collaborators firmwareUpdater(LocalPortHelper& helper, AutoDFU& cycle,
                                                   core::AppState& appState) const;
    // The hubs' manager on `backend`, with its background work and lanes run inline, so a
    // sequence has finished when its call returns, and nothing printed.
    ZMRAcronameManagerEnvironment acronameManager(std::shared_ptr<stem::Backend> backend,
                                                  core::Sounds& sounds) const;
    // The restore workflow, measuring the free space of `home` (it has no firmware cache).
    restore::RestoreSession::Collaborators restoreSession(restore::RestoreEngine& engine,
                                                          ZMRConfigurator2Utility& configurator,
                                                          core::AppState& appState,
                                                          restore::EventNotification& events,
                                                          restore::SoundPlayer& sounds,
                                                          AutoDFU& autoDFU,
                                                          const QString& home) const;

  private:
    core::Settings& settings_;
    core::Clock& clock_;
    core::Alerts* alerts_;
    core::NotificationCenter* center_;
};

}  // namespace testing_support
