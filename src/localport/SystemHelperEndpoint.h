#pragma once

#include "localport/HelperEndpoint.h"

#include <QStringList>

// The helper as a D-Bus system service, started on demand by the bus and installed once through
// pkexec, which asks for an administrator's password.
class SystemHelperEndpoint final : public HelperEndpoint {
  public:
    struct Places {
        QString toolPath = localport::installedToolPath;
        QString activationFilePath = localport::installedActivationFilePath;
        // The command that installs, run as it is; the default is pkexec on the helper that
        // was built with this program.
        QStringList installCommand;
    };

    static Places defaultPlaces();

    explicit SystemHelperEndpoint(Places places);

    QDBusConnection bus() const override;
    // Both the executable and the activation file: either alone is a broken installation.
    bool isToolInstalled() const override;
    bool blessHelperWithLabel(const QString& label, localport::HelperError* error) override;

  private:
    Places places_;
};
