// A station as a host drives it, and the ports that come and go.

#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

#import "Tarsil/detail/twin.h"
#import "Test.h"

using namespace tarsil::objc;

@interface NotificationRecorder : Recorder
@end
@implementation NotificationRecorder
- (void)posted:(NSNotification*)notification {
  NSString* const key = [[[notification userInfo] allKeys] objectAtIndex:0];
  [self
      note:[NSString
               stringWithFormat:@"%@ by %@: %@ %@", [notification name], [[notification object] class], key,
                                [[[notification userInfo] objectForKey:key] componentsJoinedByString:@","]]];
}
@end

namespace {

void noteNames(NSArray* names, void* context) {
  [static_cast<Recorder*>(context) note:[names componentsJoinedByString:@","]];
}

struct ManagerTest : ObjcTest {
  ManagerTest() { tarsil::StressECGDeviceManager::exchangeShared(nullptr); }

  StressECGDeviceManager* const manager = [StressECGDeviceManager share];
};

TEST_F(ManagerTest, ListsKindsAndDevices) {
  EXPECT_EQ(cxx([[manager getDeivceType] componentsJoinedByString:@","]), "Treadmill,Ergometer");
  EXPECT_EQ([[manager getDeviceByTypeWithType:@"Treadmill"] count], 4U);
  EXPECT_EQ([manager getDeviceByTypeWithType:@"ergometer"], nil);
  EXPECT_EQ([manager getDeviceByTypeWithType:nil], nil);
  EXPECT_EQ([[manager devices] count], 4U);
  EXPECT_EQ([[manager getSpO2Devices] count], 1U);
  EXPECT_EQ([[manager SpO2Devices] count], 1U);
}

TEST_F(ManagerTest, CommandsReachTheLineOfTheChosenPort) {
  tarsil::simulators::PseudoTerminal terminal;
  NSString* const path = [NSString stringWithUTF8String:terminal.path().c_str()];
  [ORSSerialPortManager sharedSerialPortManager];
  EveryMethod* const host = [[[EveryMethod alloc] init] autorelease];
  [TarsilSerialDevice addTerminalAtPath:path name:@"belt"];
  runUntil([&] { return [[ORSSerialPortManager sharedSerialPortManager] countOfAvailablePorts] == 1; });
  EXPECT_EQ(cxx([[manager getPortWithIsSpO2:NO] componentsJoinedByString:@","]), "belt");
  EXPECT_EQ([manager openPortWithType:PortTypeDevice], NO);
  [manager getDeviceByTypeWithType:@"Treadmill"];
  [[manager getSelectedWithDevice:@"TM-400V2" type:PortTypeDevice] setKiv_delegate:host];
  [manager selectedPortWithPort:@"belt" type:PortTypeDevice];
  EXPECT_EQ([manager devicePort], [[manager ports] objectAtIndex:0]);
  EXPECT_EQ([manager openPortWithType:PortTypeDevice], YES);
  EXPECT_EQ([[manager currentDevice] serialPort], [manager devicePort]);
  NSString* heard = @"";
  runUntil([&] { return [(heard = [host takeCalls]) length] > 0; });
  EXPECT_EQ(cxx(heard), "opened");
  [manager startStressDevice];
  [manager setLoadWithKmph_or_power:5 grade:2];
  [manager stopStressDevice];
  // Start, 5.0 km/h, stop; the grade is never sent.
  EXPECT_EQ(received(terminal, 21), "23e310001000fd23e3006132008a23e310002000ed");
  [manager closePort];
  runUntilClosed([manager devicePort]);
  [manager selectedPortWithPort:@"belt" type:PortTypeBP];
  EXPECT_TRUE([[manager BPD] isKindOfClass:[BPDevice class]]);
  EXPECT_EQ([manager BPPort], [manager devicePort]);
  [manager selectedPortWithPort:@"belt" type:PortTypeSpO2];
  EXPECT_EQ([manager SpO2Port], [manager devicePort]);
  [TarsilSerialDevice removeTerminalAtPath:path];
  runUntil([&] { return [[ORSSerialPortManager sharedSerialPortManager] countOfAvailablePorts] == 0; });
}

TEST_F(ManagerTest, ACommandWithoutADeviceDoesNothing) {
  [manager startStressDevice];
  [manager stopStressDevice];
  [manager setLoadWithKmph_or_power:1 grade:1];
  [manager requestLoad];
  [manager deviceState];
  [manager breakBPWithIsPeripheral:NO];
  EXPECT_EQ([manager isTango], NO);
  [manager clearBPWithIsPeripheral:YES];
  EXPECT_EQ([manager isTango], NO);
  [manager clearBPWithIsPeripheral:NO];
  EXPECT_EQ([manager isTango], YES);
  [manager startBPWithIsPeripheral:YES];
  [manager requestBPWithIsPeripheral:YES];
  [manager startSpO2WithType:PortTypeDevice];
  [manager stopSpO2WithType:PortTypeBP];
  EXPECT_EQ([manager isSpO2BluetoothWithName:@"MEDXING-SpO2"], NO);
  EXPECT_EQ([manager getSpO2BlueToothName], nil);
  [manager connectBluetoothSpO2];
  [manager closePort];
}

TEST_F(ManagerTest, EveryPropertyKeepsWhatIsSet) {
  EXPECT_EQ([manager ports], nil);
  for (NSString* key :
       std::initializer_list<NSString*>{@"isTango", @"getPortIsSpO2", @"deviceType", @"isreceived"}) {
    EXPECT_FALSE([[manager valueForKey:key] boolValue]) << cxx(key);
    [manager setValue:[NSNumber numberWithBool:YES] forKey:key];
    EXPECT_TRUE([[manager valueForKey:key] boolValue]) << cxx(key);
  }
  EXPECT_EQ(cxx([manager serviceid]), "FFB0");
  EXPECT_EQ(cxx([manager characteristicid]), "FFB2");
  for (NSString* key :
       std::initializer_list<NSString*>{@"serviceid", @"characteristicid", @"befoSpO2Value"}) {
    [manager setValue:@"x" forKey:key];
    EXPECT_EQ(cxx(static_cast<NSString*>([manager valueForKey:key])), "x") << cxx(key);
  }
  KivBicycle* const device = [[[KivBicycle alloc] init] autorelease];
  for (NSString* key : std::initializer_list<NSString*>{@"currentDevice", @"BPD", @"SpO2D"}) {
    [manager setValue:device forKey:key];
    EXPECT_EQ([manager valueForKey:key], device) << cxx(key);
  }
  [manager setDevices:[NSArray arrayWithObject:device]];
  EXPECT_TRUE([[manager devices] isEqual:[NSArray arrayWithObject:device]]);
  [manager setSpO2Devices:[NSArray arrayWithObject:device]];
  EXPECT_TRUE([[manager SpO2Devices] isEqual:[NSArray arrayWithObject:device]]);
  // Under its key the list is made anew: key-value coding takes the operation `getSpO2Devices` for the
  // getter.
  EXPECT_FALSE([[manager valueForKey:@"SpO2Devices"] isEqual:[NSArray arrayWithObject:device]]);
  for (NSString* key : std::initializer_list<NSString*>{@"portNames", @"portNamesWithSpO2"}) {
    [manager setValue:[NSArray arrayWithObject:@"ttyS0"] forKey:key];
    EXPECT_TRUE([[manager valueForKey:key] isEqual:[NSArray arrayWithObject:@"ttyS0"]]) << cxx(key);
  }
  [TarsilSerialDevice addTerminalAtPath:@"/dev/kept" name:@"kept"];
  ORSSerialPort* const port = [ORSSerialPort serialPortWithPath:@"/dev/kept"];
  [TarsilSerialDevice removeTerminalAtPath:@"/dev/kept"];
  for (NSString* key : std::initializer_list<NSString*>{@"devicePort", @"BPPort", @"SpO2Port"}) {
    [manager setValue:port forKey:key];
    EXPECT_EQ([manager valueForKey:key], port) << cxx(key);
  }
  [manager setPorts:[NSArray arrayWithObject:port]];
  EXPECT_EQ([[manager ports] objectAtIndex:0], port);
  [manager setPorts:nil];
  EXPECT_EQ([manager ports], nil);
}

TEST_F(ManagerTest, TheClosuresHearOfChangedLists) {
  Recorder* const names = [[[Recorder alloc] init] autorelease];
  Recorder* const namesForSpO2 = [[[Recorder alloc] init] autorelease];
  EXPECT_EQ([manager getPortsName], nil);
  id const closure = [TarsilClosure namesFunction:noteNames context:names];
  [manager setGetPortsName:closure];
  [manager setGetPortsNameWithSpO2:[TarsilClosure namesFunction:noteNames context:namesForSpO2]];
  EXPECT_EQ([manager getPortsName], closure);
  [manager getPortWithIsSpO2:NO];
  [TarsilSerialDevice addTerminalAtPath:@"/dev/one" name:@"one"];
  runUntil([&] { return [[ORSSerialPortManager sharedSerialPortManager] countOfAvailablePorts] == 1; });
  [manager port];
  [manager port];
  EXPECT_EQ(cxx([names takeCalls]), "one");
  EXPECT_EQ(cxx([namesForSpO2 takeCalls]), "");
  [manager getPortWithIsSpO2:YES];
  [manager setGetPortsName:nil];
  EXPECT_EQ([manager getPortsName], nil);
  [TarsilSerialDevice addTerminalAtPath:@"/dev/two" name:@"two"];
  runUntil([&] { return [[ORSSerialPortManager sharedSerialPortManager] countOfAvailablePorts] == 2; });
  [manager port];
  EXPECT_EQ(cxx([names takeCalls]), "");
  EXPECT_EQ(cxx([namesForSpO2 takeCalls]), "one,two");
  [manager setGetPortsNameWithSpO2:nil];
  [TarsilSerialDevice removeTerminalAtPath:@"/dev/one"];
  [TarsilSerialDevice removeTerminalAtPath:@"/dev/two"];
  runUntil([&] { return [[ORSSerialPortManager sharedSerialPortManager] countOfAvailablePorts] == 0; });
}

TEST_F(ManagerTest, PortsThatComeAndGoAreNotificationsAndChangesOfTheList) {
  ORSSerialPortManager* const ports = [ORSSerialPortManager sharedSerialPortManager];
  NotificationRecorder* const notified = [[[NotificationRecorder alloc] init] autorelease];
  KeyObserver* const observer = [[[KeyObserver alloc] init] autorelease];
  NSNotificationCenter* const center = [NSNotificationCenter defaultCenter];
  for (NSString* name : std::initializer_list<NSString*>{ORSSerialPortWasConnectedNotification,
                                                         ORSSerialPortWasDisconnectedNotification})
    [center addObserver:notified selector:@selector(posted:) name:name object:ports];
  [ports addObserver:observer
          forKeyPath:@"availablePorts"
             options:NSKeyValueObservingOptionOld | NSKeyValueObservingOptionNew
             context:nullptr];

  [TarsilSerialDevice addTerminalAtPath:@"/dev/coming" name:@"coming"];
  NSString* heard = @"";
  runUntil([&] { return [(heard = [notified takeCalls]) length] > 0; });
  EXPECT_EQ(
      cxx(heard),
      "ORSSerialPortWasConnectedNotification by ORSSerialPortManager: ORSConnectedSerialPortsKey coming");
  EXPECT_EQ(cxx([observer takeCalls]), "availablePorts gets coming");
  EXPECT_EQ(cxx([[ports objectInAvailablePortsAtIndex:0] name]), "coming");

  [TarsilSerialDevice removeTerminalAtPath:@"/dev/coming"];
  runUntil([&] { return [(heard = [notified takeCalls]) length] > 0; });
  EXPECT_EQ(cxx(heard), "ORSSerialPortWasDisconnectedNotification by ORSSerialPortManager: "
                        "ORSDisconnectedSerialPortsKey coming");
  EXPECT_EQ(cxx([observer takeCalls]), "availablePorts loses coming");
  [ports removeObserver:observer forKeyPath:@"availablePorts"];
  [center removeObserver:notified];
}

TEST_F(ManagerTest, TheHostMayChangeTheListOfPorts) {
  ORSSerialPortManager* const ports = [ORSSerialPortManager sharedSerialPortManager];
  [TarsilSerialDevice addTerminalAtPath:@"/dev/by-hand" name:@"by hand"];
  ORSSerialPort* const port = [ORSSerialPort serialPortWithPath:@"/dev/by-hand"];
  [TarsilSerialDevice removeTerminalAtPath:@"/dev/by-hand"];
  [ports insertObject:port inAvailablePortsAtIndex:0];
  EXPECT_EQ([ports objectInAvailablePortsAtIndex:0], port);
  [ports removeObjectFromAvailablePortsAtIndex:0];
  [ports insertAvailablePorts:[NSArray arrayWithObject:port] atIndexes:[NSIndexSet indexSetWithIndex:0]];
  EXPECT_EQ([[ports availablePorts] objectAtIndex:0], port);
  NSNotification* const sleep = [NSNotification notificationWithName:@"sleep" object:nil];
  [ports systemWillSleep:sleep];
  [ports systemDidWake:sleep];
  EXPECT_EQ([port isOpen], NO);
  [ports removeAvailablePortsAtIndexes:[NSIndexSet indexSetWithIndex:0]];
  EXPECT_EQ([ports countOfAvailablePorts], 0U);
}

}  // namespace
