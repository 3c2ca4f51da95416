#include "tarsil/core/DeviceModel.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

#include "tarsil/core/KivBicycle.hpp"

namespace tarsil {
namespace {

CarriedRange range(float lowest, float highest, float step, bool carriesZero) {
  return CarriedRange({.lowest = lowest, .highest = highest, .step = step, .carriesZero = carriesZero});
}

TEST(Stated, CannotBeLeftOut) {
  static_assert(!std::is_default_constructible_v<Stated<float>>);
  static_assert(!std::is_default_constructible_v<CarriedRange::Bounds>);
  static_assert(!std::is_default_constructible_v<ExerciseFacts>);
  // Leaving out the last member of a list alone is as much of an error.
  static_assert(requires { CarriedRange::Bounds{1.0F, 2.0F, 0.1F, true}; });
  static_assert(!std::is_constructible_v<CarriedRange::Bounds, float, float, float>);
}

TEST(CarriedRange, CarriesItsBoundsAndWhatIsBetween) {
  const auto speed = range(0.7F, 19, 0.16F, false);
  EXPECT_TRUE(speed.carries(0.7F));
  EXPECT_TRUE(speed.carries(19));
  EXPECT_TRUE(speed.carries(5));
  EXPECT_FALSE(speed.carries(0.69F));
  EXPECT_FALSE(speed.carries(19.01F));
  EXPECT_FALSE(speed.carries(0));
  EXPECT_FALSE(speed.carries(-1));
}

TEST(CarriedRange, CarriesZeroApart) {
  const auto speed = range(0.7F, 19, 0.16F, true);
  EXPECT_TRUE(speed.carries(0));
  EXPECT_FALSE(speed.carries(0.1F));
}

TEST(CarriedRange, CarriesNothingThatIsNoNumber) {
  const auto all = range(0, std::numeric_limits<float>::max(), 1, true);
  EXPECT_FALSE(all.carries(std::numeric_limits<float>::quiet_NaN()));
  EXPECT_FALSE(all.carries(std::numeric_limits<float>::infinity()));
}

TEST(CarriedRange, MayCarryNothing) {
  const auto none = CarriedRange::none();
  EXPECT_FALSE(none.carriesAnything());
  EXPECT_FALSE(none.carriesZero());
  EXPECT_FALSE(none.carries(0));
  EXPECT_FALSE(none.carries(1));
  EXPECT_EQ(none.text("W"), "nothing");
}

TEST(CarriedRange, IsToldInWords) {
  EXPECT_EQ(range(0.7F, 19, 0.16F, true).text("km/h"), "0 and 0.7 to 19 km/h");
  EXPECT_EQ(range(0.1F, 25.5F, 0.1F, true).text("km/h"), "0 to 25.5 km/h");
  EXPECT_EQ(range(16, 255, 1, false).text("%"), "16 to 255 %");
}

TEST(DeviceKind, HasTheNamesOfTheLists) {
  EXPECT_EQ(kindName(DeviceKind::treadmill), "Treadmill");
  EXPECT_EQ(kindName(DeviceKind::ergometer), "Ergometer");
  EXPECT_EQ(kindName(DeviceKind::bloodPressureMonitor), "BP");
  EXPECT_EQ(kindName(DeviceKind::oximeter), "SpO2");
}

DeviceModel model(std::int64_t kind, LoadReport loadReport) {
  return modelOf<KivBicycle>("KivBicycle",
                             ExerciseDeviceSettings{.Treadmill = kind,
                                                    .name = "Thing",
                                                    .baud = 9600,
                                                    .databits = 8,
                                                    .stopbits = 1,
                                                    .parity = 0,
                                                    .getWithBP_SpO2 = 0,
                                                    .setWithBP_SpO2 = 0,
                                                    .canStopBP = true,
                                                    .autoSend = true,
                                                    .actualLoad = true},
                             {.speed = CarriedRange::none(),
                              .grade = CarriedRange::none(),
                              .power = CarriedRange::none(),
                              .loadReport = loadReport,
                              .speedUnit = 1,
                              .gradeUnit = 1,
                              .reportsPedalRate = false,
                              .reportsAcknowledgements = false,
                              .reportsReadiness = false,
                              .reportsRefusals = false,
                              .answersPressure = false,
                              .shortestPoll = Duration::zero()});
}

TEST(DeviceModel, TakesNameAndKindFromItsSettings) {
  EXPECT_EQ(model(1, LoadReport::none).name, "Thing");
  EXPECT_EQ(model(1, LoadReport::none).kind, DeviceKind::treadmill);
  EXPECT_EQ(model(0, LoadReport::none).kind, DeviceKind::ergometer);
}

TEST(DeviceModel, SaysWhatNobodySees) {
  EXPECT_EQ(model(1, LoadReport::none).unseen(),
            "Thing reports nothing: nobody but the people in the room sees whether the belt moves");
  EXPECT_EQ(
      model(0, LoadReport::none).unseen(),
      "Thing reports nothing: nobody but the people in the room sees whether there is a load on the pedals");
  EXPECT_EQ(model(1, LoadReport::current).unseen(), "");
  EXPECT_EQ(model(1, LoadReport::firstOnly).unseen(), "");
}

}  // namespace
}  // namespace tarsil
