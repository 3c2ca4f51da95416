// Delegates that implement some methods, and how long they are held.

#include "simulators/devices/acceptedReply.hpp"
#include "tarsil/core/KivStressDevice.hpp"

#import "Tarsil/detail/twin.h"
#import "Test.h"

using namespace tarsil::objc;

namespace {

using DelegatesTest = ObjcTest;

tarsil::KivStressDevice& cxxDevice(KivStressDevice* device) {
  return *sharedOf<tarsil::KivStressDevice>(device);
}

void tellEverything(const tarsil::KivStressPortDelegateRef& delegate) {
  delegate.onReceivedTreadmillLoadWithSpeed(5.5F, 2.25F);
  delegate.onReceivedErgometerPowerWithPower(120);
  delegate.onReceivedErgometerRpmWithRpm(60.5F);
  delegate.onReceivedBPWithSysBP(120, 80, -1);
  delegate.onReceivedSpO2WithSpO2(97, 1);
  delegate.onStressDevicesListWithDeviceList({"one", "两"});
  delegate.portWasOpened();
  delegate.portWasRemovedFromSystem();
  delegate.onErrorWithCode("01", "send failure");
  delegate.successfully();
  delegate.deviceIsReadyWithIsReady(true);
  delegate.deviceIsReadyWithIsReady(false);
}

TEST_F(DelegatesTest, EveryMethodOfAHostIsCalledWithItsValues) {
  EveryMethod* const host = [[[EveryMethod alloc] init] autorelease];
  KivBicycle* const device = [[[KivBicycle alloc] init] autorelease];
  [device setKiv_delegate:host];
  tellEverything(cxxDevice(device).kiv_delegate);
  EXPECT_EQ(cxx([host takeCalls]), "load 5.5 2.25\npower 120\nrpm 60.5\npressure 120 80 -1\nsaturation 97 "
                                   "1\nlist one,两\nopened\nremoved\n"
                                   "error 01 send failure\nsuccessfully\nready\nnot ready");
}

TEST_F(DelegatesTest, AHostIsCalledForExactlyTheMethodsThatItImplements) {
  FewMethods* const host = [[[FewMethods alloc] init] autorelease];
  KivBicycle* const device = [[[KivBicycle alloc] init] autorelease];
  [device setKiv_delegate:host];
  tellEverything(cxxDevice(device).kiv_delegate);
  EXPECT_EQ(cxx([host takeCalls]), "rpm 60.5");
}

TEST_F(DelegatesTest, AHostWithoutMethodsAndNoHostAreNeverCalled) {
  KivBicycle* const device = [[[KivBicycle alloc] init] autorelease];
  [device setKiv_delegate:static_cast<id>([[[Recorder alloc] init] autorelease])];
  tellEverything(cxxDevice(device).kiv_delegate);
  [device setKiv_delegate:nil];
  EXPECT_EQ([device kiv_delegate], nil);
  tellEverything(cxxDevice(device).kiv_delegate);
}

TEST_F(DelegatesTest, AnExceptionOfAHostPassesThroughTheLibraryAndTheNextCallWorks) {
  KivBicycle* const device = [[[KivBicycle alloc] init] autorelease];
  [device setKiv_delegate:static_cast<id>([[[RaisingHost alloc] init] autorelease])];
  EXPECT_EQ(cxx(raisedBy([&] { cxxDevice(device).kiv_delegate.successfully(); })),
            "HostException: of the host");
  EXPECT_EQ(cxx(raisedBy([&] { cxxDevice(device).kiv_delegate.successfully(); })),
            "HostException: of the host");
}

TEST_F(DelegatesTest, ADeviceHoldsItsHostUntilItGetsAnother) {
  KivBicycle* const device = [[[KivBicycle alloc] init] autorelease];
  EveryMethod* const host = [[EveryMethod alloc] init];
  const NSUInteger before = [host retainCount];
  [device setKiv_delegate:host];
  EXPECT_EQ([host retainCount], before + 1);
  inPool([&] { EXPECT_EQ([device kiv_delegate], host); });
  [device setKiv_delegate:nil];
  EXPECT_EQ([host retainCount], before);
  [host release];
}

struct PortDelegatesTest : DelegatesTest {
  PortDelegatesTest() {
    NSString* const path = [NSString stringWithUTF8String:terminal.path().c_str()];
    [TarsilSerialDevice addTerminalAtPath:path name:@"line"];
    port = [ORSSerialPort serialPortWithPath:path];
  }
  ~PortDelegatesTest() override {
    [TarsilSerialDevice removeTerminalAtPath:[NSString stringWithUTF8String:terminal.path().c_str()]];
  }

