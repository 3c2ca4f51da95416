// A port over a pseudo-terminal, as a host's run loop drives it.

#include "simulators/lines/PseudoTerminal.hpp"

#import "Tarsil/detail/twin.h"
#import "Test.h"

using namespace tarsil::objc;

namespace {

BOOL endsWithZero(NSData* data, void* context) {
  ++*static_cast<int*>(context);
  return [data length] == 2 && static_cast<const unsigned char*>([data bytes])[1] == 0 ? YES : NO;
}

struct PortTest : ObjcTest {
  PortTest() {
    [TarsilSerialDevice addTerminalAtPath:path() name:@"line"];
    port = [ORSSerialPort serialPortWithPath:path()];
    [port setDelegate:delegate];
  }
  ~PortTest() override {
    if ([port isOpen]) {
      [port close];
      runUntilClosed(port);
    }
    [TarsilSerialDevice removeTerminalAtPath:path()];
    [delegate release];
  }

  NSString* path() const { return [NSString stringWithUTF8String:terminal.path().c_str()]; }
  std::string heard() {
    std::string calls;
    runUntil([&] { return !(calls = cxx([delegate takeCalls])).empty(); });
    return calls;
  }
  void open() {
    [port open];
    ASSERT_EQ(heard(), "line opened");
    // What a line gets before somebody noticed the opening is discarded.
    ASSERT_TRUE(terminal.isOpenElsewhere());
  }
  void deviceSends(const char* hex) {
    NSData* const bytes = dataFromHex(hex);
    terminal.write({static_cast<const std::uint8_t*>([bytes bytes]), [bytes length]});
  }
  std::string deviceReceives(std::size_t count) { return received(terminal, count); }

