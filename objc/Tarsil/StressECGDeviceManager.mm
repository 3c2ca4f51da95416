#import "Tarsil/StressECGDeviceManager.h"

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

#import <Tarsil/ORSSerialPort.h>
#import "Tarsil/detail/closure.h"
#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/delegates.h"
#import "Tarsil/detail/deviceTwin.h"
#import "Tarsil/detail/notifications.h"

using namespace tarsil::objc;

namespace {

std::shared_ptr<tarsil::StressECGDeviceManager> manager(StressECGDeviceManager* twin) {
  return sharedOf<tarsil::StressECGDeviceManager>(twin);
}

std::shared_ptr<tarsil::ORSSerialPort> shared(ORSSerialPort* port) {
  return sharedOf<tarsil::ORSSerialPort>(port);
}
std::shared_ptr<tarsil::KivStressDevice> shared(KivStressDevice* device) {
  return sharedOf<tarsil::KivStressDevice>(device);
}

ORSSerialPort* portTwin(const std::shared_ptr<tarsil::ORSSerialPort>& port) {
  return twinOf(port, [ORSSerialPort class]);
}

tarsil::PortType portType(PortType type) {
  return static_cast<tarsil::PortType>(type);
}

}  // namespace

@implementation StressECGDeviceManager

+ (StressECGDeviceManager*)share {
  forwardNotifications();
  return twinOf(tarsil::StressECGDeviceManager::share().shared_from_this(), self);
}

- (NSArray*)getDeivceType {
  return stringsOf(manager(self)->getDeivceType());
}
- (NSArray*)getDeviceByTypeWithType:(NSString*)type {
  const auto devices = manager(self)->getDeviceByType(textOf(type));
  return devices ? deviceTwins(*devices) : nil;
}
- (NSArray*)getSpO2Devices {
  const auto devices = manager(self)->getSpO2Devices();
  return devices ? deviceTwins(*devices) : nil;
}
- (NSArray*)getPortWithIsSpO2:(BOOL)isSpO2 {
  return stringsOf(manager(self)->getPort(isSpO2 != NO));
}
- (void)port {
  manager(self)->port();
}
- (KivStressDevice*)getSelectedWithDevice:(NSString*)device type:(PortType)type {
  return deviceTwin(manager(self)->getSelected(textOf(device), portType(type)));
}
- (void)selectedPortWithPort:(NSString*)port type:(PortType)type {
  manager(self)->selectedPort(textOf(port), portType(type));
}
- (BOOL)openPortWithType:(PortType)type {
  return truth(manager(self)->openPort(portType(type)));
}
- (void)closePort {
  manager(self)->closePort();
}

- (void)startStressDevice {
  manager(self)->startStressDevice();
}
- (void)stopStressDevice {
  manager(self)->stopStressDevice();
}
- (void)setLoadWithKmph_or_power:(float)kmph_or_power grade:(float)grade {
  manager(self)->setLoad(kmph_or_power, grade);
}
- (void)requestLoad {
  manager(self)->requestLoad();
}
- (void)deviceState {
  manager(self)->deviceState();
}

- (void)startBPWithIsPeripheral:(BOOL)isPeripheral {
  manager(self)->startBP(isPeripheral != NO);
}
- (void)breakBPWithIsPeripheral:(BOOL)isPeripheral {
  manager(self)->breakBP(isPeripheral != NO);
}
- (void)requestBPWithIsPeripheral:(BOOL)isPeripheral {
  manager(self)->requestBP(isPeripheral != NO);
}
- (void)clearBPWithIsPeripheral:(BOOL)isPeripheral {
  manager(self)->clearBP(isPeripheral != NO);
}

- (void)startSpO2WithType:(PortType)type {
  manager(self)->startSpO2(portType(type));
}
- (void)stopSpO2WithType:(PortType)type {
  manager(self)->stopSpO2(portType(type));
}
- (BOOL)isSpO2BluetoothWithName:(NSString*)name {
  return truth(manager(self)->isSpO2Bluetooth(textOf(name)));
}
- (NSString*)getSpO2BlueToothName {
  return stringOf(manager(self)->getSpO2BlueToothName());
}
- (void)connectBluetoothSpO2 {
  manager(self)->connectBluetoothSpO2();
}

- (void)serialPortWasOpened:(ORSSerialPort*)serialPort {
  if (const auto port = shared(serialPort)) manager(self)->serialPortWasOpened(*port);
}
- (void)serialPortWasRemovedFromSystem:(ORSSerialPort*)serialPort {
  if (const auto port = shared(serialPort)) manager(self)->serialPortWasRemovedFromSystem(*port);
}
- (void)serialPort:(ORSSerialPort*)serialPort didEncounterError:(NSError*)encountered {
  if (const auto port = shared(serialPort))
    manager(self)->serialPortDidEncounterError(*port, errorOf(encountered));
}
- (void)serialPort:(ORSSerialPort*)serialPort didReceiveData:(NSData*)data {
  if (const auto port = shared(serialPort)) manager(self)->serialPortDidReceiveData(*port, bytesOf(data));
}

