#include "app/DfuPortLookup.h"
#include "usb/MacModelNames.h"

#include <gtest/gtest.h>

namespace {

using usb::MacModelNames;

TEST(MacModelNames, EveryModelOfTheDfuPortTableHasItsName) {
    const MacModelNames& names = MacModelNames::shipped();
    const app::DfuPortLookup ports;
    ASSERT_FALSE(ports.records().isEmpty());
    for (const app::DfuPortRecord& record : ports.records())
        for (const QString& identifier : record.identifiers)
            EXPECT_FALSE(names.nameOf(identifier).isEmpty()) << qPrintable(identifier);
    EXPECT_EQ(names.nameOf("Macmini9,1"), "Mac mini (M1, 2020)");
    EXPECT_EQ(names.displayName("iPad14,1"), "iPad14,1") << "an unknown model keeps its identifier";
    EXPECT_EQ(names.identifierOfChip(0x8103, 0x26), "MacBookAir10,1");
    EXPECT_EQ(names.identifierOfChip(0x8103, 0x77), "");
}

TEST(MacModelNames, AnUnreadableTableNamesNothing) {
    const MacModelNames names("{\"models\": [{\"name\": \"no identifier\"}]");
    EXPECT_TRUE(names.identifiers().isEmpty());
    EXPECT_EQ(names.displayName("Mac14,3"), "Mac14,3");
}

}  // namespace
