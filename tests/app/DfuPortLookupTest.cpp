#include "app/DfuPortLookup.h"

#include <gtest/gtest.h>

namespace {

TEST(DfuPortLookup, TheShippedTableAnswersByIdentifierAndBySearchWords) {
    app::DfuPortLookup lookup;
    ASSERT_EQ(lookup.error(), "");
    ASSERT_GE(lookup.rowCount(), 30);

    const auto mini = lookup.forDeviceType("Macmini9,1");
    ASSERT_TRUE(mini);
    EXPECT_TRUE(mini->dfuPort.contains("leftmost Thunderbolt port")) << mini->dfuPort.toStdString();
    EXPECT_TRUE(mini->verified);
    EXPECT_TRUE(lookup.forDeviceType("MacBookPro18,3")) << "identifiers listed as 18,1, 18,2, ...";
    EXPECT_FALSE(lookup.forDeviceType("Mac14,1"));

    lookup.setQuery("studio m1");
    ASSERT_EQ(lookup.rowCount(), 1);
    EXPECT_FALSE(lookup.records()[0].verified);
    EXPECT_EQ(lookup.data(lookup.index(0, app::DfuPortLookup::Verified)).toString(), "Unverified");
    lookup.setQuery("");
    EXPECT_GE(lookup.rowCount(), 30);
}

TEST(DfuPortLookup, AnUnreadableTableIsEmptyAndSaysWhy) {
    app::DfuPortLookup broken("{\"models\": ", nullptr);
    EXPECT_EQ(broken.rowCount(), 0);
    EXPECT_TRUE(broken.error().startsWith("the DFU port table is not valid JSON"));
}

}  // namespace
