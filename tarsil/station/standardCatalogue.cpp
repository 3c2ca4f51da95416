#include "tarsil/station/standardCatalogue.hpp"

#include <chrono>
#include <cstdint>
#include <string>

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

using namespace std::chrono_literals;

enum Kind : std::int64_t { ergometer = 0, treadmill = 1 };

/// What tells the exercise devices apart. All are 8N1 and report the load actually reached.
struct Line {
  std::string name;
  std::int64_t baud;
  /// 0 nothing, 3 a built-in blood-pressure unit, switched on.
  std::int64_t builtIn;
  bool canStopBP = true;
  bool autoSend = true;
};

ExerciseDeviceSettings settingsOf(Kind kind, const Line& line) {
  return {.Treadmill = kind,
          .name = line.name,
          .baud = line.baud,
          .databits = 8,
          .stopbits = 1,
          .parity = 0,
          .getWithBP_SpO2 = line.builtIn,
          .setWithBP_SpO2 = line.builtIn,
          .canStopBP = line.canStopBP,
          .autoSend = line.autoSend,
          .actualLoad = true};
}

/// A model that discards what its machine answers and carries no load, where nothing else is said.
ExerciseFacts silent() {
  return {.speed = CarriedRange::none(),
          .grade = CarriedRange::none(),
          .power = CarriedRange::none(),
          .loadReport = LoadReport::none,
          .speedUnit = 1,
          .gradeUnit = 1,
          .reportsPedalRate = false,
          .reportsAcknowledgements = false,
          .reportsReadiness = false,
          .reportsRefusals = false,
          .answersPressure = false,
          .shortestPoll = 0ms};
}

CarriedRange tenths(float lowest, float highest, bool carriesZero) {
  return CarriedRange({.lowest = lowest, .highest = highest, .step = 0.1F, .carriesZero = carriesZero});
}

CarriedRange whole(float lowest, float highest, bool carriesZero) {
  return CarriedRange({.lowest = lowest, .highest = highest, .step = 1, .carriesZero = carriesZero});
}

DeviceModel tm400V2() {
  auto facts = silent();
  // One hexadecimal digit below 1.6 km/h, a check of one digit above 17.2: either shifts the frame by half a
  // byte. No grade is ever sent.
  facts.speed = tenths(1.6F, 17.2F, false);
  return modelOf<TM_400V2>(
      "TM_400V2", settingsOf(treadmill, {.name = "TM-400V2", .baud = 4800, .builtIn = 0, .canStopBP = false}),
      facts);
}

DeviceModel lodeOEMTreadmill() {
  return modelOf<LodeOEMTreadmill>(
      "LodeOEMTreadmill", settingsOf(treadmill, {.name = "LodeOEMTreadmill", .baud = 19200, .builtIn = 0}),
      {// Neither value is padded: only those of two hexadecimal digits leave the frame's other bytes in
       // place.
       .speed = tenths(1.6F, 25.5F, false),
       .grade = whole(16, 255, false),
       .power = CarriedRange::none(),
       .loadReport = LoadReport::firstOnly,
       .speedUnit = 10,
       .gradeUnit = 1,
       .reportsPedalRate = false,
       .reportsAcknowledgements = false,
       .reportsReadiness = true,
       .reportsRefusals = true,
       .answersPressure = false,
       .shortestPoll = 0ms});
}

DeviceModel lodeTreadmill() {
  return modelOf<LodeTreadmill>("LodeTreadmill",
                                settingsOf(treadmill, {.name = "LodeTreadmill", .baud = 38400, .builtIn = 3}),
                                {.speed = tenths(0.1F, 25.5F, true),
                                 .grade = tenths(0.1F, 25.5F, true),
                                 .power = CarriedRange::none(),
                                 .loadReport = LoadReport::current,
                                 .speedUnit = 10,
                                 .gradeUnit = 10,
                                 .reportsPedalRate = false,
                                 .reportsAcknowledgements = false,
                                 .reportsReadiness = false,
                                 .reportsRefusals = true,
                                 // Measured on command, but the answer is not decoded.
                                 .answersPressure = false,
                                 .shortestPoll = 0ms});
}

