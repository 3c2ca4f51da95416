#include "tarsil/core/StressDeviceType.hpp"

#include <gtest/gtest.h>

namespace tarsil {
namespace {

TEST(StressDeviceTypeTest, HasTheTextsOfItsKinds) {
  EXPECT_EQ(rawValue(StressDeviceType::Treadmill), "Treadmill");
  EXPECT_EQ(rawValue(StressDeviceType::Ergometer), "Ergometer");
}

TEST(StressDeviceTypeTest, IsMadeFromExactlyThoseTexts) {
  EXPECT_EQ(stressDeviceTypeFromRawValue("Treadmill"), StressDeviceType::Treadmill);
  EXPECT_EQ(stressDeviceTypeFromRawValue("Ergometer"), StressDeviceType::Ergometer);
  for (const char* other : {"treadmill", "TREADMILL", "ergometer", "", "Treadmill ", "Ergometers"}) {
    EXPECT_EQ(stressDeviceTypeFromRawValue(other), std::nullopt) << other;
  }
}

}  // namespace
}  // namespace tarsil
