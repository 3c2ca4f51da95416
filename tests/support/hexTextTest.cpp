#include "tarsil/support/hexText.hpp"

#include <gtest/gtest.h>

namespace tarsil {
namespace {

TEST(HexText, HasTwoDigitsForEachByte) {
  EXPECT_EQ(lowerHexText(Bytes{0x00, 0x0F, 0xA5, 0xFF}), "000fa5ff");
  EXPECT_EQ(upperHexText(Bytes{0x00, 0x0F, 0xA5, 0xFF}), "000FA5FF");
}

TEST(HexText, IsEmptyForNoBytes) {
  EXPECT_EQ(lowerHexText({}), "");
  EXPECT_EQ(upperHexText({}), "");
}

TEST(HexText, HasADigitForEachValueBelowSixteen) {
  EXPECT_EQ(upperHexDigit(0), '0');
  EXPECT_EQ(upperHexDigit(9), '9');
  EXPECT_EQ(upperHexDigit(10), 'A');
  EXPECT_EQ(upperHexDigit(15), 'F');
}

}  // namespace
}  // namespace tarsil
