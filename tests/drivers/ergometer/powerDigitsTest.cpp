#include "tarsil/drivers/ergometer/detail/powerDigits.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tarsil {
namespace {

TEST(PowerDigits, FillsUpShortNumbersWithZeros) {
  EXPECT_EQ(powerDigits(0), "000");
  EXPECT_EQ(powerDigits(5), "005");
  EXPECT_EQ(powerDigits(75), "075");
  EXPECT_EQ(powerDigits(150), "150");
}

TEST(PowerDigits, DropsTheFraction) {
  EXPECT_EQ(powerDigits(0.99F), "000");
  EXPECT_EQ(powerDigits(99.99F), "099");
  EXPECT_EQ(powerDigits(-0.99F), "000");
}

TEST(PowerDigits, KeepsTheFirstThreeCharactersOfALongNumber) {
  EXPECT_EQ(powerDigits(1000), "100");
  EXPECT_EQ(powerDigits(1250), "125");
  EXPECT_EQ(powerDigits(9e18F), "900");
}

TEST(PowerDigits, CountsASignAsACharacter) {
  EXPECT_EQ(powerDigits(-5), "0-5");
  EXPECT_EQ(powerDigits(-75), "-75");
  EXPECT_EQ(powerDigits(-150), "-15");
}

TEST(PowerDigits, TakesTheSmallestInteger) {
  EXPECT_EQ(powerDigits(-9223372036854775808.0F), "-92");
}

using Limits = std::numeric_limits<float>;

class ImpossiblePower : public testing::TestWithParam<float> {};

TEST_P(ImpossiblePower, StopsTheProcess) {
  EXPECT_DEATH(powerDigits(GetParam()), "tarsil: fatal error: .*power in watts");
}

INSTANTIATE_TEST_SUITE_P(PowerDigits, ImpossiblePower,
                         testing::Values(Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(),
                                         Limits::max(), 9223372036854775808.0F, -9223373136366403584.0F));

}  // namespace
}  // namespace tarsil
