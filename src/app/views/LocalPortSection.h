#pragma once

#include "views/PortCommand.h"

#include <QObject>

#include <memory>

class FirmwareUpdater;
class QSettings;
class QWidget;

namespace core {
class AppState;
}
namespace localport {
class LocalPortAutoRestore;
}
namespace restore {
class RestoreSession;
}

namespace views {

// This computer's own DFU port: its actions, and the automatic cycle handing Macs to the same
// restore session as the table, so they show in its history. Its part of the main window is
// folded or not as the technician left it: on a bench of hubs it is rarely used.
class LocalPortSection : public QObject {
    Q_OBJECT

  public:
    LocalPortSection(core::AppState& state, restore::RestoreSession& session,
                     QSettings& windowState, QObject* parent = nullptr);
    ~LocalPortSection() override;

    // The foldable part of the main window; the caller's layout owns it.
    QWidget* buildWidget();
    void run(PortCommand command);

  private:
    QSettings& windowState_;
    std::unique_ptr<FirmwareUpdater> updater_;
    std::unique_ptr<localport::LocalPortAutoRestore> autoRestore_;
};

}  // namespace views
