#include "tarsil/station/standardCatalogue.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <typeindex>
#include <vector>

#include "tarsil/core/KivBicycle.hpp"
#include "tarsil/drivers/ergometer/ErgolineP10.hpp"
#include "tarsil/drivers/ergometer/ErgometricsP3.hpp"
#include "tarsil/drivers/ergometer/ErgosanaP10.hpp"
#include "tarsil/drivers/ergometer/LodeErgometer38K4.hpp"
#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"
#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"
#include "tarsil/drivers/treadmill/TM_400V2.hpp"
#include "tarsil/drivers/treadmill/TrackMaster.hpp"
#include "tarsil/drivers/vitals/BPDevice.hpp"
#include "tarsil/drivers/vitals/MEDXINGPort.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"

namespace tarsil {
namespace {

struct Row {
  std::string name;
  std::type_index driver;
  std::int64_t baud;
  std::int64_t builtIn;
  bool canStopBP;
  bool autoSend;
};

void expectRows(StressDeviceType type, const std::vector<Row>& rows) {
  const auto devices = standardCatalogue().makeExerciseDevices(type);
  ASSERT_EQ(devices.size(), rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(rows[i].name);
    const auto& device = *devices[i];
    EXPECT_EQ(std::type_index(typeid(device)), rows[i].driver);
    EXPECT_EQ(device.name, rows[i].name);
    EXPECT_EQ(device.Treadmill_or_Ergometer, type == StressDeviceType::Treadmill ? 1 : 0);
    EXPECT_EQ(device.baud, rows[i].baud);
    EXPECT_EQ(device.databits, 8);
    EXPECT_EQ(device.stopbits, 1);
    EXPECT_EQ(device.parity, 0);
    EXPECT_EQ(device.getWithBP_SpO2, rows[i].builtIn);
    EXPECT_EQ(device.setWithBP_SpO2, rows[i].builtIn);
    EXPECT_EQ(device.canStopBP, rows[i].canStopBP);
    EXPECT_EQ(device.autoSend, rows[i].autoSend);
    EXPECT_EQ(device.actualLoad, true);
  }
}

TEST(StandardCatalogue, ListsTheTreadmills) {
  expectRows(StressDeviceType::Treadmill,
             {{"TM-400V2", typeid(TM_400V2), 4800, 0, false, true},
              {"LodeOEMTreadmill", typeid(LodeOEMTreadmill), 19200, 0, true, true},
              {"LodeTreadmill", typeid(LodeTreadmill), 38400, 3, true, true},
              {"TrackMaster", typeid(TrackMaster), 4800, 0, true, true}});
}

TEST(StandardCatalogue, ListsTheErgometers) {
  expectRows(StressDeviceType::Ergometer,
             {{"KivBicycle", typeid(KivBicycle), 38400, 0, true, true},
              {"Ergometer38K4", typeid(LodeErgometer38K4), 38400, 3, true, true},
              {"ErgolineK2.4P10", typeid(ErgolineP10), 4800, 3, false, false},
              {"ErgosanaK4.8P10", typeid(ErgosanaP10), 4800, 3, true, true},
              {"ErgometricsK2.4P3", typeid(ErgometricsP3), 4800, 0, true, true}});
}

TEST(StandardCatalogue, ListsTheOximeters) {
  const auto devices = standardCatalogue().makeOximeters();
  ASSERT_EQ(devices.size(), 1U);
  const auto& device = *devices.front();
  EXPECT_EQ(std::type_index(typeid(device)), std::type_index(typeid(MEDXINGPort)));
  EXPECT_EQ(device.name, "MEDXINGPort");
  EXPECT_EQ(device.baud, 9600);
  EXPECT_EQ(device.databits, 8);
  EXPECT_EQ(device.stopbits, 1);
  EXPECT_EQ(device.parity, 0);
  EXPECT_EQ(device.canStopBP, std::nullopt);
  EXPECT_EQ(device.actualLoad, std::nullopt);
  EXPECT_TRUE(device.autoSend);
}

TEST(StandardCatalogue, HasOneBloodPressureMonitor) {
  const auto monitor = standardCatalogue().bloodPressureMonitor.makeDevice();
  const auto& device = *monitor;
  EXPECT_EQ(std::type_index(typeid(device)), std::type_index(typeid(BPDevice)));
  EXPECT_EQ(device.name, std::nullopt);
  EXPECT_EQ(device.baud, 9600);
  EXPECT_EQ(device.databits, 8);
  EXPECT_EQ(device.stopbits, 1);
  EXPECT_EQ(device.parity, 0);
  EXPECT_EQ(device.canStopBP, true);
  EXPECT_TRUE(device.autoSend);
  EXPECT_EQ(device.Treadmill_or_Ergometer, 0);
}

TEST(StandardCatalogue, KnowsTheOximeterThatItsHostMakes) {
  const auto catalogue = standardCatalogue();
  ASSERT_EQ(catalogue.wirelessOximeters.size(), 1U);
  const auto made = catalogue.wirelessOximeters.front().makeDevice();
  const auto& device = *made;
  EXPECT_EQ(std::type_index(typeid(device)), std::type_index(typeid(MEDXINGSpO2)));
  EXPECT_EQ(device.name, std::nullopt);
  EXPECT_EQ(dynamic_cast<const MEDXINGSpO2&>(device).peripheralName,
            catalogue.wirelessOximeters.front().name);
}

/// The list to be held against: names, driver classes, kinds, and what hosts decide by.
TEST(StandardCatalogue, StatesTheFactsOfEveryModel) {
  std::vector<std::string> rows;
  for (const auto& model : standardCatalogue().models()) {
    std::string row = std::string(kindName(model.kind)) + ", " + model.name + ", " + model.className;
    if (const auto& facts = model.exercise) {
      row += ", speed " + facts->speed.text("km/h") + ", grade " + facts->grade.text("%") + ", power " +
             facts->power.text("W");
      const std::array<const char*, 3> reports{"none", "first only", "current"};
      row += std::string(", load ") + reports.at(static_cast<std::size_t>(LoadReport(facts->loadReport)));
      if (facts->speedUnit != 1 || facts->gradeUnit != 1)
        row +=
            ", units " + std::to_string(int(facts->speedUnit)) + " " + std::to_string(int(facts->gradeUnit));
      if (facts->reportsPedalRate) row += ", pedal rate";
      if (facts->reportsAcknowledgements) row += ", acknowledgements";
      if (facts->reportsReadiness) row += ", readiness";
      if (facts->reportsRefusals) row += ", refusals";
      if (facts->answersPressure) row += ", pressure";
      row += ", poll " + std::to_string(Duration(facts->shortestPoll) / std::chrono::milliseconds(1)) + " ms";
    }
    rows.push_back(row);
  }
  EXPECT_THAT(
      rows,
      testing::ElementsAre(
          "Treadmill, TM-400V2, TM_400V2, speed 1.6 to 17.2 km/h, grade nothing, power nothing, load none, "
          "poll 0 ms",
          "Treadmill, LodeOEMTreadmill, LodeOEMTreadmill, speed 1.6 to 25.5 km/h, grade 16 to 255 %, power "
          "nothing, load first only, units 10 1, readiness, refusals, poll 0 ms",
          "Treadmill, LodeTreadmill, LodeTreadmill, speed 0 to 25.5 km/h, grade 0 to 25.5 %, power nothing, "
          "load current, units 10 10, refusals, poll 0 ms",
          "Treadmill, TrackMaster, TrackMaster, speed 0 and 0.7 to 19 km/h, grade 0 to 25 %, power nothing, "
          "load current, acknowledgements, readiness, refusals, poll 800 ms",
          "Ergometer, KivBicycle, KivBicycle, speed nothing, grade nothing, power nothing, load none, poll 0 "
          "ms",
          "Ergometer, Ergometer38K4, LodeErgometer38K4, speed nothing, grade nothing, power nothing, load "
          "none, poll 0 ms",
          "Ergometer, ErgolineK2.4P10, ErgolineP10, speed nothing, grade nothing, power 0 to 999 W, load "
          "first only, pedal rate, pressure, poll 200 ms",
          "Ergometer, ErgosanaK4.8P10, ErgosanaP10, speed nothing, grade nothing, power 0 to 999 W, load "
          "current, pedal rate, pressure, poll 200 ms",
          "Ergometer, ErgometricsK2.4P3, ErgometricsP3, speed nothing, grade nothing, power 0 to 999 W, load "
          "none, poll 0 ms",
          "BP, Tango, BPDevice", "SpO2, MEDXINGPort, MEDXINGPort", "SpO2, MEDXING-SpO2, MEDXINGSpO2"));
}

TEST(StandardCatalogue, FindsAModelByItsNameToTheLetter) {
  EXPECT_EQ(standardCatalogue().modelNamed("LodeTreadmill").value().className, "LodeTreadmill");
  EXPECT_EQ(standardCatalogue().modelNamed("Ergometer38K4").value().className, "LodeErgometer38K4");
  EXPECT_EQ(standardCatalogue().modelNamed("Tango").value().kind, DeviceKind::bloodPressureMonitor);
  EXPECT_FALSE(standardCatalogue().modelNamed("lodetreadmill"));
  EXPECT_FALSE(standardCatalogue().modelNamed("LodeErgometer38K4")) << "a class name is no model's name";
}

TEST(StandardCatalogue, MakesNewDevicesEachTime) {
  const auto catalogue = standardCatalogue();
  const auto first = catalogue.makeExerciseDevices(StressDeviceType::Ergometer);
  const auto second = catalogue.makeExerciseDevices(StressDeviceType::Ergometer);
  for (std::size_t i = 0; i < first.size(); ++i) EXPECT_NE(first[i], second[i]);
}

}  // namespace
}  // namespace tarsil
