// What is raised, with its reason to the letter, and what nil does.

#include <thread>

#import "Tarsil/detail/twin.h"
#import "Test.h"

@interface OwnDescriptor : ORSSerialPacketDescriptor
@end
@implementation OwnDescriptor
@end

namespace {

using ExceptionsTest = ObjcTest;

TEST_F(ExceptionsTest, ABufferNeedsItsMaximumLength) {
  EXPECT_EQ(cxx(raisedBy([] { [[ORSSerialBuffer alloc] init]; })),
            "NSInternalInconsistencyException: Use -[ORSSerialBuffer initWithMaximumLength:]");
}

TEST_F(ExceptionsTest, ADescriptorNeedsAShapeAndNamesItsClass) {
  EXPECT_EQ(
      cxx(raisedBy([] { [[ORSSerialPacketDescriptor alloc] init]; })),
      "NSInternalInconsistencyException: You must initialize ORSSerialPacketDescriptor with its designated "
      "initializers, or one of its convenience initializers.");
  EXPECT_EQ(cxx(raisedBy([] { [[OwnDescriptor alloc] init]; })),
            "NSInternalInconsistencyException: You must initialize OwnDescriptor with its designated "
            "initializers, or "
            "one of its convenience initializers.");
}

TEST_F(ExceptionsTest, BinaryTextHasFourDigitsForEachHexadecimalOne) {
  EXPECT_EQ(cxx(raisedBy([] { [NSString BinaryToHex:@"00001"]; })),
            "NSRangeException: binary text whose length is no multiple of four");
}

TEST_F(ExceptionsTest, AnExpressionThatTheEngineLacksIsRefused) {
  const auto described = [](NSString* pattern, NSRegularExpressionOptions options) {
    return cxx(raisedBy([=] {
      NSRegularExpression* const expression = [NSRegularExpression regularExpressionWithPattern:pattern
                                                                                        options:options
                                                                                          error:nullptr];
      [[[ORSSerialPacketDescriptor alloc] initWithRegularExpression:expression
                                                maximumPacketLength:10
                                                           userInfo:nil] autorelease];
    }));
  };
  EXPECT_EQ(described(@"\\d+", 0), "nothing");
  EXPECT_THAT(described(@"(a)\\1", 0), testing::StartsWith("NSInvalidArgumentException: "));
  EXPECT_EQ(described(@"a", NSRegularExpressionCaseInsensitive),
            "NSInvalidArgumentException: packets are matched without options");
}

TEST_F(ExceptionsTest, TheListOfPortsHasBounds) {
  ORSSerialPortManager* const manager = [ORSSerialPortManager sharedSerialPortManager];
  const NSUInteger count = [manager countOfAvailablePorts];
  const auto name = [](const std::function<void()>& work) { return cxx([raisedBy(work) name]); };
  EXPECT_EQ(name([=] { [manager objectInAvailablePortsAtIndex:count]; }), "NSRangeException");
  EXPECT_EQ(name([=] { [manager removeObjectFromAvailablePortsAtIndex:count]; }), "NSRangeException");
  EXPECT_EQ(name([=] { [manager removeAvailablePortsAtIndexes:[NSIndexSet indexSetWithIndex:count]]; }),
            "NSRangeException");
  EXPECT_EQ(name([=] { [manager insertObject:nil inAvailablePortsAtIndex:0]; }),
            "NSInternalInconsistencyException");
  EXPECT_EQ(name([=] {
              [manager insertAvailablePorts:[NSArray array] atIndexes:[NSIndexSet indexSetWithIndex:0]];
            }),
            "NSInternalInconsistencyException");
  EXPECT_EQ([manager countOfAvailablePorts], count);
}

TEST_F(ExceptionsTest, TheRunLoopIsAttachedOnTheMainThreadAlone) {
  std::string raised;
  std::thread([&] {
    tarsil::objc::inPool([&] { raised = cxx(raisedBy([] { [TarsilRunLoop attach]; })); });
  }).join();
  EXPECT_EQ(raised, "NSInternalInconsistencyException: +[TarsilRunLoop attach] belongs to the thread that "
                    "started the process");
}

TEST_F(ExceptionsTest, TwoDevicesCannotHaveOnePath) {
  [TarsilSerialDevice addTerminalAtPath:@"/dev/twice" name:@"twice"];
  EXPECT_EQ(cxx([raisedBy([] { [TarsilSerialDevice addTerminalAtPath:@"/dev/twice" name:@"again"]; }) name]),
            "NSInvalidArgumentException");
  EXPECT_EQ([TarsilSerialDevice removeTerminalAtPath:@"/dev/twice"], YES);
  EXPECT_EQ([TarsilSerialDevice removeTerminalAtPath:@"/dev/twice"], NO);
}

TEST_F(ExceptionsTest, APortWithoutADeviceIsNil) {
  EXPECT_EQ([[ORSSerialPort alloc] init], nil);
  EXPECT_EQ([[ORSSerialPort alloc] initWithPath:@"/dev/none"], nil);
  EXPECT_EQ([ORSSerialPort serialPortWithPath:@"/dev/none"], nil);
  EXPECT_EQ([ORSSerialPort serialPortWithPath:nil], nil);
  EXPECT_EQ([ORSSerialPort serialPortWithDevice:nil], nil);
  EXPECT_EQ([ORSSerialPort deviceFromBSDPath:@""], nil);
  EXPECT_EQ([ORSSerialPort suffixFromDevice:nil], nil);
}

}  // namespace
