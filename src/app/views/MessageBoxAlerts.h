#pragma once

#include "core/Alerts.h"

class QWidget;

namespace views {

// Alerts as modal message boxes over the application's active window. Hub sequences raise
// alerts from their workers; those wait for the answer on the main thread.
class MessageBoxAlerts final : public core::Alerts {
  public:
    int show(const core::Alert& alert) override;

  private:
    static int showOnMainThread(const core::Alert& alert);
};

}  // namespace views
