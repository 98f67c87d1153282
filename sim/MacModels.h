#pragma once

#include <QString>

namespace sim {

// The boot ROM's identity of a model: its chip (CPID) and board (BDID), as a Mac in DFU or
// recovery mode reports them in its USB serial string and Apple Configurator in its UDID.
struct ChipIdentity {
    unsigned cpid;
    unsigned bdid;
};

ChipIdentity chipIdentity(const QString& deviceType);

}  // namespace sim
