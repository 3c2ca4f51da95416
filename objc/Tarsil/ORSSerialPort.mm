#import "Tarsil/ORSSerialPort.h"

#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

#import <Tarsil/ORSSerialPacketDescriptor.h>
#import <Tarsil/ORSSerialRequest.h>
#import <Tarsil/TarsilSerialDevice.h>
#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/delegates.h"

using namespace tarsil::objc;

namespace {

std::shared_ptr<tarsil::ORSSerialPort> port(ORSSerialPort* twin) {
  return sharedOf<tarsil::ORSSerialPort>(twin);
}

std::shared_ptr<tarsil::SerialDevice> shared(TarsilSerialDevice* device) {
  return sharedOf<tarsil::SerialDevice>(device);
}
std::shared_ptr<tarsil::ORSSerialRequest> shared(ORSSerialRequest* request) {
  return sharedOf<tarsil::ORSSerialRequest>(request);
}
std::shared_ptr<tarsil::ORSSerialPacketDescriptor> shared(ORSSerialPacketDescriptor* descriptor) {
  return sharedOf<tarsil::ORSSerialPacketDescriptor>(descriptor);
}

TarsilSerialDevice* deviceTwin(const std::shared_ptr<const tarsil::SerialDevice>& device) {
  return twinOf(std::const_pointer_cast<tarsil::SerialDevice>(device), [TarsilSerialDevice class]);
}

using Property = std::optional<std::string> (&)(const tarsil::SerialDevice&);

NSString* property(TarsilSerialDevice* device, Property property) {
  return device == nil ? nil : stringOf(property(*shared(device)));
}

}  // namespace

@implementation ORSSerialPort

+ (ORSSerialPort*)serialPortWithPath:(NSString*)devicePath {
  return [[[self alloc] initWithPath:devicePath] autorelease];
}
- (instancetype)initWithPath:(NSString*)devicePath {
  return [self initWithDevice:[ORSSerialPort deviceFromBSDPath:devicePath]];
}
+ (ORSSerialPort*)serialPortWithDevice:(TarsilSerialDevice*)device {
  return [[[self alloc] initWithDevice:device] autorelease];
}
- (instancetype)initWithDevice:(TarsilSerialDevice*)device {
  return adopt(self, device == nil ? nullptr : tarsil::ORSSerialPort::serialPortWithDevice(shared(device)));
}
- (instancetype)init {
  return [self initWithPath:@""];
}

+ (TarsilSerialDevice*)deviceFromBSDPath:(NSString*)bsdPath {
  return deviceTwin(tarsil::SerialDeviceRegistry::shared()->deviceFromBSDPath(textOf(bsdPath)));
}
+ (NSString*)bsdCalloutPathFromDevice:(TarsilSerialDevice*)device {
  return property(device, tarsil::ORSSerialPort::bsdCalloutPathFromDevice);
}
+ (NSString*)bsdDialinPathFromDevice:(TarsilSerialDevice*)device {
  return property(device, tarsil::ORSSerialPort::bsdDialinPathFromDevice);
}
+ (NSString*)baseNameFromDevice:(TarsilSerialDevice*)device {
  return property(device, tarsil::ORSSerialPort::baseNameFromDevice);
}
+ (NSString*)serviceTypeFromDevice:(TarsilSerialDevice*)device {
  return property(device, tarsil::ORSSerialPort::serviceTypeFromDevice);
}
+ (NSString*)modemNameFromDevice:(TarsilSerialDevice*)device {
  return property(device, tarsil::ORSSerialPort::modemNameFromDevice);
}
+ (NSString*)suffixFromDevice:(TarsilSerialDevice*)device {
  return property(device, tarsil::ORSSerialPort::suffixFromDevice);
}

- (void)open {
  port(self)->open();
}
- (BOOL)close {
  return truth(port(self)->close());
}
- (BOOL)sendData:(NSData*)data {
  return truth(port(self)->sendData({static_cast<const std::uint8_t*>([data bytes]), [data length]}));
}
- (void)cleanupAfterSystemRemoval {
  port(self)->cleanupAfterSystemRemoval();
}
- (void)cleanup {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  port(self)->cleanup();
#pragma GCC diagnostic pop
}

- (BOOL)sendRequest:(ORSSerialRequest*)request {
  return truth(port(self)->sendRequest(shared(request)));
}
- (void)cancelQueuedRequest:(ORSSerialRequest*)request {
  port(self)->cancelQueuedRequest(shared(request));
}
- (void)cancelAllQueuedRequests {
  port(self)->cancelAllQueuedRequests();
}
- (void)startListeningForPacketsMatchingDescriptor:(ORSSerialPacketDescriptor*)descriptor {
  port(self)->startListeningForPacketsMatchingDescriptor(shared(descriptor));
}
- (void)stopListeningForPacketsMatchingDescriptor:(ORSSerialPacketDescriptor*)descriptor {
  port(self)->stopListeningForPacketsMatchingDescriptor(shared(descriptor));
}

