#include "tarsil/station/standardCatalogue.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST(StandardCatalogue, MakesNewDevicesEachTime) {
  const auto catalogue = standardCatalogue();
  const auto first = catalogue.makeExerciseDevices(StressDeviceType::Ergometer);
  const auto second = catalogue.makeExerciseDevices(StressDeviceType::Ergometer);
  for (std::size_t i = 0; i < first.size(); ++i) EXPECT_NE(first[i], second[i]);
}

}  // namespace
}  // namespace tarsil
