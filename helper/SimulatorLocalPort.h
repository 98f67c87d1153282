#pragma once

#include "LocalPortBackend.h"

#include "core/SimulatorConnection.h"

// The Mac on tarvel-sim's local DFU port. The status is the simulator's own result code (3 when
// nothing is cabled to the port), or 25 when the simulator does not answer.
class SimulatorLocalPort final : public LocalPortBackend {
  public:
    explicit SimulatorLocalPort(const QString& socketPath);

    std::int64_t enterDFUMode() override;
    std::int64_t reboot() override;

  private:
    std::int64_t send(const QString& call);

    core::SimulatorConnection simulator_;
};
