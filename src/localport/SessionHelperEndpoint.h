#pragma once

#include "localport/HelperEndpoint.h"

// The helper as the simulator needs it: an instance on the user's session bus that drives the
// simulated local port, started by the client itself, with neither root nor a prompt.
class SessionHelperEndpoint final : public HelperEndpoint {
  public:
    SessionHelperEndpoint(QString helperPath, QString simulatorSocket);

    QDBusConnection bus() const override;
    bool isToolInstalled() const override;
    // Starts a new instance, which takes the bus name over from any older one.
    bool blessHelperWithLabel(const QString& label, localport::HelperError* error) override;
    // Starts an instance when none is running; an idle one quits after a while.
    void prepareForCall() override;

  private:
    bool start(bool replace, localport::HelperError* error);

    QString helperPath_;
    QString simulatorSocket_;
};
