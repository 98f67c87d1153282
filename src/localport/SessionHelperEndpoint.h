#pragma once

#include "localport/HelperEndpoint.h"

#include <memory>

class PrivateSessionBus;

// The helper as the simulator needs it: an instance on the user's session bus that drives the
// simulated local port, started by the client itself, with neither root nor a prompt. Where the
// login has no session bus, the client brings a bus of its own for it.
class SessionHelperEndpoint final : public HelperEndpoint {
  public:
    SessionHelperEndpoint(QString helperPath, QString simulatorSocket);
    ~SessionHelperEndpoint() override;

    QDBusConnection bus() const override;
    bool isToolInstalled() const override;
    // Starts a new instance, which takes the bus name over from any older one.
    bool blessHelperWithLabel(const QString& label, localport::HelperError* error) override;
    // Starts an instance when none is running; an idle one quits after a while.
    bool prepareForCall(localport::HelperError* error) override;

  private:
    bool reachBus(localport::HelperError* error);
    bool start(bool replace, localport::HelperError* error);

    QString helperPath_;
    QString simulatorSocket_;
    std::unique_ptr<PrivateSessionBus> privateBus_;
};