  tarsil::simulators::PseudoTerminal terminal;
  EveryMethod* delegate = [[EveryMethod alloc] init];
  ORSSerialPort* port = nil;
};

TEST_F(PortTest, PropertiesHaveTheirDefaultsAndKeepWhatIsSet) {
  EXPECT_EQ(cxx([port path]), terminal.path());
  EXPECT_EQ(cxx([port name]), "line");
  EXPECT_EQ(cxx([[port IOKitDevice] calloutPath]), terminal.path());
  EXPECT_EQ(cxx([[port IOKitDevice] terminalName]), "line");
  EXPECT_EQ([[port IOKitDevice] stablePath], nil);
  EXPECT_EQ([port isOpen], NO);
  EXPECT_TRUE([[port baudRate] isEqual:[NSNumber numberWithInt:19200]]);
  EXPECT_EQ([port numberOfStopBits], 1U);
  EXPECT_EQ([port numberOfDataBits], 8U);
  EXPECT_EQ([port parity], ORSSerialPortParityNone);
  [port setBaudRate:[NSNumber numberWithInt:4800]];
  [port setNumberOfStopBits:2];
  [port setNumberOfDataBits:7];
  [port setParity:ORSSerialPortParityEven];
  EXPECT_EQ([[port baudRate] intValue], 4800);
  EXPECT_EQ([port numberOfStopBits], 2U);
  EXPECT_EQ([port numberOfDataBits], 7U);
  EXPECT_EQ([port parity], ORSSerialPortParityEven);
  [port setParity:static_cast<ORSSerialPortParity>(3)];
  EXPECT_EQ([port parity], ORSSerialPortParityNone);
  for (NSString* key : std::initializer_list<NSString*>{
           @"allowsNonStandardBaudRates", @"shouldEchoReceivedData", @"usesRTSCTSFlowControl",
           @"usesDTRDSRFlowControl", @"usesDCDOutputFlowControl", @"RTS", @"DTR"}) {
    EXPECT_FALSE([[port valueForKey:key] boolValue]) << cxx(key);
    [port setValue:[NSNumber numberWithBool:YES] forKey:key];
    EXPECT_TRUE([[port valueForKey:key] boolValue]) << cxx(key);
  }
  for (NSString* key : std::initializer_list<NSString*>{@"CTS", @"DSR", @"DCD"})
    EXPECT_FALSE([[port valueForKey:key] boolValue]) << cxx(key);
}

TEST_F(PortTest, ADeviceTellsItsProperties) {
  TarsilSerialDevice* const device = [ORSSerialPort deviceFromBSDPath:path()];
  EXPECT_EQ(device, [port IOKitDevice]);
  EXPECT_TRUE([[TarsilSerialDevice devices] containsObject:device]);
  EXPECT_EQ(cxx([ORSSerialPort bsdCalloutPathFromDevice:device]), terminal.path());
  EXPECT_EQ(cxx([ORSSerialPort bsdDialinPathFromDevice:device]), terminal.path());
  EXPECT_EQ(cxx([ORSSerialPort modemNameFromDevice:device]), "line");
  EXPECT_EQ(cxx([ORSSerialPort baseNameFromDevice:device]) + cxx([ORSSerialPort suffixFromDevice:device]),
            "line");
  EXPECT_EQ(cxx([ORSSerialPort serviceTypeFromDevice:device]), "IOSerialStream");
}

TEST_F(PortTest, BytesGoBothWays) {
  EXPECT_EQ([port sendData:dataFromHex("01")], NO);
  open();
  EXPECT_EQ([port sendData:[NSData data]], YES);
  EXPECT_EQ([port sendData:dataFromHex("02ff00")], YES);
  EXPECT_EQ(deviceReceives(3), "02ff00");
  deviceSends("0300");
  EXPECT_EQ(heard(), "line received 0300");
  EXPECT_EQ([port close], YES);
  EXPECT_EQ(heard(), "line closed");
}

TEST_F(PortTest, AnErrorIsAnNSErrorOfThePosixDomain) {
  ORSSerialPort* const second = [ORSSerialPort serialPortWithPath:path()];
  open();
  [second setDelegate:delegate];
  [second open];
  EXPECT_THAT(heard(),
              testing::MatchesRegex("line error NSPOSIXErrorDomain (11 Resource temporarily unavailable|16 "
                                    "Device or resource busy) " +
                                    terminal.path()));
  EXPECT_EQ([second isOpen], NO);
}

TEST_F(PortTest, PacketsReachTheDelegateWithTheTwinThatWasListenedFor) {
  open();
  ORSSerialPacketDescriptor* const descriptor =
      [[[ORSSerialPacketDescriptor alloc] initWithPrefix:dataFromHex("24")
                                                  suffix:dataFromHex("0d0a")
                                     maximumPacketLength:10
                                                userInfo:@"frames"] autorelease];
  [port startListeningForPacketsMatchingDescriptor:descriptor];
  EXPECT_EQ([[port packetDescriptors] objectAtIndex:0], descriptor);
  deviceSends("2441420d0a");
  std::string calls = heard();
  while (calls.find("packet") == std::string::npos) calls += "\n" + heard();
  EXPECT_THAT(calls, testing::EndsWith("line packet 2441420d0a for frames"));
  [port stopListeningForPacketsMatchingDescriptor:descriptor];
  EXPECT_EQ([[port packetDescriptors] count], 0U);
}

TEST_F(PortTest, RequestsWaitForTheirResponseOrTimeOut) {
  open();
  ORSSerialPacketDescriptor* const answer =
      [[[ORSSerialPacketDescriptor alloc] initWithPrefixString:@"A"
                                                  suffixString:@"Z"
                                           maximumPacketLength:4
                                                      userInfo:nil] autorelease];
  const auto request = [&](NSString* name, NSTimeInterval timeout) {
    return [ORSSerialRequest requestWithDataToSend:[name dataUsingEncoding:NSUTF8StringEncoding]
                                          userInfo:name
                                   timeoutInterval:timeout
                                responseDescriptor:answer];
  };
  ORSSerialRequest* const first = request(@"first", 0);
  ORSSerialRequest* const second = request(@"second", 0);
  ORSSerialRequest* const third = request(@"third", 0.05);
  EXPECT_EQ([port sendRequest:first], YES);
  EXPECT_EQ([port sendRequest:second], YES);
  EXPECT_EQ([port sendRequest:third], YES);
  EXPECT_EQ([port sendRequest:nil], NO);
  EXPECT_EQ([port pendingRequest], first);
  EXPECT_TRUE([[port queuedRequests] isEqual:([NSArray arrayWithObjects:second, third, nil])]);
  [port cancelQueuedRequest:second];
  EXPECT_EQ(deviceReceives(5), cxx([NSString hexStringFromData:[first dataToSend]]));
  deviceSends("415a");
  std::string calls = heard();
  while (calls.find("no response") == std::string::npos) calls += "\n" + heard();
  EXPECT_THAT(calls, testing::EndsWith("line response 415a to first\nline no response to third"));
  [port cancelAllQueuedRequests];
}

TEST_F(PortTest, ARequestDescribesItself) {
  ORSSerialRequest* const request = [ORSSerialRequest requestWithDataToSend:dataFromHex("01")
                                                                   userInfo:@"mine"
                                                            timeoutInterval:1.5
                                                         responseDescriptor:nil];
  EXPECT_THAT(
      cxx([request description]),
      testing::MatchesRegex("<ORSSerialRequest: 0x[0-9a-f]+> data: <01> userInfo: mine timeout interval: "
                            "1.500000"));
  EXPECT_EQ([request responseDescriptor], nil);
  EXPECT_EQ([request timeoutInterval], 1.5);
  EXPECT_EQ([request dataIsValidResponse:[NSData data]], YES);
  EXPECT_EQ([[request UUIDString] length], 36U);
}

TEST_F(PortTest, AnEvaluatorIsACFunctionWithItsContext) {
  int asked = 0;
  id const closure = [TarsilClosure evaluatorFunction:endsWithZero context:&asked];
  ORSSerialPacketDescriptor* const descriptor =
      [[[ORSSerialPacketDescriptor alloc] initWithMaximumPacketLength:8
                                                             userInfo:nil
                                                    responseEvaluator:closure] autorelease];
  EXPECT_EQ([descriptor responseEvaluator], closure);
  EXPECT_EQ([descriptor maximumPacketLength], 8U);
  EXPECT_EQ([descriptor dataIsValidPacket:dataFromHex("0100")], YES);
  EXPECT_EQ([descriptor dataIsValidPacket:dataFromHex("0001")], NO);
  EXPECT_EQ(cxx([NSString hexStringFromData:[descriptor packetMatchingAtEndOfBuffer:dataFromHex("050400")]]),
            "0400");
  EXPECT_EQ([descriptor packetMatchingAtEndOfBuffer:dataFromHex("0504")], nil);
  EXPECT_EQ(asked, 6);

  ORSSerialRequest* const request = [ORSSerialRequest requestWithDataToSend:nil
                                                                   userInfo:nil
                                                            timeoutInterval:0
                                                          responseEvaluator:closure];
  EXPECT_EQ([[request responseDescriptor] maximumPacketLength], static_cast<NSUInteger>(INT64_MAX));
  EXPECT_EQ([request dataIsValidResponse:dataFromHex("0100")], YES);
  EXPECT_EQ([request dataIsValidResponse:dataFromHex("01")], NO);
}

/// A block as every compiler with blocks lays one out; `global` says that it need not be copied.
struct Block {
  static constexpr int global = 1 << 28;
  void* isa = nullptr;
  int flags = global;
  int reserved = 0;
  BOOL(*invoke)
  (Block* self, NSData* data) = [](Block* self, NSData* data) {
    ++self->asked;
    return static_cast<BOOL>([data length] == 2 ? YES : NO);
  };
  void* descriptor = nullptr;
  int asked = 0;
};

TEST_F(PortTest, AnEvaluatorMayBeABlock) {
  Block block;
  ORSSerialPacketDescriptor* const descriptor = [[[ORSSerialPacketDescriptor alloc]
      initWithMaximumPacketLength:8
                         userInfo:nil
                responseEvaluator:reinterpret_cast<id>(&block)] autorelease];
  EXPECT_EQ([descriptor dataIsValidPacket:dataFromHex("0100")], YES);
  EXPECT_EQ([descriptor dataIsValidPacket:dataFromHex("01")], NO);
  EXPECT_EQ(block.asked, 2);
}

TEST_F(PortTest, ADescriptorKeepsWhatItWasMadeFrom) {
  NSObject* const info = [[NSObject alloc] init];
  ORSSerialPacketDescriptor* const fixed =
      [[ORSSerialPacketDescriptor alloc] initWithPacketData:dataFromHex("0102") userInfo:info];
  EXPECT_EQ([info retainCount], 2U);
  EXPECT_TRUE([[fixed packetData] isEqual:dataFromHex("0102")]);
  EXPECT_EQ([fixed maximumPacketLength], 2U);
  inPool([&] { EXPECT_EQ([fixed userInfo], info); });
  EXPECT_EQ([fixed prefix], nil);
  EXPECT_EQ([fixed responseEvaluator], nil);
  [fixed release];
  EXPECT_EQ([info retainCount], 1U);
  [info release];

  NSRegularExpression* const digits = [NSRegularExpression regularExpressionWithPattern:@"[0-9]+"
                                                                                options:0
                                                                                  error:nullptr];
  ORSSerialPacketDescriptor* const expression =
      [[[ORSSerialPacketDescriptor alloc] initWithRegularExpression:digits maximumPacketLength:4
                                                           userInfo:nil] autorelease];
  EXPECT_EQ(cxx([[expression regularExpression] pattern]), "[0-9]+");
  EXPECT_EQ([expression dataIsValidPacket:[@"12a" dataUsingEncoding:NSUTF8StringEncoding]], YES);
  EXPECT_EQ([expression dataIsValidPacket:[@"a12" dataUsingEncoding:NSUTF8StringEncoding]], NO);
}

TEST_F(PortTest, ABufferKeepsTheNewestBytesAndTellsObservers) {
  ORSSerialBuffer* const buffer = [[[ORSSerialBuffer alloc] initWithMaximumLength:4] autorelease];
  KeyObserver* const observer = [[[KeyObserver alloc] init] autorelease];
  [buffer addObserver:observer
           forKeyPath:@"data"
              options:NSKeyValueObservingOptionOld | NSKeyValueObservingOptionNew
              context:nullptr];
  [buffer appendData:dataFromHex("0102")];
  [buffer appendData:dataFromHex("03040506")];
  EXPECT_EQ(cxx([NSString hexStringFromData:[buffer data]]), "03040506");
  [buffer appendData:[buffer data]];
  [buffer clearBuffer];
  [buffer removeObserver:observer forKeyPath:@"data"];
  [buffer appendData:dataFromHex("01")];
  EXPECT_EQ([buffer maximumLength], 4U);
  EXPECT_EQ(cxx([observer takeCalls]),
            "data from <> to <0102>\ndata from <0102> to <03040506>\ndata from <03040506> to <03040506>\n"
            "data from <03040506> to <>");
}

TEST_F(PortTest, ObserversHearOfEachChangeOnceWithBothValues) {
  KeyObserver* const observer = [[[KeyObserver alloc] init] autorelease];
  NSArray* const keys = [NSArray arrayWithObjects:@"baudRate", @"RTS", @"parity", @"isOpen", nil];
  for (NSUInteger index = 0; index < [keys count]; ++index)
    [port addObserver:observer
           forKeyPath:[keys objectAtIndex:index]
              options:NSKeyValueObservingOptionOld | NSKeyValueObservingOptionNew
              context:nullptr];
  [port setBaudRate:[NSNumber numberWithInt:9600]];
  [port setRTS:YES];
  [port setRTS:YES];
  [port setParity:ORSSerialPortParityOdd];
  EXPECT_EQ(cxx([observer takeCalls]), "baudRate from 19200 to 9600\nRTS from 0 to 1\nparity from 0 to 1");
  open();
  EXPECT_EQ(cxx([observer takeCalls]), "isOpen from 0 to 1");
  [port close];
  EXPECT_EQ(heard(), "line closed");
  EXPECT_EQ(cxx([observer takeCalls]), "isOpen from 1 to 0 on another thread");
  for (NSUInteger index = 0; index < [keys count]; ++index)
    [port removeObserver:observer forKeyPath:[keys objectAtIndex:index]];
}

}  // namespace
