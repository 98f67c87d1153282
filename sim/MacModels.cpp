#include "MacModels.h"

#include <array>

namespace sim {

namespace {

struct ModelIdentity {
    const char* deviceType;
    ChipIdentity identity;
};

constexpr std::array<ModelIdentity, 16> models = {{
    {"Macmini9,1", {0x8103, 0x22}},
    {"MacBookPro17,1", {0x8103, 0x24}},
    {"MacBookAir10,1", {0x8103, 0x26}},
    {"iMac21,1", {0x8103, 0x28}},
    {"iMac21,2", {0x8103, 0x2A}},
    {"MacBookPro18,1", {0x6001, 0x0A}},
    {"MacBookPro18,2", {0x6001, 0x08}},
    {"MacBookPro18,3", {0x6000, 0x04}},
    {"MacBookPro18,4", {0x6000, 0x06}},
    {"Mac13,1", {0x6001, 0x0C}},
    {"Mac13,2", {0x6002, 0x0C}},
    {"Mac14,2", {0x8112, 0x28}},
    {"Mac14,7", {0x8112, 0x2A}},
    {"Mac14,3", {0x8112, 0x24}},
    {"Mac14,12", {0x6020, 0x0A}},
    {"Mac15,3", {0x8122, 0x22}},
}};

}  // namespace

ChipIdentity chipIdentity(const QString& deviceType) {
    for (const ModelIdentity& model : models)
        if (deviceType == QLatin1String(model.deviceType))
            return model.identity;
    // A model the table does not know still needs a plausible boot ROM: the first M1's.
    return {0x8103, 0x22};
}

}  // namespace sim
