#pragma once

#include "cli/CliContext.h"
#include "station/MacModeCheck.h"
#include "station/PortVerdict.h"
#include "cli/ProgressDisplay.h"

namespace cli {

// Waits, a second of the station's clock at a time, for the Mac of every done port of the
// verdict to show `expected`, up to the verifyTimeoutSeconds setting; what never does goes into
// the verdict. A registry that cannot be read ends the wait at once.
void verifyModes(const CliContext& context, station::PortVerdict& verdict, station::MacMode expected,
                 ProgressDisplay& display);

}  // namespace cli
