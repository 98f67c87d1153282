#include "support/CollaboratorBuilder.h"

#include "support/FakeUsbLookups.h"
#include "support/Scripts.h"

#include "localport/LocalPortAutoRestore.h"
#include "usb/RepeatingTimer.h"

namespace testing_support {

ZMRConfigurator2Utility::Collaborators CollaboratorBuilder::configurator(
    Scripts& scripts, const QString& tool) const {
    ZMRConfigurator2Utility::Collaborators c;
    c.settings = &settings_;
    c.alerts = alerts_;
    c.clock = &clock_;
    c.toolPath = tool;
    c.ptyPath = scripts.write("pty", "shift 2; exec \"$@\"");
    c.platform = configurator::RestorePlatform::Linux;
    c.usbLookups = [] { return std::make_unique<FakeUsbLookups>(); };
    c.remover = configurator::fileSystemRemover();
    return c;
}

AutoDFU::Collaborators CollaboratorBuilder::autoDFU(LocalPortHelper& helper) const {
    AutoDFU::Collaborators c;
    c.center = center_;
    c.helper = [&helper]() -> LocalPortHelper& { return helper; };
    c.settings = &settings_;
    c.clock = &clock_;
    c.timers = usb::mainLoopRepeatingTimers();
    return c;
}

FirmwareUpdater::Collaborators CollaboratorBuilder::firmwareUpdater(
    LocalPortHelper& helper, AutoDFU& cycle, core::AppState& appState) const {
    return {[&helper]() -> LocalPortHelper& { return helper; }, &cycle, &appState, center_};
}

ZMRAcronameManagerEnvironment CollaboratorBuilder::acronameManager(
    std::shared_ptr<stem::Backend> backend, core::Sounds& sounds) const {
    ZMRAcronameManagerEnvironment env;
    env.backend = std::move(backend);
    env.settings = &settings_;
    env.clock = &clock_;
    env.notifications = center_;
    env.sounds = &sounds;
    env.alerts = alerts_;
    env.runInBackground = [](dispatch::Task task) { task(); };
    env.runOnMain = [](dispatch::Task task) { task(); };
    env.runLanes = [](std::vector<dispatch::Task> lanes) {
        for (const auto& lane : lanes) lane();
    };
    env.console = {[](const std::string&) {}, [](const std::string&) {}};
    return env;
}

restore::RestoreSession::Collaborators CollaboratorBuilder::restoreSession(
    restore::RestoreEngine& engine, ZMRConfigurator2Utility& configurator, core::AppState& appState,
    restore::EventNotification& events, restore::SoundPlayer& sounds, AutoDFU& autoDFU,
    const QString& home) const {
    restore::RestoreSession::Collaborators c;
    c.settings = &settings_;
    c.alerts = alerts_;
    c.clock = &clock_;
    c.engine = &engine;
    c.configurator = &configurator;
    c.appState = &appState;
    c.events = &events;
    c.sounds = &sounds;
    c.hostPort = localport::LocalPortAutoRestore::handOffTo(autoDFU);
    c.homeFolder = home;
    c.firmwareCachePath = home + "/no-cache";
    return c;
}

}  // namespace testing_support