  tarsil::simulators::PseudoTerminal terminal;
  ORSSerialPort* port = nil;
};

TEST_F(PortDelegatesTest, APortRefersToItsDelegateWeakly) {
  EveryMethod* const delegate = [[EveryMethod alloc] init];
  const NSUInteger before = [delegate retainCount];
  [port setDelegate:delegate];
  EXPECT_EQ([delegate retainCount], before);
  inPool([&] { EXPECT_EQ([port delegate], delegate); });
  [delegate release];
  EXPECT_EQ([port delegate], nil);
  // Told nobody, and nothing breaks.
  [port open];
  runUntilSeen([&] { return terminal.isOpenElsewhere(); });
  [port close];
  runUntilClosed(port);
}

TEST_F(PortDelegatesTest, SeveralPortsForgetADelegateThatGoes) {
  EveryMethod* const delegate = [[EveryMethod alloc] init];
  ORSSerialPort* const other = [ORSSerialPort serialPortWithPath:[port path]];
  [port setDelegate:delegate];
  [other setDelegate:delegate];
  [other setDelegate:nil];
  EXPECT_EQ([other delegate], nil);
  [other setDelegate:delegate];
  [delegate release];
  EXPECT_EQ([port delegate], nil);
  EXPECT_EQ([other delegate], nil);
}

TEST_F(PortDelegatesTest, ADelegateWithoutTheOtherMethodsHearsOfDataOnly) {
  FewMethods* const delegate = [[[FewMethods alloc] init] autorelease];
  [port setDelegate:static_cast<id>(delegate)];
  [port open];
  runUntilSeen([&] { return terminal.isOpenElsewhere(); });
  const tarsil::Bytes sent{0x02, 0x00, 0xFF};
  terminal.write(sent);
  NSString* heard = @"";
  runUntil([&] { return [(heard = [delegate takeCalls]) length] > 0; });
  EXPECT_EQ(cxx(heard), "line received 0200ff");
  [port close];
  runUntilClosed(port);
  EXPECT_EQ(cxx([delegate takeCalls]), "");
}

TEST_F(PortDelegatesTest, TheDelegateOfAPortThatADriverTookIsTheDriversTwin) {
  LodeTreadmill* const treadmill = [[[LodeTreadmill alloc] init] autorelease];
  [treadmill setSerialPort:port];
  EXPECT_EQ([port delegate], static_cast<id>(treadmill));
  EXPECT_EQ(cxx([treadmill protPath]), terminal.path());
  [treadmill setSerialPort:nil];
  EXPECT_EQ([treadmill protPath], nil);
}

TEST_F(PortDelegatesTest, ADriverReadsWhatAHostHandsItAsThePortsDelegate) {
  EveryMethod* const host = [[[EveryMethod alloc] init] autorelease];
  LodeTreadmill* const treadmill = [[[LodeTreadmill alloc] init] autorelease];
  [treadmill setKiv_delegate:host];
  [treadmill serialPortWasOpened:port];
  // Speed and grade in tenths, then a refused start, byte by byte.
  for (const tarsil::Bytes& reply : {tarsil::simulators::acceptedReply(0x08, 0x80, tarsil::Bytes{0, 50}),
                                     tarsil::simulators::acceptedReply(0x0A, 0x80, tarsil::Bytes{0, 25}),
                                     tarsil::simulators::acceptedReply(0x01, 0x01, {})}) {
    for (const std::uint8_t byte : reply)
      [treadmill serialPort:port didReceiveData:[NSData dataWithBytes:&byte length:1]];
  }
  [treadmill serialPortWasRemovedFromSystem:port];
  [treadmill serialPortWasOpened:nil];
  EXPECT_EQ(cxx([host takeCalls]), "opened\nload 50 25\nerror 01 \nremoved");
}

TEST_F(PortDelegatesTest, TheManagerPassesOnWhatAPortTellsItWhenAHostMadeItTheDelegate) {
  FewMethods* const few = [[[FewMethods alloc] init] autorelease];
  EveryMethod* const every = [[[EveryMethod alloc] init] autorelease];
  StressECGDeviceManager* const manager = [StressECGDeviceManager share];
  [port setDelegate:manager];
  EXPECT_EQ([port delegate], static_cast<id>(manager));
  [manager setDelegate:every];
  [port open];
  NSString* heard = @"";
  runUntil([&] { return [(heard = [every takeCalls]) length] > 0; });
  EXPECT_EQ(cxx(heard), "opened");
  [manager serialPortWasRemovedFromSystem:port];
  EXPECT_EQ(cxx([every takeCalls]), "removed");
  [manager setDelegate:few];
  [port cleanupAfterSystemRemoval];
  runUntilClosed(port);
  EXPECT_EQ(cxx([few takeCalls]), "");
  [manager setDelegate:nil];
}

}  // namespace
