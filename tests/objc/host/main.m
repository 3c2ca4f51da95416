// Walks on a Lode treadmill at argv[1] until its belt moves, then stops it.

#import <Foundation/Foundation.h>
#import <Tarsil/Tarsil.h>

@interface Walker : NSObject <KivStressPortDelegate> {
 @public
  BOOL moves;
}
@end

@implementation Walker
- (void)portWasOpened {
  [[StressECGDeviceManager share] startStressDevice];
  [[StressECGDeviceManager share] setLoadWithKmph_or_power:3 grade:0];
}
- (void)onReceivedTreadmillLoadWithSpeed:(float)speed grade:(float)grade {
  printf("%.1f km/h, %.1f %%\n", speed / 10, grade / 10);
  moves = speed > 0;
}
- (void)ask:(NSTimer*)timer {
  (void)timer;
  [[StressECGDeviceManager share] requestLoad];
}
@end

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
  [TarsilRunLoop attach];
  [TarsilSerialDevice addTerminalAtPath:[NSString stringWithUTF8String:argv[1]] name:@"treadmill"];
  // Linked although nothing else of its file is named here.
  if (![[NSString getBinaryByHex:@"1f"] isEqualToString:@"00011111"]) return 3;

  StressECGDeviceManager* station = [StressECGDeviceManager share];
  Walker* walker = [[[Walker alloc] init] autorelease];
  [station getDeviceByTypeWithType:@"Treadmill"];
  [station getPortWithIsSpO2:NO];
  [[station getSelectedWithDevice:@"LodeTreadmill" type:PortTypeDevice] setKiv_delegate:walker];
  [station selectedPortWithPort:@"treadmill" type:PortTypeDevice];
  if (![station openPortWithType:PortTypeDevice]) return 4;

  [NSTimer scheduledTimerWithTimeInterval:0.5
                                   target:walker
                                 selector:@selector(ask:)
                                 userInfo:nil
                                  repeats:YES];
  NSDate* patience = [NSDate dateWithTimeIntervalSinceNow:60];
  while (!walker->moves && [patience timeIntervalSinceNow] > 0) {
    [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:patience];
  }
  [station stopStressDevice];
  [station closePort];
  int exitCode = walker->moves ? 0 : 1;
  [pool drain];
  return exitCode;
}
