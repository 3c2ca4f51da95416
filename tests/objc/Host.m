#import "Host.h"

@implementation Recorder

- (id)init {
  if ((self = [super init]) != nil) _calls = [[NSMutableArray alloc] init];
  return self;
}
- (void)dealloc {
  [_calls release];
  [super dealloc];
}
- (void)note:(NSString*)call {
  [_calls addObject:[NSThread isMainThread] ? call : [call stringByAppendingString:@" on another thread"]];
}
- (NSString*)takeCalls {
  NSString* calls = [_calls componentsJoinedByString:@"\n"];
  [_calls removeAllObjects];
  return calls;
}

@end

@implementation EveryMethod

- (void)onReceivedTreadmillLoadWithSpeed:(float)speed grade:(float)grade {
  [self note:[NSString stringWithFormat:@"load %g %g", speed, grade]];
}
- (void)onReceivedErgometerPowerWithPower:(float)power {
  [self note:[NSString stringWithFormat:@"power %g", power]];
}
- (void)onReceivedErgometerRpmWithRpm:(float)rpm {
  [self note:[NSString stringWithFormat:@"rpm %g", rpm]];
}
- (void)onReceivedBPWithSysBP:(float)sysBP diaBP:(float)diaBP status:(NSInteger)status {
  [self note:[NSString stringWithFormat:@"pressure %g %g %ld", sysBP, diaBP, (long)status]];
}
- (void)onReceivedSpO2WithSpO2:(float)SpO2 status:(NSInteger)status {
  [self note:[NSString stringWithFormat:@"saturation %g %ld", SpO2, (long)status]];
}
- (void)onStressDevicesListWithDeviceList:(NSArray*)deviceList {
  [self note:[NSString stringWithFormat:@"list %@", [deviceList componentsJoinedByString:@","]]];
}
- (void)portWasOpened {
  [self note:@"opened"];
}
- (void)portWasRemovedFromSystem {
  [self note:@"removed"];
}
- (void)onErrorWithCode:(NSString*)code details:(NSString*)details {
  [self note:[NSString stringWithFormat:@"error %@ %@", code, details]];
}
- (void)successfully {
  [self note:@"successfully"];
}
- (void)deviceIsReadyWithIsReady:(BOOL)isReady {
  [self note:isReady ? @"ready" : @"not ready"];
}

- (void)serialPortWasRemovedFromSystem:(ORSSerialPort*)serialPort {
  [self note:[NSString stringWithFormat:@"%@ removed", serialPort]];
}
- (void)serialPort:(ORSSerialPort*)serialPort didReceiveData:(NSData*)data {
  [self note:[NSString stringWithFormat:@"%@ received %@", serialPort, [NSString hexStringFromData:data]]];
}
- (void)serialPort:(ORSSerialPort*)serialPort
      didReceivePacket:(NSData*)packetData
    matchingDescriptor:(ORSSerialPacketDescriptor*)descriptor {
  [self note:[NSString stringWithFormat:@"%@ packet %@ for %@", serialPort,
                                        [NSString hexStringFromData:packetData], [descriptor userInfo]]];
}
- (void)serialPort:(ORSSerialPort*)serialPort
    didReceiveResponse:(NSData*)responseData
             toRequest:(ORSSerialRequest*)request {
  [self note:[NSString stringWithFormat:@"%@ response %@ to %@", serialPort,
                                        [NSString hexStringFromData:responseData], [request userInfo]]];
}
- (void)serialPort:(ORSSerialPort*)serialPort requestDidTimeout:(ORSSerialRequest*)request {
  [self note:[NSString stringWithFormat:@"%@ no response to %@", serialPort, [request userInfo]]];
}
- (void)serialPort:(ORSSerialPort*)serialPort didEncounterError:(NSError*)error {
  [self note:[NSString stringWithFormat:@"%@ error %@ %ld %@ %@", serialPort, [error domain],
                                        (long)[error code], [error localizedDescription],
                                        [[error userInfo] objectForKey:NSFilePathErrorKey]]];
}
- (void)serialPortWasOpened:(ORSSerialPort*)serialPort {
  [self note:[NSString stringWithFormat:@"%@ opened", serialPort]];
}
- (void)serialPortWasClosed:(ORSSerialPort*)serialPort {
  [self note:[NSString stringWithFormat:@"%@ closed", serialPort]];
}

@end

@implementation FewMethods

- (void)onReceivedErgometerRpmWithRpm:(float)rpm {
  [self note:[NSString stringWithFormat:@"rpm %g", rpm]];
}
- (void)serialPort:(ORSSerialPort*)serialPort didReceiveData:(NSData*)data {
  [self note:[NSString stringWithFormat:@"%@ received %@", serialPort, [NSString hexStringFromData:data]]];
}

@end

@implementation RaisingHost

- (void)successfully {
  [NSException raise:@"HostException" format:@"of the host"];
}

@end

@implementation KeyObserver

- (void)observeValueForKeyPath:(NSString*)keyPath
                      ofObject:(id)object
                        change:(NSDictionary*)change
                       context:(void*)context {
  (void)object, (void)context;
  id old = [change objectForKey:NSKeyValueChangeOldKey];
  id new = [ change objectForKey : NSKeyValueChangeNewKey ];
  NSString* what = [NSString stringWithFormat:@"from %@ to %@", old, new];
  switch ([[change objectForKey:NSKeyValueChangeKindKey] intValue]) {
    case NSKeyValueChangeInsertion:
      what = [@"gets " stringByAppendingString:[new componentsJoinedByString:@","]];
      break;
    case NSKeyValueChangeRemoval:
      what = [@"loses " stringByAppendingString:[old componentsJoinedByString:@","]];
      break;
  }
  @synchronized(self) {
    [self note:[NSString stringWithFormat:@"%@ %@", keyPath, what]];
  }
}

@end