DeviceModel trackMaster() {
  return modelOf<TrackMaster>(
      "TrackMaster", settingsOf(treadmill, {.name = "TrackMaster", .baud = 4800, .builtIn = 0}),
      {// Tenths of a mile per hour on the wire.
       .speed = CarriedRange({.lowest = 0.7F, .highest = 19, .step = 0.16F, .carriesZero = true}),
       .grade = whole(1, 25, true),
       .power = CarriedRange::none(),
       .loadReport = LoadReport::current,
       .speedUnit = 1,
       .gradeUnit = 1,
       .reportsPedalRate = false,
       .reportsAcknowledgements = true,
       .reportsReadiness = true,
       .reportsRefusals = true,
       .answersPressure = false,
       .shortestPoll = 800ms});
}

DeviceModel kivBicycle() {
  return modelOf<KivBicycle>(
      "KivBicycle", settingsOf(ergometer, {.name = "KivBicycle", .baud = 38400, .builtIn = 0}), silent());
}

DeviceModel ergometer38K4() {
  // No power either: the point of its decimal text is among the characters that go out.
  return modelOf<LodeErgometer38K4>(
      "LodeErgometer38K4", settingsOf(ergometer, {.name = "Ergometer38K4", .baud = 38400, .builtIn = 3}),
      silent());
}

/// The P10 ergometers; the second command of a load request follows the first by 0.1 s.
ExerciseFacts p10(LoadReport loadReport) {
  return {.speed = CarriedRange::none(),
          .grade = CarriedRange::none(),
          .power = whole(1, 999, true),
          .loadReport = loadReport,
          .speedUnit = 1,
          .gradeUnit = 1,
          .reportsPedalRate = true,
          .reportsAcknowledgements = false,
          .reportsReadiness = false,
          .reportsRefusals = false,
          .answersPressure = true,
          .shortestPoll = 200ms};
}

DeviceModel ergolineP10() {
  const Line line{
      .name = "ErgolineK2.4P10", .baud = 4800, .builtIn = 3, .canStopBP = false, .autoSend = false};
  return modelOf<ErgolineP10>("ErgolineP10", settingsOf(ergometer, line), p10(LoadReport::firstOnly));
}

DeviceModel ergosanaP10() {
  return modelOf<ErgosanaP10>("ErgosanaP10",
                              settingsOf(ergometer, {.name = "ErgosanaK4.8P10", .baud = 4800, .builtIn = 3}),
                              p10(LoadReport::current));
}

DeviceModel ergometricsP3() {
  auto facts = silent();
  facts.power = whole(1, 999, true);
  return modelOf<ErgometricsP3>(
      "ErgometricsP3", settingsOf(ergometer, {.name = "ErgometricsK2.4P3", .baud = 4800, .builtIn = 0}),
      facts);
}

DeviceModel tango() {
  return modelOf<BPDevice>(
      "BPDevice",
      BPDeviceSettings{
          .BP = 9600, .databits = 8, .stopbits = 1, .parity = 0, .autoSend = true, .canStopBP = true},
      "Tango");
}

DeviceModel medxingPort() {
  return modelOf<MEDXINGPort>(
      "MEDXINGPort",
      SpO2DeviceSettings{.SpO2 = "MEDXINGPort", .baud = 9600, .databits = 8, .stopbits = 1, .parity = 0});
}

}  // namespace

DeviceCatalogue standardCatalogue() {
  return {.treadmills = {tm400V2(), lodeOEMTreadmill(), lodeTreadmill(), trackMaster()},
          .ergometers = {kivBicycle(), ergometer38K4(), ergolineP10(), ergosanaP10(), ergometricsP3()},
          .oximeters = {medxingPort()},
          .bloodPressureMonitor = tango(),
          // The name that it advertises.
          .wirelessOximeters = {wirelessModelOf<MEDXINGSpO2>("MEDXINGSpO2", "MEDXING-SpO2")}};
}

}  // namespace tarsil
