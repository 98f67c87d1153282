#pragma once

#include "app/DeviceListModel.h"
#include "restore/RestoreSession.h"

#include <QObject>
#include <QTimer>

#include <cstdint>
#include <memory>
#include <vector>


namespace core {
class AppState;
class NotificationCenter;
}  // namespace core

namespace app {

// What the device table does, without a widget: it keeps the device list current (a listing
// from Apple Configurator shortly after the USB bus changes, and on request), hands the selected
// rows to the restore session, follows the session's statuses and progress into the list and the
// application's progress bar, and turns a selection into serial numbers or CSV text.
class DeviceTableController : public QObject {
    Q_OBJECT

  public:
    struct Environment {
        restore::RestoreEngine* engine = nullptr;  // lists the Macs
        restore::RestoreSession* session = nullptr;
        DeviceListModel* model = nullptr;
        core::AppState* appState = nullptr;
        core::NotificationCenter* notifications = nullptr;  // USB arrivals and removals
        int listingDelayMs = 1500;  // Macs come in bursts; one listing after the burst
        // The engine is also asked now and then, so a change the bus did not announce
        // (a listing the tool was too busy for, a Mac it only now recognises) still shows.
        int relistMs = 10000;
    };

    explicit DeviceTableController(Environment environment, QObject* parent = nullptr);
    ~DeviceTableController() override;

    // Lists the devices now (nothing when a listing is already under way or the tool is missing).
    void refreshListing();

    // The Restore and Cancel buttons for the rows of the model.
    bool restore(const QList<int>& rows);
    void cancel();

    restore::DeviceList devices(const QList<int>& rows) const;
    // One serial number a line, in row order; devices without one are left out.
    QString serialNumbers(const QList<int>& rows) const;
    QString csv(const QList<int>& rows) const;

  signals:
    // The number of devices listed, or -1 when the tool was busy and the listing will be retried.
    void listingFinished(int devices);

  private:
    void updateProgressBar();

    Environment e_;
    QTimer listingDelay_;
    QTimer relist_;
    bool listing_ = false;
    std::vector<std::uint64_t> observers_;
};

}  // namespace app
