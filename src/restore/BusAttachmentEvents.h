#pragma once

#include "restore/AttachmentEvents.h"
#include "restore/DeviceRoster.h"

namespace restore {

// For a front end without a device table of its own: a roster of the bench's Macs kept from the
// USB manager's broadcasts, told to the event script as they come and go. It starts the manager
// watching the bus if nothing did yet.
class BusAttachmentEvents {
  public:
    // Over the process's clock, settings, event notifier and default notification centre.
    BusAttachmentEvents();

  private:
    DeviceRoster roster_;
    AttachmentEvents events_;
};

}  // namespace restore
