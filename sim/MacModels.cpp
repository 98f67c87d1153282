#include "MacModels.h"

#include "usb/MacModelNames.h"

namespace sim {

// The station's Macs show the boot ROM identity of the models table Tarvel ships, so what the
// simulator reports and what Tarvel names from it cannot drift apart.
ChipIdentity chipIdentity(const QString& deviceType) {
    if (const auto chip = usb::MacModelNames::shipped().chipOf(deviceType))
        return {static_cast<unsigned>(chip->chip), static_cast<unsigned>(chip->board)};
    // A model the table gives no chip for still needs a plausible boot ROM: the first M1's.
    return {0x8103, 0x22};
}

}  // namespace sim