- (id<ORSSerialPortDelegate>)delegate {
  return portDelegate(port(self)->delegate());
}
- (void)setDelegate:(id<ORSSerialPortDelegate>)delegate {
  // The port holds it weakly, as it refers to the host's delegate weakly.
  const auto kept = portDelegate(delegate);
  port(self)->setDelegate(reference(kept));
  keep(self, kept);
}
- (NSString*)path {
  return stringOf(port(self)->path());
}
- (NSString*)name {
  return stringOf(port(self)->name());
}
- (TarsilSerialDevice*)IOKitDevice {
  return deviceTwin(port(self)->device());
}
- (BOOL)isOpen {
  return truth(port(self)->isOpen());
}
- (NSNumber*)baudRate {
  return [NSNumber numberWithUnsignedLongLong:port(self)->baudRate()];
}
- (void)setBaudRate:(NSNumber*)baudRate {
  port(self)->setBaudRate([baudRate unsignedLongLongValue]);
}
- (BOOL)allowsNonStandardBaudRates {
  return truth(port(self)->allowsNonStandardBaudRates());
}
- (void)setAllowsNonStandardBaudRates:(BOOL)allowed {
  port(self)->setAllowsNonStandardBaudRates(allowed != NO);
}
- (NSUInteger)numberOfStopBits {
  return port(self)->numberOfStopBits();
}
- (void)setNumberOfStopBits:(NSUInteger)bits {
  port(self)->setNumberOfStopBits(bits);
}
- (NSUInteger)numberOfDataBits {
  return port(self)->numberOfDataBits();
}
- (void)setNumberOfDataBits:(NSUInteger)bits {
  port(self)->setNumberOfDataBits(bits);
}
- (ORSSerialPortParity)parity {
  return static_cast<ORSSerialPortParity>(port(self)->parity());
}
- (void)setParity:(ORSSerialPortParity)parity {
  port(self)->setParity(static_cast<tarsil::ORSSerialPortParity>(parity));
}
- (BOOL)shouldEchoReceivedData {
  return truth(port(self)->shouldEchoReceivedData());
}
- (void)setShouldEchoReceivedData:(BOOL)echo {
  port(self)->setShouldEchoReceivedData(echo != NO);
}
- (BOOL)usesRTSCTSFlowControl {
  return truth(port(self)->usesRTSCTSFlowControl());
}
- (void)setUsesRTSCTSFlowControl:(BOOL)uses {
  port(self)->setUsesRTSCTSFlowControl(uses != NO);
}
- (BOOL)usesDTRDSRFlowControl {
  return truth(port(self)->usesDTRDSRFlowControl());
}
- (void)setUsesDTRDSRFlowControl:(BOOL)uses {
  port(self)->setUsesDTRDSRFlowControl(uses != NO);
}
- (BOOL)usesDCDOutputFlowControl {
  return truth(port(self)->usesDCDOutputFlowControl());
}
- (void)setUsesDCDOutputFlowControl:(BOOL)uses {
  port(self)->setUsesDCDOutputFlowControl(uses != NO);
}
- (BOOL)RTS {
  return truth(port(self)->RTS());
}
- (void)setRTS:(BOOL)set {
  port(self)->setRTS(set != NO);
}
- (BOOL)DTR {
  return truth(port(self)->DTR());
}
- (void)setDTR:(BOOL)set {
  port(self)->setDTR(set != NO);
}
- (BOOL)CTS {
  return truth(port(self)->CTS());
}
- (BOOL)DSR {
  return truth(port(self)->DSR());
}
- (BOOL)DCD {
  return truth(port(self)->DCD());
}
- (NSArray*)queuedRequests {
  return twinsOf(port(self)->queuedRequests(), [ORSSerialRequest class]);
}
- (ORSSerialRequest*)pendingRequest {
  return twinOf(port(self)->pendingRequest(), [ORSSerialRequest class]);
}
- (NSArray*)packetDescriptors {
  return twinsOf(port(self)->packetDescriptors(), [ORSSerialPacketDescriptor class]);
}

- (NSUInteger)hash {
  return port(self)->hash();
}
- (BOOL)isEqual:(id)other {
  return truth([other isKindOfClass:[ORSSerialPort class]] != NO && *port(self) == *port(other));
}
- (NSString*)description {
  return stringOf(port(self)->description());
}

- (tarsil::Observable*)tarsilObservable {
  return port(self).get();
}
// The port announces its own keys itself, whoever sets them.
+ (BOOL)automaticallyNotifiesObserversForKey:(NSString*)key {
  return truth([ORSSerialPort instancesRespondToSelector:NSSelectorFromString(key)] == NO);
}

@end