- (id<KivStressPortDelegate>)delegate {
  return hostDelegate(manager(self)->delegate);
}
- (void)setDelegate:(id<KivStressPortDelegate>)delegate {
  manager(self)->delegate = hostDelegate(delegate);
}
- (NSArray*)ports {
  const auto& ports = manager(self)->ports;
  return ports ? twinsOf(*ports, [ORSSerialPort class]) : nil;
}
- (void)setPorts:(NSArray*)ports {
  if (ports == nil)
    manager(self)->ports.reset();
  else
    manager(self)->ports = objectsOf<tarsil::ORSSerialPort>(ports);
}
- (NSArray*)devices {
  return deviceTwins(manager(self)->devices);
}
- (void)setDevices:(NSArray*)devices {
  manager(self)->devices = objectsOf<tarsil::KivStressDevice>(devices);
}
- (NSArray*)SpO2Devices {
  return deviceTwins(manager(self)->SpO2Devices);
}
- (void)setSpO2Devices:(NSArray*)devices {
  manager(self)->SpO2Devices = objectsOf<tarsil::KivStressDevice>(devices);
}
- (ORSSerialPort*)devicePort {
  return portTwin(manager(self)->devicePort);
}
- (void)setDevicePort:(ORSSerialPort*)port {
  manager(self)->devicePort = shared(port);
}
- (ORSSerialPort*)BPPort {
  return portTwin(manager(self)->BPPort);
}
- (void)setBPPort:(ORSSerialPort*)port {
  manager(self)->BPPort = shared(port);
}
- (ORSSerialPort*)SpO2Port {
  return portTwin(manager(self)->SpO2Port);
}
- (void)setSpO2Port:(ORSSerialPort*)port {
  manager(self)->SpO2Port = shared(port);
}
- (KivStressDevice*)currentDevice {
  return deviceTwin(manager(self)->currentDevice);
}
- (void)setCurrentDevice:(KivStressDevice*)device {
  manager(self)->currentDevice = shared(device);
}
- (KivStressDevice*)BPD {
  return deviceTwin(manager(self)->BPD);
}
- (void)setBPD:(KivStressDevice*)device {
  manager(self)->BPD = shared(device);
}
- (KivStressDevice*)SpO2D {
  return deviceTwin(manager(self)->SpO2D);
}
- (void)setSpO2D:(KivStressDevice*)device {
  manager(self)->SpO2D = shared(device);
}
- (NSArray*)portNames {
  return stringsOf(manager(self)->portNames);
}
- (void)setPortNames:(NSArray*)names {
  manager(self)->portNames = textsOf(names);
}
- (TarsilNamesClosure)getPortsName {
  return closureOf(manager(self)->getPortsName);
}
- (void)setGetPortsName:(TarsilNamesClosure)closure {
  manager(self)->getPortsName = namesFunction(closure);
}
- (NSArray*)portNamesWithSpO2 {
  return stringsOf(manager(self)->portNamesWithSpO2);
}
- (void)setPortNamesWithSpO2:(NSArray*)names {
  manager(self)->portNamesWithSpO2 = textsOf(names);
}
- (TarsilNamesClosure)getPortsNameWithSpO2 {
  return closureOf(manager(self)->getPortsNameWithSpO2);
}
- (void)setGetPortsNameWithSpO2:(TarsilNamesClosure)closure {
  manager(self)->getPortsNameWithSpO2 = namesFunction(closure);
}
- (BOOL)isTango {
  return truth(manager(self)->isTango);
}
- (void)setIsTango:(BOOL)isTango {
  manager(self)->isTango = isTango != NO;
}
- (BOOL)getPortIsSpO2 {
  return truth(manager(self)->getPortIsSpO2);
}
- (void)setGetPortIsSpO2:(BOOL)isSpO2 {
  manager(self)->getPortIsSpO2 = isSpO2 != NO;
}
- (NSString*)serviceid {
  return stringOf(manager(self)->serviceid);
}
- (void)setServiceid:(NSString*)serviceid {
  manager(self)->serviceid = textOf(serviceid);
}
- (NSString*)characteristicid {
  return stringOf(manager(self)->characteristicid);
}
- (void)setCharacteristicid:(NSString*)characteristicid {
  manager(self)->characteristicid = textOf(characteristicid);
}
- (BOOL)deviceType {
  return truth(manager(self)->deviceType);
}
- (void)setDeviceType:(BOOL)deviceType {
  manager(self)->deviceType = deviceType != NO;
}
- (NSString*)befoSpO2Value {
  return stringOf(manager(self)->befoSpO2Value);
}
- (void)setBefoSpO2Value:(NSString*)value {
  manager(self)->befoSpO2Value = textOf(value);
}
- (BOOL)isreceived {
  return truth(manager(self)->isreceived);
}
- (void)setIsreceived:(BOOL)isreceived {
  manager(self)->isreceived = isreceived != NO;
}

@end
