#include "tarsil/core/PortType.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace tarsil {
namespace {

TEST(PortTypeTest, IsMadeFromItsRawValues) {
  EXPECT_EQ(portTypeFromRawValue(0), PortType::device);
  EXPECT_EQ(portTypeFromRawValue(1), PortType::BP);
  EXPECT_EQ(portTypeFromRawValue(2), PortType::SpO2);
}

TEST(PortTypeTest, IsNotMadeFromAnyOtherValue) {
  for (const std::int64_t value :
       {std::int64_t{3}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::max(),
        std::numeric_limits<std::int64_t>::min()}) {
    EXPECT_EQ(portTypeFromRawValue(value), std::nullopt) << value;
  }
}

}  // namespace
}  // namespace tarsil
