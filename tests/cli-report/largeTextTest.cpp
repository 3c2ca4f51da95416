#include "tools/tarsil/run/largeText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarsil::cli {
namespace {

using testing::ElementsAre;

TEST(LargeTextTest, HasThreeRowsOfOneWidth) {
  EXPECT_THAT(largeText("0123456789"), ElementsAre(" _       _   _       _   _   _   _   _  ",
                                                   "| |   |  _|  _| |_| |_  |_    | |_| |_| ",
                                                   "|_|   | |_   _|   |  _| |_|   | |_|  _| "));
  EXPECT_THAT(largeText("1:2.-"), ElementsAre("       _        ",  //
                                              "  | .  _|    _  ",  //
                                              "  | . |_  .     "));
}

TEST(LargeTextTest, LeavesOutWhatItDoesNotHave) {
  EXPECT_EQ(largeText("1é W"), largeText("1"));
}

}  // namespace
}  // namespace tarsil::cli
