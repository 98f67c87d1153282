#pragma once

#include "FakeUsbLookups.h"
#include "Scripts.h"

#include "configurator/ZMRConfigurator2Utility.h"

#include <memory>

namespace testing_support {

// The Configurator utility with a script of the test as its tool, run without a pseudo-terminal
// and without a USB registry, as the restore workflow's tests need it.
inline std::unique_ptr<ZMRConfigurator2Utility> scriptedConfigurator(
    Scripts& scripts, const QString& tool, core::Settings& settings, core::Alerts& alerts,
    core::Clock& clock) {
    ZMRConfigurator2Utility::Collaborators c;
    c.settings = &settings;
    c.alerts = &alerts;
    c.clock = &clock;
    c.toolPath = tool;
    c.ptyPath = scripts.write("pty", "shift 2; exec \"$@\"");
    c.platform = configurator::RestorePlatform::Linux;
    c.usbLookups = [] { return std::make_unique<FakeUsbLookups>(); };
    c.remover = configurator::fileSystemRemover();
    return std::make_unique<ZMRConfigurator2Utility>(c);
}

}  // namespace testing_support
