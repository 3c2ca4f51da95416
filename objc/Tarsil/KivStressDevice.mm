#import "Tarsil/KivStressDevice.h"

#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

#import <Tarsil/ORSSerialPort.h>
#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/delegates.h"
#import "Tarsil/detail/deviceTwin.h"

using namespace tarsil::objc;

namespace {

std::shared_ptr<tarsil::KivStressDevice> device(KivStressDevice* twin) {
  return sharedOf<tarsil::KivStressDevice>(twin);
}

}  // namespace

@implementation KivStressDevice

- (instancetype)initWithTreadmill:(NSInteger)Treadmill
                             name:(NSString*)name
                             baud:(NSInteger)baud
                         databits:(NSInteger)databits
                         stopbits:(NSInteger)stopbits
                           parity:(NSInteger)parity
                   getWithBP_SpO2:(NSInteger)getWithBP_SpO2
                   setWithBP_SpO2:(NSInteger)setWithBP_SpO2
                        canStopBP:(BOOL)canStopBP
                         autoSend:(BOOL)autoSend
                       actualLoad:(BOOL)actualLoad {
  return adopt(self, makeDevice([self class], tarsil::ExerciseDeviceSettings {
                 .Treadmill = Treadmill, .name = textOf(name), .baud = baud, .databits = databits,
                 .stopbits = stopbits, .parity = parity, .getWithBP_SpO2 = getWithBP_SpO2,
                 .setWithBP_SpO2 = setWithBP_SpO2, .canStopBP = canStopBP != NO, .autoSend = autoSend != NO,
                 .actualLoad = actualLoad != NO
               }));
}

- (instancetype)initWithBP:(NSInteger)BP
                  databits:(NSInteger)databits
                  stopbits:(NSInteger)stopbits
                    parity:(NSInteger)parity
                  autoSend:(BOOL)autoSend
                 canStopBP:(BOOL)canStopBP {
  return adopt(self, makeDevice([self class], tarsil::BPDeviceSettings {
                 .BP = BP, .databits = databits, .stopbits = stopbits, .parity = parity,
                 .autoSend = autoSend != NO, .canStopBP = canStopBP != NO
               }));
}

- (instancetype)initWithSpO2:(NSString*)SpO2
                        baud:(NSInteger)baud
                    databits:(NSInteger)databits
                    stopbits:(NSInteger)stopbits
                      parity:(NSInteger)parity {
  return adopt(self, makeDevice([self class], tarsil::SpO2DeviceSettings {
                 .SpO2 = textOf(SpO2), .baud = baud, .databits = databits, .stopbits = stopbits,
                 .parity = parity
               }));
}

- (instancetype)init {
  return adopt(self, makeDevice([self class]));
}

- (id<KivStressPortDelegate>)kiv_delegate {
  return hostDelegate(device(self)->kiv_delegate);
}
- (void)setKiv_delegate:(id<KivStressPortDelegate>)delegate {
  device(self)->kiv_delegate = hostDelegate(delegate);
}
- (NSInteger)Treadmill_or_Ergometer {
  return device(self)->Treadmill_or_Ergometer;
}
- (void)setTreadmill_or_Ergometer:(NSInteger)kind {
  device(self)->Treadmill_or_Ergometer = kind;
}
- (NSString*)name {
  return stringOf(device(self)->name);
}
- (void)setName:(NSString*)name {
  device(self)->name = optionalTextOf(name);
}
- (NSInteger)getWithBP_SpO2 {
  return device(self)->getWithBP_SpO2;
}
- (void)setGetWithBP_SpO2:(NSInteger)functions {
  device(self)->getWithBP_SpO2 = functions;
}
- (BOOL)autoSend {
  return truth(device(self)->autoSend);
}
- (void)setAutoSend:(BOOL)autoSend {
  device(self)->autoSend = autoSend != NO;
}
- (NSString*)port {
  return stringOf(device(self)->port);
}
- (void)setPort:(NSString*)port {
  device(self)->port = optionalTextOf(port);
}
- (NSInteger)baud {
  return device(self)->baud;
}
- (void)setBaud:(NSInteger)baud {
  device(self)->baud = baud;
}
- (NSInteger)setWithBP_SpO2 {
  return device(self)->setWithBP_SpO2;
}
- (void)setSetWithBP_SpO2:(NSInteger)functions {
  device(self)->setWithBP_SpO2 = functions;
}
- (NSString*)protPath {
  return stringOf(device(self)->protPath);
}
- (void)setProtPath:(NSString*)path {
  device(self)->protPath = optionalTextOf(path);
}
- (ORSSerialPort*)serialPort {
  return twinOf(device(self)->serialPort(), [ORSSerialPort class]);
}
- (void)setSerialPort:(ORSSerialPort*)port {
  device(self)->setSerialPort(sharedOf<tarsil::ORSSerialPort>(port));
}

- (void)setDeviceFunctionWithIsBP:(BOOL)isBP isSpO2:(BOOL)isSpO2 {
  device(self)->setDeviceFunction(isBP != NO, isSpO2 != NO);
}
- (void)setLoadWithKmph_or_power:(float)kmph_or_power grade:(float)grade {
  device(self)->setLoad(kmph_or_power, grade);
}
- (void)requestLoad {
  device(self)->requestLoad();
}
- (void)startDeivce {
  device(self)->startDeivce();
}
- (void)stopStressDevice {
  device(self)->stopStressDevice();
}
- (void)startBP {
  device(self)->startBP();
}
- (void)breakBP {
  device(self)->breakBP();
}
- (void)requestBP {
  device(self)->requestBP();
}
- (void)clearBP {
  device(self)->clearBP();
}
- (void)startSpO2 {
  device(self)->startSpO2();
}
- (void)stopSpO2 {
  device(self)->stopSpO2();
}
- (void)requestSpO2 {
  device(self)->requestSpO2();
}
- (void)emergencyStop {
  device(self)->emergencyStop();
}
- (void)emergencyStopRecover {
  device(self)->emergencyStopRecover();
}
- (void)requestStatus {
  device(self)->requestStatus();
}
- (void)deviceState {
  device(self)->deviceState();
}

@end
