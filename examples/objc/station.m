// A host in plain Objective-C: a treadmill, a blood-pressure monitor and a pulse oximeter, until each has
// said something. Its arguments are their serial devices.

#import <Foundation/Foundation.h>
#import <Tarsil/Tarsil.h>

/// Hears what the devices say. It implements five of the eleven methods, so it is called for exactly these.
@interface Host : NSObject <KivStressPortDelegate> {
  int _openPorts;
  BOOL _beltMoves;
  BOOL _monitorIsReady;
  BOOL _saturationCame;
  BOOL _failed;
}
- (BOOL)isOver;
- (int)exitCode;
@end

@implementation Host

- (void)portWasOpened {
  if (++_openPorts < 3) return;
  StressECGDeviceManager* station = [StressECGDeviceManager share];
  [station startStressDevice];
  [station setLoadWithKmph_or_power:2.7f grade:10];
  // The first call makes the monitor ready, every later one measures.
  [station startBPWithIsPeripheral:YES];
}

- (void)onReceivedTreadmillLoadWithSpeed:(float)speed grade:(float)grade {
  // This treadmill reports tenths.
  printf("%.1f km/h, %.1f %%\n", speed / 10, grade / 10);
  if (speed > 0) _beltMoves = YES;
}

- (void)onReceivedBPWithSysBP:(float)sysBP diaBP:(float)diaBP status:(NSInteger)status {
  // 3: there is no pressure; the monitor is ready.
  if (status == 3) printf("the monitor is ready\n");
  if (status != 3) printf("%.0f/%.0f mmHg\n", sysBP, diaBP);
  _monitorIsReady = YES;
}

- (void)onReceivedSpO2WithSpO2:(float)SpO2 status:(NSInteger)status {
  (void)status;
  printf("oxygen saturation %.0f %%\n", SpO2);
  _saturationCame = YES;
}

- (void)onErrorWithCode:(NSString*)code details:(NSString*)details {
  printf("error %s: %s\n", [code UTF8String], [details UTF8String]);
  _failed = YES;
}

- (BOOL)isOver {
  return _failed || (_beltMoves && _monitorIsReady && _saturationCame);
}

- (int)exitCode {
  return _failed || ![self isOver] ? 1 : 0;
}

- (void)ask:(NSTimer*)timer {
  (void)timer;
  [[StressECGDeviceManager share] requestLoad];
}

@end

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];

  // Real adapters are found by themselves; this makes any terminal a port.
  [TarsilSerialDevice addTerminalAtPath:[NSString stringWithUTF8String:argv[1]] name:@"treadmill"];
  [TarsilSerialDevice addTerminalAtPath:[NSString stringWithUTF8String:argv[2]] name:@"monitor"];
  [TarsilSerialDevice addTerminalAtPath:[NSString stringWithUTF8String:argv[3]] name:@"oximeter"];

  Host* host = [[[Host alloc] init] autorelease];
  StressECGDeviceManager* station = [StressECGDeviceManager share];
  [station getPortWithIsSpO2:NO];
  [station getDeviceByTypeWithType:@"Treadmill"];
  [[station getSelectedWithDevice:@"LodeTreadmill" type:PortTypeDevice] setKiv_delegate:host];
  [[station getSelectedWithDevice:@"MEDXINGPort" type:PortTypeSpO2] setKiv_delegate:host];
  [station selectedPortWithPort:@"treadmill" type:PortTypeDevice];
  [station selectedPortWithPort:@"oximeter" type:PortTypeSpO2];
  // Choosing its port makes the monitor.
  [station selectedPortWithPort:@"monitor" type:PortTypeBP];
  [[station BPD] setKiv_delegate:host];
  // Whether a port is open is told later, as `portWasOpened`.
  [station openPortWithType:PortTypeDevice];
  [station openPortWithType:PortTypeSpO2];
  [station openPortWithType:PortTypeBP];

  [TarsilRunLoop attach];
  [NSTimer scheduledTimerWithTimeInterval:0.5 target:host selector:@selector(ask:) userInfo:nil repeats:YES];
  NSDate* patience = [NSDate dateWithTimeIntervalSinceNow:60];
  while (![host isOver] && [patience timeIntervalSinceNow] > 0) {
    [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:patience];
  }

  [station stopStressDevice];
  [station closePort];
  int exitCode = [host exitCode];
  [pool drain];
  return exitCode;
}
