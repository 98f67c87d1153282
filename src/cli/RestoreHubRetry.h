#pragma once

#include "cli/CliContext.h"

#include "restore/RestoreSession.h"

#include <memory>

namespace cli {

class StationSession;

// The command line's way to put a Mac back into DFU mode through its hub port, for a restore the
// engine lost on its way: the hubs are connected on the first retry only, the port's DFU sequence
// runs to its end without drawing on the batch's display, and the Mac counts as back once the
// USB registry shows it in DFU mode at its location.
class RestoreHubRetry {
  public:
    explicit RestoreHubRetry(const CliContext& context);
    ~RestoreHubRetry();

    restore::RestoreSession::HubRetry collaborator();

  private:
    bool isOnHubPort(const restore::DevicePtr& device) const;
    bool reenterDfu(const restore::DevicePtr& device);

    const CliContext& context_;
    std::unique_ptr<StationSession> station_;
};

}  // namespace cli
