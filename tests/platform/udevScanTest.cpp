#include "tarsil/platform/linux/udevScan.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tarsil {
namespace {

TEST(naturalOrderTest, PutsNumbersInTheirOrder) {
  const std::vector<std::string> ordered{"",
                                         "tty",
                                         "ttyACM0",
                                         "ttyS",
                                         "ttyS0",
                                         "ttyS1",
                                         "ttyS2",
                                         "ttyS9",
                                         "ttyS10",
                                         "ttyS10a",
                                         "ttyS10b",
                                         "ttyS10b2",
                                         "ttyS11",
                                         "ttyS99",
                                         "ttyS100",
                                         "ttyUSB0",
                                         "ttyUSB1",
                                         "ttyUSB18446744073709551615",
                                         "ttyUSB18446744073709551616"};
  for (std::size_t left = 0; left < ordered.size(); ++left) {
    for (std::size_t right = 0; right < ordered.size(); ++right) {
      EXPECT_EQ(comesBefore(ordered[left], ordered[right]), left < right)
          << ordered[left] << ' ' << ordered[right];
    }
  }
}

TEST(naturalOrderTest, TellsZerosInFrontApart) {
  EXPECT_TRUE(comesBefore("ttyS01", "ttyS1"));
  EXPECT_FALSE(comesBefore("ttyS1", "ttyS01"));
  EXPECT_TRUE(comesBefore("ttyS1", "ttyS02"));
  EXPECT_TRUE(comesBefore("ttyS0", "ttyS00001"));
  EXPECT_FALSE(comesBefore("ttyS00", "ttyS00"));
}

}  // namespace
}  // namespace tarsil
