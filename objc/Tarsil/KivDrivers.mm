#import "Tarsil/KivDrivers.h"

#include <array>
#include <typeinfo>

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
#include "tarsil/drivers/vitals/SpO2Device.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

#import <Tarsil/ORSSerialPort.h>
#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/deviceTwin.h"

namespace tarsil::objc {
namespace {

/// A class of devices in both languages, and its four initialisers.
struct DeviceClass {
  Class kind;
  const std::type_info& type;
  std::shared_ptr<KivStressDevice> (*make)();
  std::shared_ptr<KivStressDevice> (*makeExercise)(const ExerciseDeviceSettings&);
  std::shared_ptr<KivStressDevice> (*makeBP)(const BPDeviceSettings&);
  std::shared_ptr<KivStressDevice> (*makeSpO2)(const SpO2DeviceSettings&);
};

template <class Device, class... Settings>
std::shared_ptr<KivStressDevice> make(const Settings&... settings) {
  return std::make_shared<Device>(settings...);
}

template <class Device>
DeviceClass deviceClass(Class kind) {
  return {kind,
          typeid(Device),
          make<Device>,
          make<Device, ExerciseDeviceSettings>,
          make<Device, BPDeviceSettings>,
          make<Device, SpO2DeviceSettings>};
}

const auto& deviceClasses() {
  static const std::array classes{deviceClass<LodeTreadmill>([::LodeTreadmill class]),
                                  deviceClass<LodeOEMTreadmill>([::LodeOEMTreadmill class]),
                                  deviceClass<TrackMaster>([::TrackMaster class]),
                                  deviceClass<TM_400V2>([::TM_400V2 class]),
                                  deviceClass<KivBicycle>([::KivBicycle class]),
                                  deviceClass<ErgolineP10>([::ErgolineP10 class]),
                                  deviceClass<ErgosanaP10>([::ErgosanaP10 class]),
                                  deviceClass<ErgometricsP3>([::ErgometricsP3 class]),
                                  deviceClass<LodeErgometer38K4>([::LodeErgometer38K4 class]),
                                  deviceClass<BPDevice>([::BPDevice class]),
                                  deviceClass<MEDXINGPort>([::MEDXINGPort class]),
                                  deviceClass<MEDXINGSpO2>([::MEDXINGSpO2 class]),
                                  deviceClass<SpO2Device>([::SpO2Device class]),
                                  deviceClass<KivStressDevice>([::KivStressDevice class])};
  return classes;
}

/// Of a class of the host's own: that of the nearest one above it.
const DeviceClass& classFor(Class kind) {
  for (const auto& known : deviceClasses()) {
    if ([kind isSubclassOfClass:known.kind]) return known;
  }
  return deviceClasses().back();
}

}  // namespace

std::shared_ptr<KivStressDevice> makeDevice(Class kind) {
  return classFor(kind).make();
}
std::shared_ptr<KivStressDevice> makeDevice(Class kind, const ExerciseDeviceSettings& settings) {
  return classFor(kind).makeExercise(settings);
}
std::shared_ptr<KivStressDevice> makeDevice(Class kind, const BPDeviceSettings& settings) {
  return classFor(kind).makeBP(settings);
}
std::shared_ptr<KivStressDevice> makeDevice(Class kind, const SpO2DeviceSettings& settings) {
  return classFor(kind).makeSpO2(settings);
}

id deviceTwin(const std::shared_ptr<KivStressDevice>& device) {
  if (!device) return nil;
  const KivStressDevice& made = *device;
  for (const auto& known : deviceClasses()) {
    if (typeid(made) == known.type) return twinOf(device, known.kind);
  }
  // A driver that a C++ host brought.
  return twinOf(device, [::KivStressDevice class]);
}

NSArray* deviceTwins(const std::vector<std::shared_ptr<KivStressDevice>>& devices) {
  NSMutableArray* const twins = [NSMutableArray arrayWithCapacity:devices.size()];
  for (const auto& device : devices) [twins addObject:deviceTwin(device)];
  return twins;
}

}  // namespace tarsil::objc

@implementation KivBicycle
@end

namespace {

/// Calls the driver's method of the port's delegate; does nothing for a port that is nil.
template <class... Parameters, class... Arguments>
void tell(KivSerialDriver* twin, ORSSerialPort* serialPort,
          void (tarsil::SerialDriver::*method)(tarsil::ORSSerialPort&, Parameters...),
          const Arguments&... arguments) {
  const auto device = tarsil::objc::sharedOf<tarsil::KivStressDevice>(twin);
  const auto port = tarsil::objc::sharedOf<tarsil::ORSSerialPort>(serialPort);
  auto* const driver = dynamic_cast<tarsil::SerialDriver*>(device.get());
  if (driver != nullptr && port) (driver->*method)(*port, arguments...);
}

}  // namespace

@implementation KivSerialDriver

- (void)serialPortWasOpened:(ORSSerialPort*)serialPort {
  tell(self, serialPort, &tarsil::SerialDriver::serialPortWasOpened);
}
- (void)serialPortWasRemovedFromSystem:(ORSSerialPort*)serialPort {
  tell(self, serialPort, &tarsil::SerialDriver::serialPortWasRemovedFromSystem);
}
- (void)serialPort:(ORSSerialPort*)serialPort didEncounterError:(NSError*)error {
  tell(self, serialPort, &tarsil::SerialDriver::serialPortDidEncounterError, tarsil::objc::errorOf(error));
}
- (void)serialPort:(ORSSerialPort*)serialPort didReceiveData:(NSData*)data {
  tell(self, serialPort, &tarsil::SerialDriver::serialPortDidReceiveData, tarsil::objc::bytesOf(data));
}

@end

@implementation LodeTreadmill
@end
@implementation LodeOEMTreadmill
@end
@implementation TrackMaster
@end
@implementation TM_400V2
@end
@implementation ErgolineP10
@end
@implementation ErgosanaP10
@end
@implementation ErgometricsP3
@end
@implementation LodeErgometer38K4
@end
@implementation BPDevice
@end
@implementation MEDXINGPort
@end
@implementation SpO2Device
@end
@implementation MEDXINGSpO2
@end
