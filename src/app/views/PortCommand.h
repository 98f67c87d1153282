#pragma once

namespace views {

// What a port's context menu on the bench map can ask of the port.
enum class PortCommand { DFU, Restart, Recovery };

}  // namespace views
