#pragma once

#include "unattended/Restorer.h"

#include "localport/LocalPortAutoRestore.h"
#include "restore/RestoreSession.h"

#include <QHash>

namespace unattended {

// Restores a port's Mac through a restore session, one Mac a batch, so every outcome goes
// through the restore queue (history, event script, records) as a Restore button's would.
class SessionRestorer final : public Restorer {
    Q_OBJECT
  public:
    // `listDevices` finds the Mac in the restore engine's listing by its USB location.
    SessionRestorer(restore::RestoreSession& session,
                    localport::LocalPortAutoRestore::ListDevices listDevices,
                    QObject* parent = nullptr);

    void restore(const QString& port, std::uint64_t location) override;
    void cancelAll() override;

  private:
    void listed(const QString& port, std::uint64_t location, const restore::DeviceList& devices);
    void deviceFinished(const restore::DevicePtr& device);

    restore::RestoreSession& session_;
    localport::LocalPortAutoRestore::ListDevices listDevices_;
    QHash<const AC2Device*, QString> portOf_;
    restore::DeviceList restoring_;
    bool cancelling_ = false;
};

}  // namespace unattended
