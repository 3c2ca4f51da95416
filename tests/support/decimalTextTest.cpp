#include "tarsil/support/numberText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

namespace tarsil {
namespace {

using FloatLimits = std::numeric_limits<float>;
using DoubleLimits = std::numeric_limits<double>;

TEST(DecimalTextTest, AlwaysHasAFractionInDecimalForm) {
  EXPECT_EQ(decimalText(5.0F), "5.0");
  EXPECT_EQ(decimalText(100.0F), "100.0");
  EXPECT_EQ(decimalText(0.0F), "0.0");
  EXPECT_EQ(decimalText(-0.0F), "-0.0");
  EXPECT_EQ(decimalText(5.0), "5.0");
  EXPECT_EQ(decimalText(-0.0), "-0.0");
}

TEST(DecimalTextTest, IsTheShortestThatReadsBack) {
  EXPECT_EQ(decimalText(2.5F), "2.5");
  EXPECT_EQ(decimalText(87.5F), "87.5");
  EXPECT_EQ(decimalText(0.1F), "0.1");
  EXPECT_EQ(decimalText(18.7F), "18.7");
  EXPECT_EQ(decimalText(-3.3F), "-3.3");
  EXPECT_EQ(decimalText(0.1F + 0.2F), "0.3");
  EXPECT_EQ(decimalText(1.0F / 3.0F), "0.33333334");
  EXPECT_EQ(decimalText(0.1), "0.1");
  EXPECT_EQ(decimalText(0.1 + 0.2), "0.30000000000000004");
  EXPECT_EQ(decimalText(static_cast<double>(0.1F)), "0.10000000149011612");
}

TEST(DecimalTextTest, LeavesTheDecimalFormBelowATenThousandth) {
  EXPECT_EQ(decimalText(0.001F), "0.001");
  EXPECT_EQ(decimalText(1e-4F), "0.0001") << "the nearest float is less than 1e-4; its digits are not";
  EXPECT_EQ(decimalText(1.5e-4F), "0.00015");
  EXPECT_EQ(decimalText(std::nextafter(1e-4F, 0.0F)), "9.999999e-05");
  EXPECT_EQ(decimalText(-9.5e-5F), "-9.5e-05");
  EXPECT_EQ(decimalText(1e-5F), "1e-05");
  EXPECT_EQ(decimalText(1e-4), "0.0001");
  EXPECT_EQ(decimalText(std::nextafter(1e-4, 0.0)), "9.999999999999999e-05");
  EXPECT_EQ(decimalText(1e-5), "1e-05");
}

TEST(DecimalTextTest, LeavesTheDecimalFormAboveTwoToTheTwentyFourthForAFloat) {
  EXPECT_EQ(decimalText(16777215.0F), "16777215.0");
  EXPECT_EQ(decimalText(16777216.0F), "16777216.0");
  EXPECT_EQ(decimalText(-16777216.0F), "-16777216.0");
  EXPECT_EQ(decimalText(16777218.0F), "1.6777218e+07");
  EXPECT_EQ(decimalText(-16777218.0F), "-1.6777218e+07");
  EXPECT_EQ(decimalText(10000000.0F), "10000000.0");
  EXPECT_EQ(decimalText(20000000.0F), "2e+07");
  EXPECT_EQ(decimalText(1e10F), "1e+10");
}

TEST(DecimalTextTest, LeavesTheDecimalFormAboveTwoToTheFiftyFourthForADouble) {
  EXPECT_EQ(decimalText(16777218.0), "16777218.0");
  EXPECT_EQ(decimalText(9007199254740993.0), "9007199254740992.0");
  EXPECT_EQ(decimalText(10000000000000000.0), "10000000000000000.0");
  EXPECT_EQ(decimalText(0x1p54), "18014398509481984.0");
  EXPECT_EQ(decimalText(-0x1p54), "-18014398509481984.0");
  EXPECT_EQ(decimalText(std::nextafter(0x1p54, 1e300)), "1.8014398509481988e+16");
  EXPECT_EQ(decimalText(2e16), "2e+16");
  EXPECT_EQ(decimalText(1e100), "1e+100");
}

TEST(DecimalTextTest, WritesTheEndsOfTheRange) {
  EXPECT_EQ(decimalText(FloatLimits::max()), "3.4028235e+38");
  EXPECT_EQ(decimalText(FloatLimits::min()), "1.1754944e-38");
  EXPECT_EQ(decimalText(FloatLimits::denorm_min()), "1e-45");
  EXPECT_EQ(decimalText(DoubleLimits::max()), "1.7976931348623157e+308");
  EXPECT_EQ(decimalText(DoubleLimits::min()), "2.2250738585072014e-308");
  EXPECT_EQ(decimalText(DoubleLimits::denorm_min()), "5e-324");
}

TEST(DecimalTextTest, NamesWhatIsNotFinite) {
  EXPECT_EQ(decimalText(FloatLimits::infinity()), "inf");
  EXPECT_EQ(decimalText(-FloatLimits::infinity()), "-inf");
  EXPECT_EQ(decimalText(FloatLimits::quiet_NaN()), "nan");
  EXPECT_EQ(decimalText(-FloatLimits::quiet_NaN()), "nan") << "whatever its sign bit";
  EXPECT_EQ(decimalText(DoubleLimits::infinity()), "inf");
  EXPECT_EQ(decimalText(-DoubleLimits::infinity()), "-inf");
  EXPECT_EQ(decimalText(DoubleLimits::quiet_NaN()), "nan");
}

// Every text is a number that reads back, decimal texts have digits on both sides of the point, and exponents
// have a sign and two digits.
void expectWellFormed(const std::string& text) {
  EXPECT_THAT(text, testing::AnyOf(testing::ContainsRegex("^-?[0-9]+\\.[0-9]+$"),
                                   testing::ContainsRegex("^-?[1-9](\\.[0-9]*[1-9])?e[+-][0-9][0-9]+$")));
}

TEST(DecimalTextTest, OfEveryFloatReadsBackAsThatFloat) {
  std::mt19937 random(20240301);
  for (int i = 0; i < 5000; ++i) {
    const float value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    if (!std::isfinite(value)) continue;
    const std::string text = decimalText(value);
    expectWellFormed(text);
    const float back = readFloat(text).value();
    ASSERT_EQ(std::bit_cast<std::uint32_t>(back), std::bit_cast<std::uint32_t>(value)) << text;
  }
}

TEST(DecimalTextTest, OfEveryDoubleReadsBackAsThatDouble) {
  std::mt19937_64 random(20240301);
  for (int i = 0; i < 5000; ++i) {
    const double value = std::bit_cast<double>(static_cast<std::uint64_t>(random()));
    if (!std::isfinite(value)) continue;
    const std::string text = decimalText(value);
    expectWellFormed(text);
    const double back = readDouble(text).value();
    ASSERT_EQ(std::bit_cast<std::uint64_t>(back), std::bit_cast<std::uint64_t>(value)) << text;
  }
}

TEST(DecimalTextTest, OfATenthKeepsOneDecimal) {
  for (int tenths = 0; tenths <= 10000; ++tenths) {
    const std::string expected = std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
    ASSERT_EQ(decimalText(static_cast<float>(tenths) / 10.0F), expected);
    ASSERT_EQ(decimalText(static_cast<double>(tenths) / 10.0), expected);
  }
}

TEST(OneDecimalTextTest, RoundsToTheNearestTenth) {
  EXPECT_EQ(oneDecimalText(3.125F), "3.1");
  EXPECT_EQ(oneDecimalText(4.96F), "5.0");
  EXPECT_EQ(oneDecimalText(0.0F), "0.0");
  EXPECT_EQ(oneDecimalText(11.875F), "11.9");
  EXPECT_EQ(oneDecimalText(19.0F * 0.625F), "11.9");
  EXPECT_EQ(oneDecimalText(9.96F), "10.0");
}

TEST(OneDecimalTextTest, RoundsAnExactHalfToTheEvenTenth) {
  EXPECT_EQ(oneDecimalText(0.25F), "0.2");
  EXPECT_EQ(oneDecimalText(0.75F), "0.8");
  EXPECT_EQ(oneDecimalText(1.25F), "1.2");
}

TEST(OneDecimalTextTest, RoundsTheFloatItselfNotItsShortestText) {
  EXPECT_EQ(decimalText(0.35F), "0.35");
  EXPECT_EQ(oneDecimalText(0.35F), "0.3") << "the nearest float lies below 0.35";
  EXPECT_EQ(oneDecimalText(2.8F * 0.625F), "1.8") << "1.75 in single precision";
}

TEST(OneDecimalTextTest, KeepsTheSign) {
  EXPECT_EQ(oneDecimalText(-3.125F), "-3.1");
  EXPECT_EQ(oneDecimalText(-0.0F), "-0.0");
  EXPECT_EQ(oneDecimalText(-0.01F), "-0.0");
}

TEST(OneDecimalTextTest, HasRoomForTheLargest) {
  EXPECT_EQ(oneDecimalText(-FloatLimits::max()), "-340282346638528859811704183484516925440.0");
  EXPECT_EQ(oneDecimalText(FloatLimits::denorm_min()), "0.0");
}

TEST(OneDecimalTextTest, NamesWhatIsNotFinite) {
  EXPECT_EQ(oneDecimalText(FloatLimits::infinity()), "inf");
  EXPECT_EQ(oneDecimalText(-FloatLimits::infinity()), "-inf");
  EXPECT_EQ(oneDecimalText(FloatLimits::quiet_NaN()), "nan");
}

}  // namespace
}  // namespace tarsil
