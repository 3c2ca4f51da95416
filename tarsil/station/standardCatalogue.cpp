#include "tarsil/station/standardCatalogue.hpp"

#include <cstdint>
#include <string>
#include <utility>

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

enum Kind : std::int64_t { ergometer = 0, treadmill = 1 };

/// What tells the exercise devices apart. All are 8N1 and report the load actually reached.
struct Model {
  std::string name;
  std::int64_t baud;
  /// 0 nothing, 3 a built-in blood-pressure unit, switched on.
  std::int64_t builtIn;
  bool canStopBP = true;
  bool autoSend = true;
};

template <class Driver>
DeviceModel<ExerciseDeviceSettings> exerciseDevice(Kind kind, Model model) {
  return modelOf<Driver>(ExerciseDeviceSettings{.Treadmill = kind,
                                                .name = std::move(model.name),
                                                .baud = model.baud,
                                                .databits = 8,
                                                .stopbits = 1,
                                                .parity = 0,
                                                .getWithBP_SpO2 = model.builtIn,
                                                .setWithBP_SpO2 = model.builtIn,
                                                .canStopBP = model.canStopBP,
                                                .autoSend = model.autoSend,
                                                .actualLoad = true});
}

}  // namespace

DeviceCatalogue standardCatalogue() {
  return {
      .treadmills =
          {
              exerciseDevice<TM_400V2>(treadmill,
                                       {.name = "TM-400V2", .baud = 4800, .builtIn = 0, .canStopBP = false}),
              exerciseDevice<LodeOEMTreadmill>(treadmill,
                                               {.name = "LodeOEMTreadmill", .baud = 19200, .builtIn = 0}),
              exerciseDevice<LodeTreadmill>(treadmill,
                                            {.name = "LodeTreadmill", .baud = 38400, .builtIn = 3}),
              exerciseDevice<TrackMaster>(treadmill, {.name = "TrackMaster", .baud = 4800, .builtIn = 0}),
          },
      .ergometers =
          {
              exerciseDevice<KivBicycle>(ergometer, {.name = "KivBicycle", .baud = 38400, .builtIn = 0}),
              exerciseDevice<LodeErgometer38K4>(ergometer,
                                                {.name = "Ergometer38K4", .baud = 38400, .builtIn = 3}),
              exerciseDevice<ErgolineP10>(ergometer, {.name = "ErgolineK2.4P10",
                                                      .baud = 4800,
                                                      .builtIn = 3,
                                                      .canStopBP = false,
                                                      .autoSend = false}),
              exerciseDevice<ErgosanaP10>(ergometer, {.name = "ErgosanaK4.8P10", .baud = 4800, .builtIn = 3}),
              exerciseDevice<ErgometricsP3>(ergometer,
                                            {.name = "ErgometricsK2.4P3", .baud = 4800, .builtIn = 0}),
          },
      .oximeters = {modelOf<MEDXINGPort>(SpO2DeviceSettings{
          .SpO2 = "MEDXINGPort", .baud = 9600, .databits = 8, .stopbits = 1, .parity = 0})},
      .bloodPressureMonitor = modelOf<BPDevice>(BPDeviceSettings{
          .BP = 9600, .databits = 8, .stopbits = 1, .parity = 0, .autoSend = true, .canStopBP = true}),
  };
}

}  // namespace tarsil
