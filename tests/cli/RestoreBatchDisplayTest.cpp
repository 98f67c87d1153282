#include "cli/RestoreBatchDisplay.h"

#include <gtest/gtest.h>

namespace {

TEST(RestoreBatchDisplay, ARowNamesTheHubPortAndModelBesideTheECID) {
    cli::RestoreBatchDisplay display(
        {{0xE4C91D2A07B3, "F7NQ4XR2HT", "1C3B4A01:3", "MacBook Pro (14-inch, M1 Pro, 2021)"},
         {0x5A6B7C8D9E0F1A, "", "", "Mac14,3"}},
        cli::RestoreBatchDisplay::Style::Plain, 200);
    EXPECT_TRUE(display.row(0).startsWith(
        "0xE4C91D2A07B3      1C3B4A01:3  MacBook Pro (14-inch, M…  F7NQ4XR2HT"))
        << qPrintable(display.row(0));
    EXPECT_TRUE(display.row(1).startsWith("0x5A6B7C8D9E0F1A    -           Mac14,3     "))
        << qPrintable(display.row(1));
    EXPECT_TRUE(display.row(1).endsWith("0%  waiting")) << qPrintable(display.row(1));
}

}  // namespace
