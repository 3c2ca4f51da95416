#include "tarsil/support/truncation.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace tarsil {
namespace {

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();

TEST(TruncatedOrStopTest, DropsTheFractionTowardZero) {
  EXPECT_EQ(truncatedOrStop(2.5F, "grade"), 2);
  EXPECT_EQ(truncatedOrStop(2.999F, "grade"), 2);
  EXPECT_EQ(truncatedOrStop(-2.5F, "grade"), -2);
  EXPECT_EQ(truncatedOrStop(-0.9F, "grade"), 0);
  EXPECT_EQ(truncatedOrStop(-0.0F, "grade"), 0);
  EXPECT_EQ(truncatedOrStop(std::numeric_limits<float>::denorm_min(), "grade"), 0);
  EXPECT_EQ(truncatedOrStop(2.5, "grade"), 2);
  EXPECT_EQ(truncatedOrStop(-2.5, "grade"), -2);
}

TEST(TruncatedOrStopTest, TakesTheWholeRange) {
  EXPECT_EQ(truncatedOrStop(-0x1p63F, "speed"), smallest);
  EXPECT_EQ(truncatedOrStop(std::nextafter(0x1p63F, 0.0F), "speed"), largest - (std::int64_t{1} << 39) + 1);
  EXPECT_EQ(truncatedOrStop(-0x1p63, "speed"), smallest);
  EXPECT_EQ(truncatedOrStop(std::nextafter(0x1p63, 0.0), "speed"), largest - 1023);
}

TEST(TruncatedOrStopDeathTest, StopsOutsideTheRange) {
  EXPECT_DEATH(truncatedOrStop(0x1p63F, "speed"),
               "fatal error: speed does not fit a 64-bit integer: 9\\.223372e\\+18");
  EXPECT_DEATH(truncatedOrStop(std::nextafter(-0x1p63F, -1e30F), "speed"), "fatal error: speed");
  EXPECT_DEATH(truncatedOrStop(std::numeric_limits<float>::max(), "speed"), "3\\.4028235e\\+38");
  EXPECT_DEATH(truncatedOrStop(0x1p63, "speed"), "fatal error: speed");
  EXPECT_DEATH(truncatedOrStop(std::nextafter(-0x1p63, -1e30), "speed"), "fatal error: speed");
}

TEST(TruncatedOrStopDeathTest, StopsForWhatIsNotFinite) {
  EXPECT_DEATH(truncatedOrStop(std::numeric_limits<float>::infinity(), "power"),
               "fatal error: power does not fit a 64-bit integer: inf");
  EXPECT_DEATH(truncatedOrStop(-std::numeric_limits<float>::infinity(), "power"), "integer: -inf");
  EXPECT_DEATH(truncatedOrStop(std::numeric_limits<float>::quiet_NaN(), "power"), "integer: nan");
  EXPECT_DEATH(truncatedOrStop(std::numeric_limits<double>::infinity(), "power"), "integer: inf");
  EXPECT_DEATH(truncatedOrStop(std::numeric_limits<double>::quiet_NaN(), "power"), "integer: nan");
}

}  // namespace
}  // namespace tarsil
