#include "tarsil/drivers/vitals/Tango_Type.hpp"

#include <gtest/gtest.h>

namespace tarsil {
namespace {

TEST(TangoType, HasARawValueForEachCase) {
  EXPECT_EQ(rawValue(Tango_Type::normal), "");
  EXPECT_EQ(rawValue(Tango_Type::INIT), "init");
  EXPECT_EQ(rawValue(Tango_Type::START), "start");
  EXPECT_EQ(rawValue(Tango_Type::BREAK), "break");
  EXPECT_EQ(rawValue(Tango_Type::LAST), "last");
  EXPECT_EQ(rawValue(Tango_Type::FINISH), "finish");
  EXPECT_EQ(rawValue(Tango_Type::CLEAR), "clear");
  EXPECT_EQ(rawValue(Tango_Type::SPO2), "SPO2");
}

TEST(TangoType, IsMadeFromEachRawValue) {
  using enum Tango_Type;
  for (const auto type : {normal, INIT, START, BREAK, LAST, FINISH, CLEAR, SPO2}) {
    EXPECT_EQ(tangoTypeFromRawValue(rawValue(type)), type);
  }
}

TEST(TangoType, IsMadeFromNoOtherText) {
  for (const char* text : {"INIT", "Start", "spo2", " ", "SPO2 "}) {
    EXPECT_EQ(tangoTypeFromRawValue(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace tarsil
